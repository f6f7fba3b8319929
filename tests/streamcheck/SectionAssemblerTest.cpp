// Sections out of packet payloads: where they start, span, share a packet, end in stuffing,
// and what a lost packet or a wrong length does.
#include <gtest/gtest.h>

#include "TsBuilder.h"
#include "streamcheck/SectionAssembler.h"

using mox::streamcheck::Section;
using mox::streamcheck::SectionAssembler;
using tsbuild::Bytes;

namespace {

// A section of `size` bytes in all (long header, body of a running count, CRC).
Bytes sectionOf(size_t size, uint8_t table = 0x42) {
    Bytes body(size - 12);
    for (size_t i = 0; i < body.size(); ++i) body[i] = uint8_t(i);
    return tsbuild::longSection(table, 1, 0, 0, 0, body);
}

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
}

Bytes slice(const Bytes& b, size_t from, size_t to) {
    return Bytes(b.begin() + from, b.begin() + to);
}

struct Payload {
    Bytes bytes;
    bool unitStart;
    bool lostBefore = false;
};

struct Case {
    const char* name;
    std::vector<Payload> payloads;
    std::vector<Bytes> sections;
    uint64_t malformed;
};

const Bytes kA = sectionOf(300);
const Bytes kB = sectionOf(20, 0x4E);
const Bytes kC = sectionOf(16, 0x70);
const Bytes kHuge = {0x42, 0xBF, 0xFF};  // section_length 4095: past 4096 bytes in all

std::vector<Case> cases() {
    return {
            {"OneSectionInOnePacket", {{join({{0}, kB}), true}}, {kB}, 0},
            {"SpanningTwoPackets",
             {{join({{0}, slice(kA, 0, 183)}), true}, {slice(kA, 183, 300), false}},
             {kA},
             0},
            {"SeveralInOnePacketThenStuffing",
             {{join({{0}, kB, kC, {0xFF, 0xFF, 0xFF}, kB}), true}},
             {kB, kC},
             0},
            {"PointerEndsOneAndStartsTheNext",
             {{join({{0}, slice(kA, 0, 183)}), true}, {join({{117}, slice(kA, 183, 300), kB}), true}},
             {kA, kB},
             0},
            {"LengthSplitAcrossPackets",
             {{join({{0}, kC, {kB[0], kB[1]}}), true}, {slice(kB, 2, kB.size()), false}},
             {kC, kB},
             0},
            {"UnitStartAfterALostPacket",
             {{join({{0}, slice(kA, 0, 183)}), true},
              {join({{17}, slice(kA, 283, 300), kB}), true, true}},
             {kB},
             0},
            {"ContinuationWithoutAStartIsIgnored", {{slice(kA, 183, 300), false}}, {}, 0},
            {"PointerPastThePayload", {{{200, 0x42}, true}}, {}, 1},
            {"LengthPastTheLargestSection", {{join({{0}, kHuge}), true}, {kB, false}}, {}, 1},
            {"SectionNotEndedWhereTheNextBegins",
             {{join({{0}, slice(kA, 0, 183)}), true}, {join({{0}, kB}), true}},
             {kB},
             1},
            {"EmptyUnitStartPayload", {{{}, true}}, {}, 1},
    };
}

class AssemblerTest : public ::testing::TestWithParam<Case> {};

TEST_P(AssemblerTest, SectionsComeOutWhole) {
    const Case& c = GetParam();
    SectionAssembler assembler;
    std::vector<Section> out;
    uint64_t packet = 0;
    for (const Payload& p : c.payloads) {
        if (p.lostBefore) assembler.lose();
        assembler.push(p.bytes.data(), p.bytes.size(), p.unitStart, packet++, out);
    }
    std::vector<Bytes> sections;
    for (const Section& s : out) sections.push_back(s.bytes);
    EXPECT_EQ(sections, c.sections);
    EXPECT_EQ(assembler.malformed(), c.malformed);
}

INSTANTIATE_TEST_SUITE_P(SectionAssembler, AssemblerTest, ::testing::ValuesIn(cases()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(SectionAssemblerTest, SectionKnowsThePacketsItCameIn) {
    SectionAssembler assembler;
    std::vector<Section> out;
    const Bytes first = join({{0}, slice(kA, 0, 183)});
    const Bytes second = slice(kA, 183, 300);
    assembler.push(first.data(), first.size(), true, 7, out);
    assembler.push(second.data(), second.size(), false, 9, out);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].firstPacket, 7u);
    EXPECT_EQ(out[0].lastPacket, 9u);
}

}  // namespace
