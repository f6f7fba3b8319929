#include "ServicePat.h"

#include <bitstream/mpeg/psi.h>

#include <algorithm>

namespace tunerctl {

ServicePat::ServicePat(uint16_t transportStreamId, uint16_t serviceId, uint16_t pmtPid) {
    mPacket.fill(0xFF);
    // Header: sync, PUSI on PID 0, payload only; then the pointer field and the section.
    mPacket[0] = 0x47;
    mPacket[1] = 0x40;
    mPacket[2] = 0x00;
    mPacket[3] = 0x10;
    mPacket[4] = 0x00;
    uint8_t* pat = &mPacket[5];
    pat_init(pat);
    pat_set_length(pat, PAT_PROGRAM_SIZE);
    psi_set_tableidext(pat, transportStreamId);
    psi_set_version(pat, 0);
    psi_set_current(pat);
    psi_set_section(pat, 0);
    psi_set_lastsection(pat, 0);
    uint8_t* program = pat_get_program(pat, 0);
    patn_init(program);
    patn_set_program(program, serviceId);
    patn_set_pid(program, pmtPid);
    psi_set_crc(pat);
}

const std::array<uint8_t, 188>& ServicePat::packet() {
    mPacket[3] = static_cast<uint8_t>(0x10 | mCounter);
    mCounter = (mCounter + 1) & 0x0F;
    return mPacket;
}

}  // namespace tunerctl
