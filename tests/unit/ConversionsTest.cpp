#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "frontend/Frontend.h"

using ::android::hardware::tv::tuner::V1_0::implementation::Frontend;
using namespace ::android::hardware::tv::tuner::V1_0;

namespace {

struct ConversionTable {
    std::string name;
    std::function<uint64_t(uint32_t)> convert;
    std::vector<uint64_t> expected;  // for codes first, first + 1, ...
    uint32_t firstCode;
};

template <typename R, typename A>
std::function<uint64_t(uint32_t)> asNumber(R (*fn)(A)) {
    return [fn](uint32_t code) { return static_cast<uint64_t>(fn(static_cast<A>(code))); };
}

const std::vector<ConversionTable> kTables = {
        {"fromMoxFrontendType", asNumber(Frontend::fromMoxFrontendType), {4, 0, 0, 6, 5, 5, 6, 9}, 1},
        {"fromMoxDvbcMod", asNumber(Frontend::fromMoxDvbcMod), {2, 4, 8, 16, 32}, 1},
        {"fromMoxDvbcAnnex", asNumber(Frontend::fromMoxDvbcAnnex), {2, 1, 4}, 1},
        {"fromMoxBandwidth", asNumber(Frontend::fromMoxBandwidth), {8, 4, 2, 16, 64, 32, 1}, 1},
        {"fromMoxDvbtHierarchy", asNumber(Frontend::fromMoxDvbtHierarchy), {2, 4, 8, 16}, 0},
        {"fromMoxDvbtMode", asNumber(Frontend::fromMoxDvbtMode), {4, 8, 2, 1}, 0},
        {"fromMoxDvbt2Mode", asNumber(Frontend::fromMoxDvbt2Mode), {64, 32, 4, 8, 2, 16, 1}, 0},
        {"fromMoxDvbtConstellation", asNumber(Frontend::fromMoxDvbtConstellation), {2, 4, 8, 1}, 0},
        {"fromMoxDvbt2Constellation",
         asNumber(Frontend::fromMoxDvbt2Constellation),
         {2, 4, 8, 16, 1},
         0},
        {"fromMoxDvbtCodeRate", asNumber(Frontend::fromMoxDvbtCodeRate), {32, 16, 8, 4, 2, 1}, 0},
        {"fromMoxDvbt2CodeRate",
         asNumber(Frontend::fromMoxDvbt2CodeRate),
         {2, 64, 4, 8, 128, 16, 0, 0, 1},
         0},
        {"fromMoxDvbtGuardInterval",
         asNumber(Frontend::fromMoxDvbtGuardInterval),
         {2, 4, 8, 16, 1},
         0},
        {"fromMoxDvbt2GuardInterval",
         asNumber(Frontend::fromMoxDvbt2GuardInterval),
         {2, 4, 8, 16, 32, 64, 128, 1},
         0},
        {"fromMoxDvbsModulation",
         asNumber(Frontend::fromMoxDvbsModulation),
         {1, 2, 4, 256, 512, 8, 16, 32, 64, 128, 1024, 2048, 4096},
         0},
        {"fromMoxDvbsCodeRate",
         asNumber(Frontend::fromMoxDvbsCodeRate),
         {1, 8, 4, 64, 2, 512, 32, 256, 1024, 4096, 16384, 32768, 262144, 1048576},
         0},
};

TEST(ConversionsTest, EveryTableEntryAndTheCodesAroundIt) {
    for (const ConversionTable& table : kTables) {
        SCOPED_TRACE(table.name);
        for (size_t i = 0; i < table.expected.size(); ++i) {
            EXPECT_EQ(table.convert(table.firstCode + static_cast<uint32_t>(i)), table.expected[i])
                    << "code " << table.firstCode + i;
        }
        // Past the table, below it (code 0 where the index is code - 1) and negative codes.
        EXPECT_EQ(table.convert(table.firstCode + static_cast<uint32_t>(table.expected.size())), 0u);
        EXPECT_EQ(table.convert(0xFFFFFFFFu), 0u);
        if (table.firstCode == 1) {
            EXPECT_EQ(table.convert(0), 0u);
        }
    }
}

TEST(ConversionsTest, StatusTypeIsTheSingleBitsIndex) {
    for (uint32_t n = 1; n <= 21; ++n) {
        EXPECT_EQ(static_cast<uint32_t>(Frontend::fromMoxStatusType(1u << n)), n);
    }
    struct {
        uint32_t mask;
        const char* why;
    } const zeroCases[] = {
            {1u << 0, "DEMOD_LOCK bit"}, {0, "no bit"},   {1u << 22, "bit 22"},
            {1u << 31, "bit 31"},        {6, "two bits"}, {(1u << 12) | 1, "two bits"}};
    for (const auto& c : zeroCases) {
        EXPECT_EQ(Frontend::fromMoxStatusType(c.mask), FrontendStatusType::DEMOD_LOCK) << c.why;
    }
    EXPECT_EQ(Frontend::fromMoxStatusType(1u << 12), FrontendStatusType::PLP_ID);
}

}  // namespace
