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

FoundChannel named(const std::string& name) {
    FoundChannel c{};
    c.name = name;
    return c;
}

TEST_F(ChannelFileTest, WhatIsWrittenIsReadBack) {
    FoundChannel terrestrial = named("490.000 MHz");
    terrestrial.options.dvbt = "490000000Hz";
    terrestrial.options.bandwidth = "7MHz";
    terrestrial.options.standard = "T2";
    terrestrial.options.plp = "3";
    FoundChannel cable = named("306.000 MHz");
    cable.options.dvbc = "306000000Hz";
    cable.options.symbolRate = "6900000";
    cable.options.modulation = "64QAM";
    cable.options.annex = "C";
    FoundChannel satellite = named("east 11362 V");
    satellite.options.dvbs = "11362000kHz";
    satellite.options.symbolRate = "22000000";
    satellite.options.standard = "S";
    satellite.options.polarisation = "V";
    satellite.options.lnb = "UNIVERSAL";
    satellite.options.satellite = "1";
    FoundChannel satellite2 = named("east 11362 V 2");
    satellite2.options = satellite.options;
    satellite2.options.standard = "S2";
    satellite2.options.plp = "7";
    std::string error;
    ASSERT_TRUE(writeChannels(mPath, {terrestrial, cable, satellite, satellite2}, error)) << error;

    // libdvbv5 itself reads the file.
    dvb_file* file = dvb_read_file(mPath.c_str());
    ASSERT_NE(file, nullptr);
    std::vector<std::string> names;
    for (dvb_entry* e = file->first_entry; e != nullptr; e = e->next) names.push_back(e->channel);
    dvb_file_free(file);
    EXPECT_EQ(names, (std::vector<std::string>{"490.000 MHz", "306.000 MHz", "east 11362 V",
                                               "east 11362 V 2"}));

    for (const FoundChannel& written : {terrestrial, cable, satellite, satellite2}) {
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
        EXPECT_EQ(read.plp, written.options.plp);  // STREAM_ID; none for DVB-C and DVB-S
    }
    ChannelOptions none;
    EXPECT_FALSE(readChannel(mPath, "dvbv5", "", "BBC ONE", none, error));
    EXPECT_EQ(error, mPath + ": no channel 'BBC ONE' (it has 490.000 MHz, 306.000 MHz, east "
                             "11362 V, east 11362 V 2)");
}

// A service's entry keeps its service id and PIDs, which dvbv5-zap and tunerctl record read.
TEST_F(ChannelFileTest, AServiceEntryKeepsItsIdAndPids) {
    FoundChannel tv = named("Vale Sport");
    tv.options.dvbt = "482000000Hz";
    tv.serviceId = 0x21;
    tv.videoPids = {0x101};
    tv.audioPids = {0x102, 0x103};
    FoundChannel radio = named("Vale Jazz");
    radio.options.dvbt = "482000000Hz";
    radio.serviceId = 0x25;
    radio.audioPids = {0x141};
    std::string error;
    ASSERT_TRUE(writeChannels(mPath, {tv, radio}, error)) << error;
    for (const FoundChannel& written : {tv, radio}) {
        SCOPED_TRACE(written.name);
        ChannelOptions options;
        FoundChannel read{};
        ASSERT_TRUE(readChannel(mPath, "dvbv5", "", written.name, options, error, &read)) << error;
        EXPECT_EQ(options.dvbt, "482000000Hz");
        EXPECT_EQ(read.serviceId, written.serviceId);
        EXPECT_EQ(read.videoPids, written.videoPids);
        EXPECT_EQ(read.audioPids, written.audioPids);
    }
}

// Every fault of a file is one line that names the file and, where there is one, the line.
TEST_F(ChannelFileTest, AFileThatCannotServeIsRefusedWithItsLine) {
    const struct {
        const char* what;
        const char* text;
        const char* error;  // after "FILE"
    } cases[] = {
            {"two channels of one name",
             "[A]\n\tDELIVERY_SYSTEM = DVBT\n\tFREQUENCY = 482000000\n"
             "[B]\n\tDELIVERY_SYSTEM = DVBT\n\tFREQUENCY = 490000000\n"
             "# the same again\n[A]\n\tDELIVERY_SYSTEM = DVBT\n\tFREQUENCY = 506000000\n",
             ":8: a second channel named 'A' (the first is at line 1): give each channel a name of "
             "its own"},
            {"a value libdvbv5 does not know",
             "[A]\n\tDELIVERY_SYSTEM = DVBT\n\tFREQUENCY = 482000000\n"
             "[B]\n\tDELIVERY_SYSTEM = FOO\n",
             ":5: value FOO is invalid for DELIVERY_SYSTEM"},
            {"a key outside any channel", "FREQUENCY = 482000000\n",
             ":1: key/value without a channel group"},
            {"a delivery system tunerctl does not tune",
             "[A]\n\tDELIVERY_SYSTEM = ATSC\n\tFREQUENCY = 482000000\n",
             ":1: the channel's delivery system 11 is not one tunerctl tunes (DVB-T/T2, DVB-C, "
             "DVB-S/S2)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::ofstream(mPath) << c.text;
        ChannelOptions read;
        std::string error;
        EXPECT_FALSE(readChannel(mPath, "dvbv5", "", "A", read, error));
        EXPECT_EQ(error, mPath + c.error);
    }
    ChannelOptions read;
    std::string error;
    EXPECT_FALSE(readChannel(mPath + ".missing", "dvbv5", "", "A", read, error));
    EXPECT_EQ(error, mPath + ".missing: No such file or directory");
}

// A file is replaced whole: what was there stays until the new one is complete, and nothing
// half-written is left beside it.
TEST_F(ChannelFileTest, WritingReplacesTheFileWholeAndLeavesNothingBeside) {
    FoundChannel one = named("482.000 MHz");
    one.options.dvbt = "482000000Hz";
    std::string error;
    ASSERT_TRUE(writeChannels(mPath, {one}, error)) << error;
    const std::string directory = mPath.substr(0, mPath.rfind('/'));
    const std::string partial = mPath + ".tunerctl-" + std::to_string(getpid());
    EXPECT_NE(access(partial.c_str(), F_OK), 0);
    EXPECT_FALSE(writeChannels(directory + "/no-such-dir/x.conf", {one}, error));
    EXPECT_NE(error.find("cannot write the channel file"), std::string::npos) << error;
    ChannelOptions read;
    ASSERT_TRUE(readChannel(mPath, "dvbv5", "", "482.000 MHz", read, error)) << error;
    EXPECT_EQ(read.dvbt, "482000000Hz");
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
