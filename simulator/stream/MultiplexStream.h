// A multiplex made into a transport stream as its clock runs: PSI/SI at the repetition rates
// networks use, a PCR per service every 30 ms, each component's PES packets at its rate, null
// packets in the rest; the faults of its content (wrong CRCs, missing tables, content beyond
// the multiplex's capacity) applied here. Nothing is kept but the tables and a packet per
// component under way.
#pragma once

#include <array>
#include <ctime>
#include <memory>
#include <tuple>
#include <vector>

#include "simulator/stream/ElementaryStream.h"
#include "simulator/stream/MultiplexContent.h"
#include "simulator/stream/SiTables.h"
#include "simulator/stream/TransportStreamSource.h"

namespace mox::air {

struct MultiplexSetup {
    MultiplexContent content;
    Network network;                       // its NIT actual: every multiplex of the network
    std::vector<MultiplexContent> others;  // the SDT other: the network's other multiplexes
    StreamFaults faults;
};

// Repetition of each table, as ETSI TR 101 211 recommends and networks send them.
inline constexpr uint64_t kPatPeriodMs = 100;
inline constexpr uint64_t kPmtPeriodMs = 100;
inline constexpr uint64_t kCatPeriodMs = 1000;
inline constexpr uint64_t kNitPeriodMs = 2000;
inline constexpr uint64_t kSdtPeriodMs = 1000;
inline constexpr uint64_t kSdtOtherPeriodMs = 5000;
inline constexpr uint64_t kEitPfPeriodMs = 1000;  // at least; longer for many services
inline constexpr uint64_t kTdtPeriodMs = 5000;
inline constexpr uint64_t kTotPeriodMs = 10000;
inline constexpr uint64_t kPcrPeriodMs = 30;
// Sections of one table id never follow each other closer than this.
inline constexpr uint64_t kSectionSpacingMs = 30;

class MultiplexStream : public TransportStreamSource {
  public:
    // utcAtStart: the network's time at the stream's first packet.
    MultiplexStream(MultiplexSetup setup, uint64_t bitRate, time_t utcAtStart);
    ~MultiplexStream() override;

    // New content or faults: tables whose content changes go out with their next version.
    void update(MultiplexSetup setup);

    size_t produce(uint64_t untilUs, uint8_t* out, size_t maxPackets) override;
    void skipTo(uint64_t us) override;
    uint64_t bitRate() const override { return mBitRate; }

    // Packets the multiplexer dropped because the content asked more than the multiplex holds.
    uint64_t overflowDrops() const { return mOverflowDrops; }

  private:
    struct TableEntry;
    struct Pcr {
        uint16_t pid;
        int stream;  // the component carrying it, -1 for a PID of its own
        uint64_t nextDue;
    };

    void build();
    void fill(uint8_t* packet);
    void queueDueTables();
    void queueSection(const Section& section, uint16_t pid, bool damage);
    void writePcr(uint8_t* packet, Pcr& pcr);
    std::vector<Section> sectionsOf(const TableEntry& table, uint8_t version) const;
    std::tuple<mox::air::Table, uint16_t, uint16_t> tableKey(const TableEntry& table,
                                                             bool current) const;
    uint64_t pcrAt(uint64_t slot) const;
    uint64_t slotsFor(uint64_t ms) const;
    time_t utcAt(uint64_t slot) const;

    MultiplexSetup mSetup;
    MultiplexSetup mPreviousSetup;  // during an update: what the old tables describe
    const uint64_t mBitRate;
    const time_t mUtcAtStart;
    const uint64_t mPcrStart;  // 27 MHz at slot 0
    uint64_t mSlot = 0;
    std::vector<std::unique_ptr<TableEntry>> mTables;
    uint64_t mNextTableDue = 0;
    std::vector<std::array<uint8_t, kPacketSize>> mPsiQueue;
    size_t mPsiHead = 0;
    std::array<uint8_t, 8192> mPsiCc{};
    std::vector<ElementaryStream> mStreams;
    std::vector<Pcr> mPcrs;
    uint64_t mNextPcrDue = 0;
    uint64_t mMaxLagSlots = 0;  // beyond this a component's packets are dropped
    uint64_t mOverflowDrops = 0;
    uint64_t mNextCrcError = UINT64_MAX;  // slot of the next section sent with a wrong CRC
};

}  // namespace mox::air
