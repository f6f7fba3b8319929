#include "SessionClaims.h"

#include <log/log.h>
#include <utils/Mutex.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "Session.h"

namespace android {
namespace hardware {
namespace details {
namespace {

using ::android::hidl::base::V1_0::IBase;

// The locks are never destroyed: pool threads use them until the process ends.
Mutex& tableLock() {
    static auto* lock = new Mutex();
    return *lock;
}
// Written before the first session opens, read lock-free by every incoming call after that.
SessionCleanup gTable[kMaxSessionCleanups];
std::atomic<size_t> gTableSize{0};

const SessionCleanup* findEntry(StubDispatch dispatch) {
    const size_t size = gTableSize.load(std::memory_order_acquire);
    for (size_t i = 0; i < size; ++i) {
        if (gTable[i].dispatch == dispatch) return &gTable[i];
    }
    return nullptr;
}

bool listed(const uint16_t* methods, size_t count, uint16_t method) {
    return std::find(methods, methods + count, method) != methods + count;
}

struct Claim {
    uint64_t session;  // its serial: a session's address may be reused once it is gone
    const SessionCleanup* entry;
    wp<IBase> object;
    // An object claimed by a call (a tuned frontend) is kept while it is claimed: the session
    // may let go of it (a wrapper only the session held, as a recording service hands out) and
    // still leave it tuned. The claim ends with a releasing call, another session's claim or the
    // session's end, each of which holds the object too, so its last reference never goes here.
    sp<IBase> held;
};

Claim claimOf(uint64_t session, const SessionCleanup* entry, const sp<IBase>& object) {
    return Claim{session, entry, object, entry->claimedWhenHandedOut ? nullptr : object};
}
// Taken before a session's own lock (which isAlive takes), never the other way round, and never
// held while an object is put right.
Mutex& claimsLock() {
    static auto* lock = new Mutex();
    return *lock;
}
std::unordered_map<const IBase*, Claim>& claims() {
    static auto* map = new std::unordered_map<const IBase*, Claim>();
    return *map;
}
// Claims of objects that have gone are dropped whenever the table has doubled since the last
// sweep: a session that opens and drops objects without closing them holds none for long.
constexpr size_t kFirstSweep = 64;
size_t gSweepAt = kFirstSweep;

struct Leftover {
    sp<IBase> object;
    const SessionCleanup* entry;
};

// Objects whose last reference may be dropped here go after the claims' lock.
void sweepGoneObjects(std::vector<sp<IBase>>& keepAlive) {
    auto& map = claims();
    for (auto it = map.begin(); it != map.end();) {
        sp<IBase> strong = it->second.object.promote();
        if (strong == nullptr) {
            it = map.erase(it);
        } else {
            keepAlive.push_back(std::move(strong));
            ++it;
        }
    }
    gSweepAt = std::max(kFirstSweep, 2 * map.size());
}

// On the pool: each object the ended session still claims (none another session took meanwhile)
// is put right, in the table's order.
void putRight(uint64_t session, const std::string& peer, std::vector<Leftover> candidates,
              const char* event = "is gone; put right what it left") {
    submitToRpcPool([session, peer, candidates = std::move(candidates), event]() mutable {
        std::vector<Leftover> left;
        {
            AutoMutex guard(claimsLock());
            auto& map = claims();
            for (Leftover& c : candidates) {
                auto it = map.find(c.object.get());
                if (it == map.end() || it->second.session != session) continue;
                map.erase(it);
                left.push_back(c);
            }
        }
        std::stable_sort(left.begin(), left.end(), [](const Leftover& a, const Leftover& b) {
            return a.entry->order < b.entry->order;
        });
        std::map<std::string, size_t> counts;
        for (const Leftover& l : left) {
            l.entry->putRight(l.object);
            ++counts[l.entry->what];
        }
        if (!counts.empty()) {
            std::string summary;
            for (const auto& [what, count] : counts) {
                summary += (summary.empty() ? "" : ", ") + std::to_string(count) + " " + what;
            }
            ALOGI("%s %s: %s", peer.c_str(), event, summary.c_str());
        }
        // The objects go here, on the pool, after they were put right.
        left.clear();
        candidates.clear();
    });
}

// Makes the object the session's; a session that has ended meanwhile puts it right at once.
void claim(Session& session, const sp<IBase>& object, const SessionCleanup& entry, bool takeOver) {
    std::vector<sp<IBase>> keepAlive;
    {
        AutoMutex guard(claimsLock());
        auto& map = claims();
        auto it = map.find(object.get());
        if (it != map.end() && !takeOver && it->second.session != session.serial()) {
            sp<IBase> held = it->second.object.promote();
            if (held != nullptr) {
                keepAlive.push_back(std::move(held));
                return;  // another session's, and it lives
            }
        }
        map[object.get()] = claimOf(session.serial(), &entry, object);
        if (map.size() >= gSweepAt) sweepGoneObjects(keepAlive);
        if (session.isAlive()) return;
    }
    // The session ended while the object was handed out or the call began: the sweep at its end
    // may have missed this claim.
    putRight(session.serial(), session.peer(), {Leftover{object, &entry}});
}

}  // namespace

SessionCleanup& SessionCleanup::claimedBy(std::initializer_list<uint16_t> methods) {
    LOG_ALWAYS_FATAL_IF(methods.size() > kMaxMethods, "too many claiming methods");
    claimingCount = 0;
    for (uint16_t m : methods) claiming[claimingCount++] = m;
    return *this;
}

SessionCleanup& SessionCleanup::releasedBy(std::initializer_list<uint16_t> methods) {
    LOG_ALWAYS_FATAL_IF(methods.size() > kMaxMethods, "too many releasing methods");
    releasingCount = 0;
    for (uint16_t m : methods) releasing[releasingCount++] = m;
    return *this;
}

void registerSessionCleanup(const SessionCleanup& entry) {
    AutoMutex guard(tableLock());
    const size_t size = gTableSize.load(std::memory_order_relaxed);
    for (size_t i = 0; i < size; ++i) {
        if (gTable[i].dispatch == entry.dispatch) return;  // registered once
    }
    LOG_ALWAYS_FATAL_IF(size == kMaxSessionCleanups, "more than %zu session cleanups",
                        kMaxSessionCleanups);
    gTable[size] = entry;
    gTableSize.store(size + 1, std::memory_order_release);
}

void claimHandedOut(Session& session, const sp<IBase>& object, StubDispatch dispatch) {
    const SessionCleanup* entry = findEntry(dispatch);
    if (entry != nullptr && entry->claimedWhenHandedOut) claim(session, object, *entry, false);
}

void noteCallStarting(Session& session, const sp<IBase>& object, StubDispatch dispatch,
                      uint16_t method) {
    const SessionCleanup* entry = findEntry(dispatch);
    if (entry != nullptr && listed(entry->claiming, entry->claimingCount, method)) {
        claim(session, object, *entry, true);
    }
}

void noteCallMade(Session& session, const sp<IBase>& object, StubDispatch dispatch,
                  uint16_t method) {
    const SessionCleanup* entry = findEntry(dispatch);
    if (entry == nullptr) return;
    if (listed(entry->releasing, entry->releasingCount, method)) {
        // Whoever asked, nothing is left to put right; even a failed close is not repeated.
        AutoMutex guard(claimsLock());
        claims().erase(object.get());
        return;
    }
    if (!listed(entry->claiming, entry->claimingCount, method) || session.isAlive()) return;
    // The session ended during its own claiming call (a tune): what the call did after the
    // session's end was put right is put right again, unless another session took the object.
    {
        AutoMutex guard(claimsLock());
        auto it = claims().find(object.get());
        if (it != claims().end() && it->second.session != session.serial()) return;
        claims()[object.get()] = claimOf(session.serial(), entry, object);
    }
    putRight(session.serial(), session.peer(), {Leftover{object, entry}});
}

void putRightWhatWasLetGo(Session& session, const sp<IBase>& object) {
    const SessionCleanup* entry = nullptr;
    {
        AutoMutex guard(claimsLock());
        auto it = claims().find(object.get());
        if (it == claims().end() || it->second.session != session.serial() ||
            !it->second.entry->claimedWhenHandedOut) {
            return;
        }
        entry = it->second.entry;
    }
    putRight(session.serial(), session.peer(), {Leftover{object, entry}},
             "let go without closing; closed");
}

void putRightWhatIsLeft(Session& session) {
    std::vector<Leftover> left;
    {
        AutoMutex guard(claimsLock());
        for (auto& [key, claimed] : claims()) {
            if (claimed.session != session.serial()) continue;
            sp<IBase> strong = claimed.object.promote();
            if (strong != nullptr) left.push_back(Leftover{std::move(strong), claimed.entry});
        }
    }
    if (!left.empty()) putRight(session.serial(), session.peer(), std::move(left));
}

}  // namespace details
}  // namespace hardware
}  // namespace android
