// The TR 101 290 measurements on a small multiplex written by hand: the clean stream counts
// nothing, and each fault counts where it belongs and nowhere else.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "Counts.h"
#include "Multiplex.h"
#include "streamcheck/StreamChecker.h"

using namespace mox::streamcheck;
using tsbuild::Bytes;
using tsbuild::Slot;

namespace {

constexpr size_t kStreamMs = 4000;

StreamReport check(const std::vector<Slot>& slots, Options options = {tsbuild::kBitRate}) {
    StreamChecker checker(options);
    for (const Slot& slot : slots) checker.packet(slot.bytes.data(), slot.bytes.size());
    return checker.report();
}

using Keep = std::function<bool(size_t ms, const std::string& tag)>;
using Change = std::function<void(std::vector<Slot>&)>;

struct Fault {
    const char* name;
    Keep keep;      // packets left out before counters are set (nullptr: all)
    Change change;  // bytes changed afterwards (nullptr: none)
    std::map<std::string, uint64_t> counts;
    Options options = Options{tsbuild::kBitRate};
};

Keep without(const std::string& tag, size_t fromMs, size_t toMs) {
    return [=](size_t ms, const std::string& t) { return t != tag || ms < fromMs || ms >= toMs; };
}

// The n-th section of a tag, changed and given its CRC again (one-packet sections).
Change rewriteSection(const std::string& tag, size_t n, std::function<void(Bytes&)> edit) {
    return [=](std::vector<Slot>& slots) {
        Bytes& packet = slots[tsbuild::nth(slots, tag, n)].bytes;
        const size_t length = 3 + (((packet[6] & 0x0F) << 8) | packet[7]);
        Bytes section(packet.begin() + 5, packet.begin() + 5 + length);
        edit(section);
        if (section[1] & 0x80) tsbuild::fixCrc(section);
        std::copy(section.begin(), section.end(), packet.begin() + 5);
    };
}

Change inPacket(const std::string& tag, size_t n, std::function<void(Bytes&)> edit) {
    return [=](std::vector<Slot>& slots) { edit(slots[tsbuild::nth(slots, tag, n)].bytes); };
}

// A second copy of the n-th section of a tag, 5 ms after it (replacing a null packet).
Change repeatSoon(const std::string& tag, size_t n) {
    return [=](std::vector<Slot>& slots) {
        const size_t at = tsbuild::nth(slots, tag, n);
        size_t to = at + 5;
        while (slots[to].tag != "null") ++to;
        Bytes copy = slots[at].bytes;
        // The copy continues its PID's counter; the packets after it shift by one.
        const uint16_t pid = uint16_t(((copy[1] & 0x1F) << 8) | copy[2]);
        for (size_t i = at + 1; i < slots.size(); ++i) {
            Bytes& b = slots[i].bytes;
            if (i == to) {
                copy[3] = uint8_t((copy[3] & 0xF0) | ((slots[at].bytes[3] + 1) & 0xF));
                for (size_t j = at + 1; j < to; ++j) {
                    const Bytes& between = slots[j].bytes;
                    if ((((between[1] & 0x1F) << 8) | between[2]) == pid) {
                        copy[3] = uint8_t((copy[3] & 0xF0) | ((between[3] + 1) & 0xF));
                    }
                }
                slots[i] = Slot{tag + "-copy", copy};
            } else if (i > to && (((b[1] & 0x1F) << 8) | b[2]) == pid) {
                b[3] = uint8_t((b[3] & 0xF0) | ((b[3] + 1) & 0xF));
            }
        }
    };
}

// The video packet at 313 ms sent again in the next `copies` packets (free at 314 and 315 ms).
Change copiesOfVideoPacket(int copies) {
    return [=](std::vector<Slot>& s) {
        if (s[313].tag != "video" || s[314].tag != "null" || s[315].tag != "null") {
            throw std::logic_error("the multiplex moved: 313 ms is not a lone video packet");
        }
        for (int i = 1; i <= copies; ++i) s[313 + i] = s[313];
    };
}

const std::vector<Fault>& faults() {
    static const std::vector<Fault> all = {
            {"Clean", nullptr, nullptr, {}},
            // Priority 1
            {"OneBadSyncByte",
             nullptr,
             inPacket("null", 10, [](Bytes& p) { p[0] = 0x46; }),
             {{"Sync_byte_error", 1}}},
            {"TwoBadSyncBytesLoseSync",
             nullptr,
             [](std::vector<Slot>& s) {
                 size_t at = 100;
                 while (s[at].tag != "null" || s[at + 1].tag != "null") ++at;
                 s[at].bytes[0] = 0;
                 s[at + 1].bytes[0] = 0;
             },
             {{"Sync_byte_error", 2}, {"TS_sync_loss", 1}}},
            {"PatMissing700Ms", without("pat", 1000, 1700), nullptr, {{"PAT_error", 1}}},
            {"PatScrambled",
             nullptr,
             inPacket("pat", 5, [](Bytes& p) { p[3] |= 0x80; }),
             {{"PAT_error", 1}}},
            {"PatTableIdWrong",
             nullptr,
             rewriteSection("pat", 5, [](Bytes& s) { s[0] = 0x02; }),
             {{"PAT_error", 1}}},
            // Lost after its counter was set (a packet left out by `keep` never had one).
            {"VideoPacketLost",
             nullptr,
             [](std::vector<Slot>& s) {
                 s[tsbuild::nth(s, "video", 50)] = Slot{"null", tsbuild::nullPacket()};
             },
             {{"Continuity_count_error", 1}}},
            {"PacketRepeatedOnce", nullptr, copiesOfVideoPacket(1), {}},
            {"PacketThreeTimes", nullptr, copiesOfVideoPacket(2), {{"Continuity_count_error", 1}}},
            {"CounterJumpWithDiscontinuityIndicator",
             nullptr,
             [](std::vector<Slot>& s) {
                 // A PCR packet announcing a discontinuity; the video counter may restart.
                 const size_t at = tsbuild::nth(s, "video", 30);
                 for (size_t i = at; i < s.size(); ++i) {
                     Bytes& b = s[i].bytes;
                     if (s[i].tag == "video" || s[i].tag == "video-start") {
                         b[3] = uint8_t((b[3] & 0xF0) | ((b[3] + 7) & 0xF));
                     }
                 }
                 Bytes& first = s[at].bytes;
                 Bytes payload(first.begin() + 4, first.begin() + 4 + 182);
                 first[3] = uint8_t((first[3] & 0xC0) | 0x30 | (first[3] & 0xF));
                 first[4] = 1;
                 first[5] = 0x80;
                 std::copy(payload.begin(), payload.end(), first.begin() + 6);
             },
             {}},
            {"PmtMissing700Ms", without("pmt", 2000, 2700), nullptr, {{"PMT_error", 1}}},
            {"PmtScrambled",
             nullptr,
             inPacket("pmt", 3, [](Bytes& p) { p[3] |= 0xC0; }),
             {{"PMT_error", 1}}},
            {"ReferencedPidGone",
             without("data", 500, kStreamMs),
             nullptr,
             {{"PID_error", 1}},
             Options{tsbuild::kBitRate, 1.0}},
            // Priority 2
            {"TransportErrorIndicator",
             nullptr,
             inPacket("null", 7, [](Bytes& p) { p[1] |= 0x80; }),
             {{"Transport_error", 1}}},
            {"PatCrcWrong",
             nullptr,
             inPacket("pat", 7, [](Bytes& p) { p[5 + 3 + 9 + 3] ^= 1; }),
             {{"CRC_error", 1}}},
            {"SdtCrcWrong",
             nullptr,
             inPacket("sdt", 2, [](Bytes& p) { p[20] ^= 0x40; }),
             {{"CRC_error", 1}}},
            {"TdtHasNoCrc", nullptr, inPacket("tdt", 1, [](Bytes& p) { p[12] = 0x13; }), {}},
            // 80 ms without PCRs: late (over 40 ms), but the values do not jump (within 100 ms).
            {"PcrsMissing80Ms", without("pcr", 1000, 1060), nullptr, {{"PCR_repetition_error", 1}}},
            {"PcrJumpsWithoutIndicator",
             nullptr,
             [](std::vector<Slot>& s) {
                 for (size_t i = tsbuild::nth(s, "pcr", 60); i < s.size(); ++i) {
                     if (s[i].tag == "pcr")
                         tsbuild::setPcr(s[i].bytes, 1000000 + (i + 200) * 27000);
                 }
             },
             {{"PCR_discontinuity_indicator_error", 1}}},
            {"PcrJumpsWithIndicator",
             nullptr,
             [](std::vector<Slot>& s) {
                 const size_t first = tsbuild::nth(s, "pcr", 60);
                 s[first].bytes[5] |= 0x80;
                 for (size_t i = first; i < s.size(); ++i) {
                     if (s[i].tag == "pcr")
                         tsbuild::setPcr(s[i].bytes, 1000000 + (i + 200) * 27000);
                 }
             },
             {}},
            // One PCR 1 us off its place: its step from the previous one and the next step.
            {"PcrOneMicrosecondOff",
             nullptr,
             [](std::vector<Slot>& s) {
                 const size_t at = tsbuild::nth(s, "pcr", 50);
                 tsbuild::setPcr(s[at].bytes, 1000000 + at * 27000 + 27);
             },
             {{"PCR_accuracy_error", 2}}},
            {"PcrWithin500Ns",
             nullptr,
             [](std::vector<Slot>& s) {
                 const size_t at = tsbuild::nth(s, "pcr", 50);
                 tsbuild::setPcr(s[at].bytes, 1000000 + at * 27000 + 13);
             },
             {}},
            {"VideoWithoutPtsFor800Ms",
             nullptr,
             [](std::vector<Slot>& s) {
                 for (size_t n = 25; n < 45; ++n)
                     s[tsbuild::nth(s, "video-start", n)].bytes[11] = 0;
             },
             {{"PTS_error", 1}}},
            {"ScrambledWithoutCat",
             without("cat", 0, kStreamMs),
             inPacket("video", 40, [](Bytes& p) { p[3] |= 0x80; }),
             {{"CAT_error", 1}}},
            {"CatTableIdWrong",
             nullptr,
             rewriteSection("cat", 1, [](Bytes& s) { s[0] = 0x02; }),
             {{"CAT_error", 1}}},
            // Priority 3
            {"NitTwiceWithin25Ms", nullptr, repeatSoon("nit", 1), {{"NIT_actual_error", 1}}},
            {"NitPidWrongTable",
             nullptr,
             rewriteSection("nit", 2, [](Bytes& s) { s[0] = 0x42; }),
             {{"NIT_actual_error", 1}}},
            {"SdtMissing2500Ms", without("sdt", 600, 3100), nullptr, {{"SDT_actual_error", 1}}},
            {"SdtTwiceWithin25Ms", nullptr, repeatSoon("sdt", 3), {{"SDT_actual_error", 1}}},
            {"EitPresentMissing", without("eit0", 500, kStreamMs), nullptr, {{"EIT_actual_error", 1}}},
            {"EitPresentTwiceWithin25Ms", nullptr, repeatSoon("eit0", 2), {{"EIT_actual_error", 1}}},
            {"TdtTwiceWithin25Ms", nullptr, repeatSoon("tdt", 2), {{"TDT_error", 1}}},
            {"TimePidWrongTable",
             nullptr,
             inPacket("tdt", 3, [](Bytes& p) { p[5] = 0x71; }),
             {{"TDT_error", 1}}},
    };
    return all;
}

class FaultTest : public ::testing::TestWithParam<Fault> {};

TEST_P(FaultTest, CountsWhereItBelongsOnly) {
    const Fault& fault = GetParam();
    std::vector<Slot> slots = multiplex::timeline(kStreamMs).finish(fault.keep);
    if (fault.change) fault.change(slots);
    const StreamReport report = check(slots, fault.options);
    EXPECT_EQ(countsOf(report), expectCounts(fault.counts));
    EXPECT_EQ(report.malformedSections, 0u);
    EXPECT_EQ(report.malformedPackets, 0u);
}

INSTANTIATE_TEST_SUITE_P(StreamChecker, FaultTest, ::testing::ValuesIn(faults()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(StreamCheckerTest, IntervalsOfTheCleanStream) {
    const StreamReport r = check(multiplex::timeline(kStreamMs).finish());
    EXPECT_EQ(r.totalPackets, kStreamMs);
    EXPECT_DOUBLE_EQ(r.durationSeconds, 4.0);
    EXPECT_EQ(r.repetitions.pat.count, 40u);
    EXPECT_NEAR(r.repetitions.pat.largestSeconds, 0.1, 0.0025);
    EXPECT_NEAR(r.repetitions.pat.smallestSeconds, 0.1, 0.0025);
    ASSERT_EQ(r.repetitions.pmt.count(multiplex::kPmtPid), 1u);
    EXPECT_NEAR(r.repetitions.pmt.at(multiplex::kPmtPid).largestSeconds, 0.1, 0.0025);
    EXPECT_NEAR(r.repetitions.pcr.at(multiplex::kPcrPid).largestSeconds, 0.020, 0.0025);
    EXPECT_NEAR(r.repetitions.pts.at(multiplex::kVideoPid).largestSeconds, 0.040, 0.0025);
    EXPECT_NEAR(r.repetitions.pts.at(multiplex::kAudioPid).largestSeconds, 0.020, 0.0025);
    EXPECT_EQ(r.repetitions.pts.count(multiplex::kDataPid), 0u);  // not PES
    EXPECT_NEAR(r.repetitions.sdtActual.largestSeconds, 0.5, 0.0025);
    EXPECT_NEAR(r.repetitions.nitActual.largestSeconds, 1.0, 0.0025);
    EXPECT_NEAR(r.repetitions.eitPresentFollowingActual.at(1).largestSeconds, 1.0, 0.0025);
    EXPECT_NEAR(r.repetitions.tdt.largestSeconds, 1.0, 0.0025);
    EXPECT_NEAR(r.repetitions.tot.largestSeconds, 1.0, 0.0025);
    EXPECT_EQ(r.packetsPerPid.at(0x0000), 40u);
    EXPECT_EQ(r.packetsPerPid.at(multiplex::kVideoPid), 400u);
}

TEST(StreamCheckerTest, BitRateMeasuredFromThePcrs) {
    const StreamReport r = check(multiplex::timeline(kStreamMs).finish(), Options{});
    EXPECT_NEAR(r.measuredBitRate, double(tsbuild::kBitRate), 1e-3);
    EXPECT_NEAR(r.bitRate, double(tsbuild::kBitRate), 1e-3);
    EXPECT_NEAR(r.durationSeconds, 4.0, 1e-6);
    EXPECT_EQ(countsOf(r), expectCounts({}));
}

TEST(StreamCheckerTest, AccuracyAgainstTheMeasuredRate) {
    std::vector<Slot> slots = multiplex::timeline(kStreamMs).finish();
    const size_t at = tsbuild::nth(slots, "pcr", 80);
    tsbuild::setPcr(slots[at].bytes, 1000000 + at * 27000 - 30);
    const StreamReport r = check(slots, Options{});
    // Against the line through the earlier PCRs: only the displaced one is off.
    EXPECT_EQ(countsOf(r), expectCounts({{"PCR_accuracy_error", 1}}));
}

TEST(StreamCheckerTest, GapsBeforeTheRateIsKnownAreJudgedOnceItIs) {
    // PCRs start at 1 s: the PAT missing from 0 to 700 ms is judged with the rate found later.
    const auto keep = [](size_t ms, const std::string& tag) {
        return !(tag == "pcr" && ms < 1000) && !(tag == "pat" && ms < 700);
    };
    const StreamReport r = check(multiplex::timeline(kStreamMs).finish(keep), Options{});
    EXPECT_EQ(r.first.patError, 1u);
    EXPECT_NEAR(r.repetitions.pcr.at(multiplex::kPcrPid).largestSeconds, 0.020, 0.0025);
    // The PCR PID, announced by the PMT, was silent for the first second.
    EXPECT_EQ(r.second.pcrRepetitionError, 1u);
}

TEST(StreamCheckerTest, AbsentTablesCountOnceEach) {
    // 31 s of null packets: no PAT, NIT, SDT or TDT ever.
    StreamChecker checker(Options{tsbuild::kBitRate});
    const Bytes null = tsbuild::nullPacket();
    for (int i = 0; i < 31000; ++i) checker.packet(null.data(), null.size());
    EXPECT_EQ(countsOf(checker.report()), expectCounts({{"PAT_error", 1},
                                                        {"NIT_actual_error", 1},
                                                        {"SDT_actual_error", 1},
                                                        {"TDT_error", 1}}));
}

TEST(StreamCheckerTest, PacketsOfAnotherSizeAreSyncLosses) {
    StreamChecker checker(Options{tsbuild::kBitRate});
    const Bytes null = tsbuild::nullPacket();
    checker.packet(null.data(), 100);
    Bytes three;
    for (int i = 0; i < 3; ++i) three.insert(three.end(), null.begin(), null.end());
    checker.packets(three.data(), three.size() - 20);  // two whole, 168 bytes left over
    const StreamReport r = checker.report();
    EXPECT_EQ(r.first.tsSyncLoss, 2u);
    EXPECT_EQ(r.totalPackets, 4u);
    EXPECT_EQ(r.packetsPerPid.at(0x1FFF), 2u);
}

TEST(StreamCheckerTest, AdaptationFieldLongerThanThePacketIsIgnored) {
    StreamChecker checker(Options{tsbuild::kBitRate});
    Bytes p = tsbuild::pcrPacket(0x0101, 0, 27000);
    p[3] = 0x30;  // adaptation and payload
    p[4] = 183;   // leaves no byte for the payload
    checker.packet(p.data());
    p[3] = 0x20;
    p[4] = 184;
    checker.packet(p.data());
    const StreamReport r = checker.report();
    EXPECT_EQ(r.malformedPackets, 2u);
    EXPECT_TRUE(r.repetitions.pcr.empty());
}

}  // namespace

namespace {

TEST(StreamCheckerTest, ShortHeaderWhereALongOneBelongsIsMalformed) {
    // A PAT without section_syntax_indicator, 3 bytes long (found by the fuzzer: read past its
    // end).
    StreamChecker checker(Options{tsbuild::kBitRate});
    const Bytes p = tsbuild::packet(tsbuild::Header{0x0000, true}, {0x00, 0x00, 0x00, 0x00});
    checker.packet(p.data());
    const StreamReport r = checker.report();
    EXPECT_EQ(r.malformedSections, 1u);
    EXPECT_FALSE(r.tables.pat);
    EXPECT_EQ(r.repetitions.pat.count, 0u);
}

}  // namespace
