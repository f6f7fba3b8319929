// The host's descrambler: what each call answers in each state, its bounds, the key table's
// clearing of packets as the simulated air scrambles them, and a demux fed the air's scrambled
// service whose PES packets reach a filter only while the right key token and the PID are set.
#include <android/hardware/tv/tuner/1.0/IFilterCallback.h>
#include <fmq/MessageQueue.h>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Demux.h"
#include "Descrambler.h"
#include "DescramblingKeys.h"
#include "ServiceTest.h"
#include "simulator/stream/MultiplexStream.h"

using namespace ::android::hardware::tv::tuner::V1_0;
using ::android::hardware::kSynchronizedReadWrite;
using ::android::hardware::MessageQueue;
using ::android::hardware::MQDescriptorSync;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hardware::tv::tuner::V1_0::implementation::Demux;
using ::android::hardware::tv::tuner::V1_0::implementation::Descrambler;
using ::android::hardware::tv::tuner::V1_0::implementation::DescramblingKeys;

namespace {

using Bytes = std::vector<uint8_t>;

// A scrambled service of the simulated air: MPEG-2 video (with the PCR) and MPEG audio.
constexpr uint16_t kServiceId = 0x1042;
constexpr uint16_t kPmtPid = 0x4B0;
constexpr uint16_t kVideoPid = 0x4B1;
constexpr uint16_t kAudioPid = 0x4B2;
constexpr uint64_t kBitRate = 8000000;

// A service's control word as a client of the host derives it from the service id.
Bytes controlWord(uint16_t serviceId) {
    return {'M', 'O', 'X', uint8_t(serviceId >> 8), uint8_t(serviceId & 0xFF), 0x5A, 0xA5, 0x3C};
}

DemuxPid tpid(uint16_t pid) {
    DemuxPid p;
    p.tPid(pid);
    return p;
}

DemuxPid mmtp(uint16_t pid) {
    DemuxPid p;
    p.mmtpPid(pid);
    return p;
}

// What a filter's client is told.
class PesEvents : public IFilterCallback {
  public:
    Return<void> onFilterEvent(const DemuxFilterEvent& event) override {
        for (const auto& e : event.events) events.push_back(e);
        return Void();
    }
    Return<void> onFilterStatus(DemuxFilterStatus) override { return Void(); }
    std::vector<DemuxFilterEvent::Event> events;
};

class DescramblerTest : public ServiceTest {
  protected:
    struct OpenDemux {
        uint32_t id = 0;
        sp<Demux> demux;
    };
    OpenDemux openDemux() {
        OpenDemux opened;
        mTuner->openDemux([&](Result r, uint32_t id, const sp<IDemux>& d) {
            EXPECT_EQ(r, Result::SUCCESS);
            opened = {id, static_cast<Demux*>(d.get())};
        });
        return opened;
    }
    sp<IDescrambler> openDescrambler() {
        sp<IDescrambler> descrambler;
        mTuner->openDescrambler([&](Result r, const sp<IDescrambler>& d) {
            EXPECT_EQ(r, Result::SUCCESS);
            descrambler = d;
        });
        return descrambler;
    }

    // A started PES filter of the video's stream on the video PID.
    static sp<IFilter> videoPesFilter(const sp<Demux>& demux, const sp<PesEvents>& events) {
        sp<IFilter> filter;
        DemuxFilterType type{};
        type.mainType = DemuxFilterMainType::TS;
        type.subType.tsFilterType(DemuxTsFilterType::PES);
        demux->openFilter(type, 1 << 20, events, [&](Result r, const sp<IFilter>& f) {
            EXPECT_EQ(r, Result::SUCCESS);
            filter = f;
        });
        if (filter == nullptr) return nullptr;
        DemuxFilterPesDataSettings pesData{};
        pesData.streamId = 0xE0;
        pesData.isRaw = false;
        DemuxTsFilterSettings ts{};
        ts.tpid = kVideoPid;
        ts.filterSettings.pesData(pesData);
        DemuxFilterSettings settings;
        settings.ts(ts);
        EXPECT_EQ(filter->configure(settings), Result::SUCCESS);
        EXPECT_EQ(filter->start(), Result::SUCCESS);
        return filter;
    }

    sp<Tuner> mTuner = new Tuner();
};

// Where a descrambler stands when the call comes.
enum State { kNoSource, kSourced, kSourceClosed, kClosed, kStates };
const char* const kStateNames[kStates] = {"no source", "a source with key and PID",
                                          "its demux closed", "closed"};

struct Ids {
    uint32_t open;    // a demux open now
    uint32_t closed;  // a demux opened and closed
};

struct Call {
    const char* name;
    std::function<Result(IDescrambler&, const Ids&)> run;
    std::array<Result, kStates> expected;
};

constexpr Result OK = Result::SUCCESS;
constexpr Result STATE = Result::INVALID_STATE;
constexpr Result ARG = Result::INVALID_ARGUMENT;

TEST_F(DescramblerTest, EveryCallInEveryState) {
    const Bytes word = controlWord(kServiceId);
    const std::vector<Call> calls = {
            {"setDemuxSource(an open demux)",
             [](IDescrambler& d, const Ids& ids) { return d.setDemuxSource(ids.open); },
             {OK, STATE, STATE, STATE}},
            {"setDemuxSource(a closed demux)",
             [](IDescrambler& d, const Ids& ids) { return d.setDemuxSource(ids.closed); },
             {ARG, STATE, STATE, STATE}},
            {"setDemuxSource(an id never handed out)",
             [](IDescrambler& d, const Ids&) { return d.setDemuxSource(0); },
             {ARG, STATE, STATE, STATE}},
            {"setKeyToken(8 bytes)",
             [&](IDescrambler& d, const Ids&) { return d.setKeyToken(word); },
             {STATE, OK, STATE, STATE}},
            {"setKeyToken(7 bytes)",
             [&](IDescrambler& d, const Ids&) {
                 return d.setKeyToken(Bytes(word.begin(), word.end() - 1));
             },
             {ARG, ARG, ARG, STATE}},
            {"setKeyToken(9 bytes)",
             [&](IDescrambler& d, const Ids&) {
                 Bytes longer = word;
                 longer.push_back(0);
                 return d.setKeyToken(longer);
             },
             {ARG, ARG, ARG, STATE}},
            {"setKeyToken(empty)",
             [](IDescrambler& d, const Ids&) { return d.setKeyToken(Bytes{}); },
             {ARG, ARG, ARG, STATE}},
            {"addPid(a new PID)",
             [](IDescrambler& d, const Ids&) { return d.addPid(tpid(kAudioPid), nullptr); },
             {STATE, OK, STATE, STATE}},
            {"addPid(the PID added)",
             [](IDescrambler& d, const Ids&) { return d.addPid(tpid(kVideoPid), nullptr); },
             {STATE, OK, STATE, STATE}},
            {"addPid(0x1FFF)",
             [](IDescrambler& d, const Ids&) { return d.addPid(tpid(0x1FFF), nullptr); },
             {STATE, OK, STATE, STATE}},
            {"addPid(0x2000)",
             [](IDescrambler& d, const Ids&) { return d.addPid(tpid(0x2000), nullptr); },
             {ARG, ARG, ARG, STATE}},
            {"addPid(an MMTP PID)",
             [](IDescrambler& d, const Ids&) { return d.addPid(mmtp(kVideoPid), nullptr); },
             {ARG, ARG, ARG, STATE}},
            {"removePid(the PID added)",
             [](IDescrambler& d, const Ids&) { return d.removePid(tpid(kVideoPid), nullptr); },
             {STATE, OK, STATE, STATE}},
            {"removePid(a PID not added)",
             [](IDescrambler& d, const Ids&) { return d.removePid(tpid(kAudioPid), nullptr); },
             {STATE, ARG, STATE, STATE}},
            {"removePid(0x2000)",
             [](IDescrambler& d, const Ids&) { return d.removePid(tpid(0x2000), nullptr); },
             {ARG, ARG, ARG, STATE}},
            {"removePid(an MMTP PID)",
             [](IDescrambler& d, const Ids&) { return d.removePid(mmtp(kVideoPid), nullptr); },
             {ARG, ARG, ARG, STATE}},
            {"close()", [](IDescrambler& d, const Ids&) { return d.close(); }, {OK, OK, OK, STATE}},
    };
    for (const Call& call : calls) {
        for (int state = 0; state < kStates; ++state) {
            OpenDemux source = openDemux();
            const OpenDemux other = openDemux();
            const OpenDemux gone = openDemux();
            ASSERT_EQ(gone.demux->close(), Result::SUCCESS);
            sp<IDescrambler> d = openDescrambler();
            if (state != kNoSource) {
                ASSERT_EQ(d->setDemuxSource(source.id), Result::SUCCESS);
                ASSERT_EQ(d->setKeyToken(word), Result::SUCCESS);
                ASSERT_EQ(d->addPid(tpid(kVideoPid), nullptr), Result::SUCCESS);
            }
            if (state == kSourceClosed) {
                ASSERT_EQ(source.demux->close(), Result::SUCCESS);
                source.demux = nullptr;  // the descrambler's reference is the last
            }
            if (state == kClosed) {
                ASSERT_EQ(d->close(), Result::SUCCESS);
            }
            EXPECT_EQ(call.run(*d, {other.id, gone.id}), call.expected[state])
                    << call.name << " with " << kStateNames[state];
            d = nullptr;
            if (source.demux != nullptr) source.demux->close();
            other.demux->close();
        }
    }
}

TEST_F(DescramblerTest, ASourceIsTakenOnceAndOnlyAnOpenDemux) {
    const OpenDemux first = openDemux();
    const OpenDemux second = openDemux();
    ASSERT_EQ(second.demux->close(), Result::SUCCESS);
    sp<IDescrambler> d = openDescrambler();
    EXPECT_EQ(d->setDemuxSource(second.id), Result::INVALID_ARGUMENT);
    EXPECT_EQ(d->setDemuxSource(first.id), Result::SUCCESS) << "a refused source uses up nothing";
    EXPECT_EQ(d->setDemuxSource(first.id), Result::INVALID_STATE) << "the same demux again";
    EXPECT_EQ(d->close(), Result::SUCCESS);
}

TEST_F(DescramblerTest, ADescramblerClearsAtMostItsBoundOfPids) {
    const OpenDemux source = openDemux();
    sp<IDescrambler> d = openDescrambler();
    ASSERT_EQ(d->setDemuxSource(source.id), Result::SUCCESS);
    for (uint16_t i = 0; i < Descrambler::kMaxPids; ++i) {
        ASSERT_EQ(d->addPid(tpid(0x100 + i), nullptr), Result::SUCCESS) << i;
    }
    const uint16_t oneTooMany = 0x100 + Descrambler::kMaxPids;
    EXPECT_EQ(d->addPid(tpid(oneTooMany), nullptr), Result::UNAVAILABLE);
    EXPECT_EQ(d->addPid(tpid(0x100), nullptr), Result::SUCCESS) << "a PID it has takes no room";
    EXPECT_EQ(d->removePid(tpid(0x100), nullptr), Result::SUCCESS);
    EXPECT_EQ(d->removePid(tpid(0x100), nullptr), Result::INVALID_ARGUMENT);
    EXPECT_EQ(d->addPid(tpid(oneTooMany), nullptr), Result::SUCCESS) << "the room came back";
}

TEST_F(DescramblerTest, ADemuxServesAtMostItsBoundOfDescramblers) {
    const OpenDemux full = openDemux();
    const OpenDemux other = openDemux();
    std::vector<sp<IDescrambler>> attached;
    for (size_t i = 0; i < Descrambler::kMaxPerDemux; ++i) {
        attached.push_back(openDescrambler());
        ASSERT_EQ(attached.back()->setDemuxSource(full.id), Result::SUCCESS) << i;
    }
    sp<IDescrambler> late = openDescrambler();
    EXPECT_EQ(late->setDemuxSource(full.id), Result::UNAVAILABLE);
    EXPECT_EQ(late->setDemuxSource(other.id), Result::SUCCESS) << "another demux has room";

    EXPECT_EQ(attached[0]->close(), Result::SUCCESS);
    attached[0] = openDescrambler();
    EXPECT_EQ(attached[0]->setDemuxSource(full.id), Result::SUCCESS) << "a close frees one";
    attached[1] = nullptr;  // let go of without close
    attached[1] = openDescrambler();
    EXPECT_EQ(attached[1]->setDemuxSource(full.id), Result::SUCCESS) << "so does letting go";
    EXPECT_EQ(openDescrambler()->setDemuxSource(full.id), Result::UNAVAILABLE);
}

// A packet of the video PID whose payload counts up from `first`, after an adaptation field of
// `adaptation` bytes (none when negative).
Bytes clearPacket(int adaptation, bool payload, uint8_t first = 0) {
    Bytes p(188, 0);
    p[0] = 0x47;
    p[1] = kVideoPid >> 8;
    p[2] = kVideoPid & 0xFF;
    p[3] = static_cast<uint8_t>((adaptation >= 0 ? 0x20 : 0) | (payload ? 0x10 : 0) | 0x07);
    size_t start = 4;
    if (adaptation >= 0) {
        p[4] = static_cast<uint8_t>(adaptation);
        if (adaptation > 0) p[5] = 0x00;
        for (int i = 1; i < adaptation; ++i) p[5 + i] = 0xFF;
        start = 5 + size_t(adaptation);
    }
    for (size_t i = start; i < 188; ++i) p[i] = static_cast<uint8_t>(first + i - start);
    return p;
}

// The same packet as the air sends it for the service.
Bytes scrambledByTheAir(Bytes p, uint8_t scrambling, uint16_t serviceId) {
    p[3] = static_cast<uint8_t>((p[3] & 0x3F) | scrambling << 6);
    const size_t start = (p[3] & 0x20) ? 5 + size_t(p[4]) : 4;
    if (p[3] & 0x10) {
        mox::air::applyControlWord(p.data() + start, 188 - start,
                                   mox::air::serviceControlWord(serviceId));
    }
    return p;
}

DescramblingKeys::ControlWord keyOf(const Bytes& token) {
    DescramblingKeys::ControlWord word{};
    std::copy(token.begin(), token.end(), word.begin());
    return word;
}

TEST(DescramblingKeysTest, ClearsWhatTheAirScrambledWhateverThePacketsShape) {
    struct Shape {
        const char* name;
        uint8_t scrambling;
        int adaptation;
        bool payload;
    };
    const Shape shapes[] = {
            {"even key, payload only", 2, -1, true},
            {"odd key, payload only", 3, -1, true},
            {"an empty adaptation field", 2, 0, true},
            {"an adaptation field of 7 bytes", 2, 7, true},
            {"one byte of payload", 2, 182, true},
            {"no payload", 2, 183, false},
    };
    ASSERT_EQ(keyOf(controlWord(kServiceId)), mox::air::serviceControlWord(kServiceId))
            << "the word a client derives is the air's";
    for (const Shape& s : shapes) {
        const Bytes clear = clearPacket(s.adaptation, s.payload, 0x30);
        const Bytes scrambled = scrambledByTheAir(clear, s.scrambling, kServiceId);
        DescramblingKeys keys;
        const uint32_t slot = keys.attach().value();
        ASSERT_EQ(keys.addPid(slot, kVideoPid), Result::SUCCESS);

        Bytes p = scrambled;
        EXPECT_FALSE(keys.descramble(kVideoPid, p.data())) << s.name << ": no key yet";
        EXPECT_EQ(p, scrambled) << s.name;

        keys.setKey(slot, keyOf(controlWord(kServiceId)));
        EXPECT_FALSE(keys.descramble(kAudioPid, p.data())) << s.name << ": a PID not added";
        EXPECT_TRUE(keys.descramble(kVideoPid, p.data())) << s.name;
        EXPECT_EQ(p, clear) << s.name;

        if (s.payload) {
            keys.setKey(slot, keyOf(Bytes(8, 0x00)));
            p = scrambled;
            EXPECT_TRUE(keys.descramble(kVideoPid, p.data())) << s.name;
            EXPECT_EQ(p[3] >> 6, 0) << s.name;
            EXPECT_NE(p, clear) << s.name << ": a wrong word clears nothing";
        }

        keys.detach(slot);
        p = scrambled;
        EXPECT_FALSE(keys.descramble(kVideoPid, p.data())) << s.name << ": detached";
    }
}

TEST(DescramblingKeysTest, AnAdaptationFieldPastThePacketIsLeftAlone) {
    DescramblingKeys keys;
    const uint32_t slot = keys.attach().value();
    keys.setKey(slot, keyOf(controlWord(kServiceId)));
    ASSERT_EQ(keys.addPid(slot, kVideoPid), Result::SUCCESS);
    Bytes p = scrambledByTheAir(clearPacket(-1, true), 2, kServiceId);
    p[3] |= 0x20;
    p[4] = 184;
    const Bytes before = p;
    EXPECT_FALSE(keys.descramble(kVideoPid, p.data()));
    EXPECT_EQ(p, before);
}

// The air with one scrambled service, a second at a time.
class ScrambledAir {
  public:
    ScrambledAir() : mStream(setup(), kBitRate, 1700000000) {}

    Bytes next() {
        mUs += 1000000;
        Bytes out((kBitRate / 1504 + 1000) * 188);
        const size_t n = mStream.produce(mUs, out.data(), out.size() / 188);
        out.resize(n * 188);
        return out;
    }

  private:
    static mox::air::MultiplexSetup setup() {
        using namespace mox::air;
        MultiplexSetup s;
        s.content.networkId = 0x3001;
        s.content.networkName = "Descrambler Test";
        s.content.transportStreamId = 0x1001;
        s.content.originalNetworkId = 0x233A;
        Service pay;
        pay.id = kServiceId;
        pay.name = "Pay";
        pay.provider = "Test";
        pay.pmtPid = kPmtPid;
        pay.pcrPid = kVideoPid;
        pay.scrambled = true;
        pay.components = {{0x02, kVideoPid, "", 2000000, false},
                          {0x03, kAudioPid, "eng", 192000, false}};
        s.content.services = {pay};
        s.network.id = s.content.networkId;
        s.network.name = s.content.networkName;
        Delivery d;
        d.frequencyKHz = 482000;
        d.bandwidthKHz = 8000;
        d.bitsPerSymbol = 6;
        d.codeRate = {2, 3};
        s.network.multiplexes = {{d, s.content}};
        return s;
    }

    mox::air::MultiplexStream mStream;
    uint64_t mUs = 0;
};

TEST_F(DescramblerTest, TheScrambledServicesPesPacketsComeClearOnlyWithTheKeyAndItsPid) {
    const OpenDemux source = openDemux();
    sp<PesEvents> pes = new PesEvents();
    const sp<IFilter> filter = videoPesFilter(source.demux, pes);
    ASSERT_NE(filter, nullptr);
    uint32_t filterId = 0;
    filter->getId([&](Result, uint32_t id) { filterId = id; });
    std::unique_ptr<MessageQueue<uint8_t, kSynchronizedReadWrite>> queue;
    filter->getQueueDesc([&](Result r, const MQDescriptorSync<uint8_t>& desc) {
        ASSERT_EQ(r, Result::SUCCESS);
        queue = std::make_unique<MessageQueue<uint8_t, kSynchronizedReadWrite>>(desc, false);
    });
    ASSERT_TRUE(queue && queue->isValid());

    ScrambledAir air;
    // A second of air into the demux; the PES packets that came of it, read as a client reads.
    auto second = [&] {
        const Bytes bytes = air.next();
        pes->events.clear();
        source.demux->feedForTest(bytes.data(), bytes.size());
        std::vector<Bytes> packets;
        for (const auto& e : pes->events) {
            Bytes data(e.pes().dataLength);
            EXPECT_TRUE(queue->read(data.data(), data.size()));
            packets.push_back(std::move(data));
        }
        return packets;
    };
    auto scrambledDrops = [&] { return source.demux->filterCounters(filterId)->scrambledDrops; };

    EXPECT_TRUE(second().empty()) << "no descrambler";
    const uint64_t withoutDescrambler = scrambledDrops();
    EXPECT_GT(withoutDescrambler, 1000u) << "2 Mbit/s of video is some 1300 packets a second";

    sp<IDescrambler> d = openDescrambler();
    ASSERT_EQ(d->setDemuxSource(source.id), Result::SUCCESS);
    ASSERT_EQ(d->setKeyToken(controlWord(kServiceId)), Result::SUCCESS);
    EXPECT_TRUE(second().empty()) << "a key without the PID";
    ASSERT_EQ(d->addPid(tpid(kVideoPid), filter), Result::SUCCESS);
    const uint64_t beforeClear = scrambledDrops();
    const std::vector<Bytes> clear = second();
    EXPECT_EQ(scrambledDrops(), beforeClear) << "every packet of the PID cleared";
    ASSERT_GE(clear.size(), 24u) << "25 pictures a second";
    for (const Bytes& p : clear) {
        ASSERT_GE(p.size(), 9u);
        EXPECT_EQ(Bytes(p.begin(), p.begin() + 4), (Bytes{0x00, 0x00, 0x01, 0xE0}));
        const size_t frame = 9 + p[8];
        ASSERT_GE(p.size(), frame + 5);
        EXPECT_EQ(Bytes(p.begin() + frame, p.begin() + frame + 5),
                  (Bytes{0x00, 0x00, 0x00, 0x01, 0x09}))
                << "the picture's start codes";
    }

    ASSERT_EQ(d->setKeyToken(Bytes(8, 0x00)), Result::SUCCESS);
    EXPECT_TRUE(second().empty()) << "a wrong key leaves garbage, not PES packets";
    ASSERT_EQ(d->setKeyToken(controlWord(kServiceId)), Result::SUCCESS);
    EXPECT_GE(second().size(), 24u) << "the right key again";

    ASSERT_EQ(d->removePid(tpid(kVideoPid), filter), Result::SUCCESS);
    const uint64_t beforeRemoved = scrambledDrops();
    EXPECT_TRUE(second().empty()) << "the PID removed";
    EXPECT_GT(scrambledDrops(), beforeRemoved + 1000);

    ASSERT_EQ(d->addPid(tpid(kVideoPid), filter), Result::SUCCESS);
    EXPECT_GE(second().size(), 24u);
    ASSERT_EQ(d->close(), Result::SUCCESS);
    EXPECT_TRUE(second().empty()) << "the descrambler closed";
    EXPECT_EQ(source.demux->close(), Result::SUCCESS);
}

// The demux closed and let go of while a descrambler still names it, and the other way round:
// neither calls into what is gone.
TEST_F(DescramblerTest, EitherMayGoFirst) {
    ScrambledAir air;
    {
        OpenDemux source = openDemux();
        sp<IDescrambler> d = openDescrambler();
        ASSERT_EQ(d->setDemuxSource(source.id), Result::SUCCESS);
        ASSERT_EQ(d->addPid(tpid(kVideoPid), nullptr), Result::SUCCESS);
        ASSERT_EQ(source.demux->close(), Result::SUCCESS);
        source.demux = nullptr;
        EXPECT_EQ(d->setKeyToken(controlWord(kServiceId)), Result::INVALID_STATE);
        EXPECT_EQ(d->close(), Result::SUCCESS);
    }
    {
        OpenDemux source = openDemux();
        sp<PesEvents> pes = new PesEvents();
        const sp<IFilter> filter = videoPesFilter(source.demux, pes);
        ASSERT_NE(filter, nullptr);
        sp<IDescrambler> d = openDescrambler();
        ASSERT_EQ(d->setDemuxSource(source.id), Result::SUCCESS);
        ASSERT_EQ(d->setKeyToken(controlWord(kServiceId)), Result::SUCCESS);
        ASSERT_EQ(d->addPid(tpid(kVideoPid), nullptr), Result::SUCCESS);
        Bytes bytes = air.next();
        source.demux->feedForTest(bytes.data(), bytes.size());
        EXPECT_FALSE(pes->events.empty());
        d = nullptr;  // let go of without close
        pes->events.clear();
        bytes = air.next();
        source.demux->feedForTest(bytes.data(), bytes.size());
        EXPECT_TRUE(pes->events.empty()) << "its key went with it";
        EXPECT_EQ(source.demux->close(), Result::SUCCESS);
    }
}

}  // namespace
