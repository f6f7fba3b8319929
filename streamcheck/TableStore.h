// The latest version of each decoded table, merged across its sections, with its version changes.
// A section decoded before (same table, extension, section number and CRC) is not decoded again.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "streamcheck/SectionAssembler.h"
#include "streamcheck/StreamReport.h"
#include "streamcheck/TableDecoder.h"

namespace mox::streamcheck {

class TableStore {
  public:
    // Each takes a section whose CRC is correct and whose table_id is the one named. True when
    // the table's contents changed.
    bool pat(const Section& section);
    bool pmt(uint16_t pid, const Section& section);
    bool nitActual(const Section& section);
    bool sdt(const Section& section);  // actual or other
    bool eitPresentFollowingActual(const Section& section);
    void time(const Section& section);  // TDT or TOT
    void cat() { mTables.catSeen = true; }

    const Tables& tables() const { return mTables; }
    const std::vector<std::string>& problems() const { return mProblems; }
    uint64_t problemCount() const { return mProblemCount; }

  private:
    // False when this very section was decoded already; else remembers it.
    bool isNew(const Section& section);
    void addProblems(const char* table, uint16_t pid, const std::vector<std::string>& problems);

    // A bound on the sections remembered: beyond it the memory starts again.
    static constexpr size_t kMaxRemembered = 65536;

    TableDecoder mDecoder;
    Tables mTables;
    std::map<std::tuple<uint8_t, uint16_t, uint8_t>, uint32_t> mDecoded;  // to the CRC
    std::vector<std::string> mProblems;
    uint64_t mProblemCount = 0;
};

}  // namespace mox::streamcheck
