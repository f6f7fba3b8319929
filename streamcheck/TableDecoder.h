// One section at a time into the report's tables, through libdvbv5's parsers.
//
// libdvbv5 needs a dvb_v5_fe_parms only for its log and character sets: a dummy one serves, with
// its log routed into the caller's problem list instead of stderr. Each section goes through
// sectionIsSafeToDecode first (libdvbv5 trusts inner lengths), without its CRC (the NIT, SDT and
// EIT parsers read to the end of what they are given), and with zeroed room behind it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "streamcheck/StreamReport.h"

struct dvb_v5_fe_parms;

namespace mox::streamcheck {

class TableDecoder {
  public:
    TableDecoder();
    ~TableDecoder();
    TableDecoder(const TableDecoder&) = delete;
    TableDecoder& operator=(const TableDecoder&) = delete;

    // Each takes a whole section with a correct CRC and fills what that one section holds.
    // False when it cannot be decoded; the reasons are appended to `problems`.
    bool pat(const std::vector<uint8_t>& section, ProgramAssociation& out,
             std::vector<std::string>& problems);
    bool pmt(const std::vector<uint8_t>& section, ProgramMap& out,
             std::vector<std::string>& problems);
    bool sdt(const std::vector<uint8_t>& section, ServiceDescription& out,
             std::vector<std::string>& problems);
    bool nit(const std::vector<uint8_t>& section, NetworkInformation& out,
             std::vector<std::string>& problems);
    // The section's first event (EIT p/f: section 0 the present one, section 1 the following);
    // `hasEvent` false when it holds none.
    bool eit(const std::vector<uint8_t>& section, PresentFollowing& out, Event& event,
             bool& hasEvent, std::vector<std::string>& problems);
    // TDT and TOT: the UTC time they carry (own code: libdvbv5 has no parser for them).
    static bool time(const std::vector<uint8_t>& section, int64_t& utc,
                     std::vector<std::string>& problems);

  private:
    // The section without CRC, with zeroed room behind, if its lengths are safe to decode.
    const uint8_t* prepare(const std::vector<uint8_t>& section, size_t& size,
                           std::vector<std::string>& problems);

    dvb_v5_fe_parms* mParms;
    std::vector<uint8_t> mScratch;
};

}  // namespace mox::streamcheck
