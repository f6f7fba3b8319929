// Channel files through libdvbv5: what a scan writes is read back by tunerctl and by libdvbv5,
// and a legacy zap file names its channels too.
#include <gtest/gtest.h>
#include <libdvbv5/dvb-file.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <vector>

#include "ChannelFile.h"

using namespace tunerctl;

namespace {

class ChannelFileTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/tunerctl-channels-XXXXXX";
        const int fd = mkstemp(name);
        ASSERT_GE(fd, 0);
        close(fd);
        mPath = name;
    }
    void TearDown() override { std::remove(mPath.c_str()); }
    std::string mPath;
};

TEST_F(ChannelFileTest, WhatIsWrittenIsReadBack) {
    FoundChannel terrestrial{"490.000 MHz", {}};
    terrestrial.options.dvbt = "490000000Hz";
    terrestrial.options.bandwidth = "7MHz";
    terrestrial.options.standard = "T2";
    FoundChannel cable{"306.000 MHz", {}};
    cable.options.dvbc = "306000000Hz";
    cable.options.symbolRate = "6900000";
    cable.options.modulation = "64QAM";
    cable.options.annex = "C";
    FoundChannel satellite{"east 11362 V", {}};
    satellite.options.dvbs = "11362000kHz";
    satellite.options.symbolRate = "22000000";
    satellite.options.standard = "S";
    satellite.options.polarisation = "V";
    satellite.options.lnb = "UNIVERSAL";
    satellite.options.satellite = "1";
    std::string error;
    ASSERT_TRUE(writeChannels(mPath, {terrestrial, cable, satellite}, error)) << error;

    // libdvbv5 itself reads the file.
    dvb_file* file = dvb_read_file(mPath.c_str());
    ASSERT_NE(file, nullptr);
    std::vector<std::string> names;
    for (dvb_entry* e = file->first_entry; e != nullptr; e = e->next) names.push_back(e->channel);
    dvb_file_free(file);
    EXPECT_EQ(names, (std::vector<std::string>{"490.000 MHz", "306.000 MHz", "east 11362 V"}));

    for (const FoundChannel& written : {terrestrial, cable, satellite}) {
        SCOPED_TRACE(written.name);
        ChannelOptions read;
        ASSERT_TRUE(readChannel(mPath, "dvbv5", "", written.name, read, error)) << error;
        EXPECT_EQ(read.dvbt, written.options.dvbt);
        EXPECT_EQ(read.dvbc, written.options.dvbc);
        EXPECT_EQ(read.dvbs, written.options.dvbs);
        EXPECT_EQ(read.bandwidth, written.options.bandwidth);
        EXPECT_EQ(read.standard, written.options.standard);
        EXPECT_EQ(read.symbolRate, written.options.symbolRate);
        EXPECT_EQ(read.modulation, written.options.modulation);
        EXPECT_EQ(read.annex, written.options.annex);
        EXPECT_EQ(read.polarisation, written.options.polarisation);
        EXPECT_EQ(read.lnb, written.options.lnb);
        EXPECT_EQ(read.satellite, written.options.satellite);
    }
    ChannelOptions none;
    EXPECT_FALSE(readChannel(mPath, "dvbv5", "", "BBC ONE", none, error));
    EXPECT_EQ(error, "no channel 'BBC ONE' in " + mPath +
                             " (it has 490.000 MHz, 306.000 MHz, east 11362 V)");
}

TEST_F(ChannelFileTest, ALegacyZapFileNamesItsChannels) {
    std::ofstream(mPath) << "Channel One:482000000:INVERSION_AUTO:BANDWIDTH_8_MHZ:FEC_AUTO:"
                            "FEC_AUTO:QAM_AUTO:TRANSMISSION_MODE_AUTO:GUARD_INTERVAL_AUTO:"
                            "HIERARCHY_AUTO:101:102:4164\n";
    ChannelOptions read;
    std::string error;
    ASSERT_TRUE(readChannel(mPath, "zap", "DVBT", "Channel One", read, error)) << error;
    EXPECT_EQ(read.dvbt, "482000000Hz");
    EXPECT_EQ(read.bandwidth, "8MHz");
    EXPECT_FALSE(readChannel(mPath, "zap", "ISDBT", "Channel One", read, error));
}

}  // namespace
