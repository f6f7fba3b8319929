#include "DemuxTestSupport.h"

#include <bitstream/mpeg/pes.h>
#include <bitstream/mpeg/psi.h>
#include <bitstream/mpeg/ts.h>

#include <algorithm>
#include <stdexcept>

namespace demuxtest {

Bytes tsPacket(uint16_t pid, uint8_t cc, const Bytes& payload, const PacketOptions& o,
               bool stuffWithAdaptation) {
    Bytes p(TS_SIZE, 0xFF);
    ts_init(p.data());
    ts_set_pid(p.data(), pid);
    ts_set_cc(p.data(), cc);
    if (o.unitStart) ts_set_unitstart(p.data());
    if (o.transportError) ts_set_transporterror(p.data());
    size_t adaptation = 0;  // adaptation_field_length + 1, 0 without one
    const bool flags =
            o.adaptation || o.pcr27MHz || o.discontinuity || o.randomAccess || o.esPriority;
    if (flags) adaptation = o.pcr27MHz ? 8 : 2;
    if (payload.size() > TS_SIZE - 4 - adaptation) throw std::length_error("payload");
    if (stuffWithAdaptation && payload.size() + adaptation < TS_SIZE - 4) {
        adaptation = TS_SIZE - 4 - payload.size();
    }
    if (adaptation > 0) {
        ts_set_adaptation(p.data(), static_cast<uint8_t>(adaptation - 1));
        if (o.discontinuity) tsaf_set_discontinuity(p.data());
        if (o.randomAccess) tsaf_set_randomaccess(p.data());
        if (o.esPriority) tsaf_set_streampriority(p.data());
        if (o.pcr27MHz) {
            tsaf_set_pcr(p.data(), *o.pcr27MHz / 300);
            tsaf_set_pcrext(p.data(), static_cast<uint16_t>(*o.pcr27MHz % 300));
        }
    }
    if (!payload.empty() || adaptation == 0) ts_set_payload(p.data());
    std::copy(payload.begin(), payload.end(), p.begin() + 4 + adaptation);
    // biTStream sets the scrambling bits after the rest of the header.
    if (o.scrambling != 0) ts_set_scrambling(p.data(), o.scrambling);
    return p;
}

Bytes longSection(uint8_t tableId, uint16_t extension, uint8_t version, uint8_t number,
                  const Bytes& body) {
    Bytes s(PSI_HEADER_SIZE_SYNTAX1 + body.size() + PSI_CRC_SIZE);
    psi_init(s.data(), true);
    psi_set_tableid(s.data(), tableId);
    psi_set_length(s.data(), static_cast<uint16_t>(s.size() - PSI_HEADER_SIZE));
    psi_set_tableidext(s.data(), extension);
    psi_set_version(s.data(), version);
    psi_set_current(s.data());
    psi_set_section(s.data(), number);
    psi_set_lastsection(s.data(), number);
    std::copy(body.begin(), body.end(), s.begin() + PSI_HEADER_SIZE_SYNTAX1);
    psi_set_crc(s.data());
    return s;
}

std::vector<Bytes> packSections(uint16_t pid, const std::vector<Bytes>& sections, uint8_t& cc) {
    Bytes stream;
    std::vector<size_t> starts;
    for (const Bytes& s : sections) {
        starts.push_back(stream.size());
        stream.insert(stream.end(), s.begin(), s.end());
    }
    std::vector<Bytes> packets;
    size_t at = 0;
    while (at < stream.size()) {
        const auto next = std::lower_bound(starts.begin(), starts.end(), at);
        PacketOptions options;
        Bytes payload;
        size_t take = 184;
        if (next != starts.end() && *next < at + 183) {
            // A section starts here: a pointer_field to it.
            options.unitStart = true;
            payload.push_back(static_cast<uint8_t>(*next - at));
            take = 183;
        } else if (next != starts.end() && *next == at + 183) {
            take = 183;  // the next section starts in a packet of its own
        }
        take = std::min(take, stream.size() - at);
        payload.insert(payload.end(), stream.begin() + at, stream.begin() + at + take);
        at += take;
        packets.push_back(tsPacket(pid, cc, payload, options));
        cc = (cc + 1) & 0xF;
    }
    return packets;
}

Bytes pesPacket(uint8_t streamId, std::optional<uint64_t> pts, const Bytes& data, bool unbounded) {
    const size_t header = pts ? PES_HEADER_SIZE_PTS : PES_HEADER_SIZE_NOPTS;
    Bytes p(header + data.size());
    pes_init(p.data());
    pes_set_streamid(p.data(), streamId);
    pes_set_length(p.data(), unbounded ? 0 : static_cast<uint16_t>(p.size() - PES_HEADER_SIZE));
    pes_set_headerlength(p.data(), 0);
    if (pts) pes_set_pts(p.data(), *pts);
    std::copy(data.begin(), data.end(), p.begin() + header);
    return p;
}

std::vector<Bytes> packPes(uint16_t pid, const Bytes& pes, uint8_t& cc, uint8_t scrambling) {
    std::vector<Bytes> packets;
    for (size_t at = 0; at < pes.size(); at += 184) {
        PacketOptions options;
        options.unitStart = at == 0;
        options.scrambling = scrambling;
        const size_t take = std::min<size_t>(184, pes.size() - at);
        Bytes payload(pes.begin() + at, pes.begin() + at + take);
        packets.push_back(tsPacket(pid, cc, payload, options, true));
        cc = (cc + 1) & 0xF;
    }
    return packets;
}

Bytes join(const std::vector<Bytes>& packets) {
    Bytes all;
    for (const Bytes& p : packets) all.insert(all.end(), p.begin(), p.end());
    return all;
}

Bytes counting(size_t size, uint8_t from) {
    Bytes b(size);
    for (size_t i = 0; i < size; ++i) b[i] = static_cast<uint8_t>(from + i);
    return b;
}

bool RecordingSink::write(const uint8_t* data, size_t size) {
    if (fill() + size > mCapacity) {
        ++refusals;
        return false;
    }
    units.emplace_back(data, data + size);
    mWritten += size;
    return true;
}

std::vector<Bytes> RecordingSink::packets() const {
    std::vector<Bytes> out;
    for (const Bytes& unit : units) {
        for (size_t at = 0; at + 188 <= unit.size(); at += 188)
            out.emplace_back(unit.begin() + at, unit.begin() + at + 188);
    }
    return out;
}

bool XorDescrambler::descramble(uint16_t pid, uint8_t* packet) {
    if (!enabled || (onlyPid != 0xFFFF && pid != onlyPid)) return false;
    uint8_t* payload = ts_payload(packet);
    for (uint8_t* b = payload; b < packet + TS_SIZE; ++b) *b ^= kKey;
    ts_set_scrambling(packet, 0);
    return true;
}

Bytes XorDescrambler::scramble(Bytes packet, uint8_t scrambling) {
    uint8_t* payload = ts_payload(packet.data());
    for (uint8_t* b = payload; b < packet.data() + TS_SIZE; ++b) *b ^= kKey;
    ts_set_scrambling(packet.data(), scrambling);
    return packet;
}

using namespace ::android::hardware::tv::tuner::V1_0;

std::vector<DemuxFilterSectionEvent> sectionEvents(const RecordingSink& sink) {
    std::vector<DemuxFilterSectionEvent> out;
    for (const auto& e : sink.events) {
        if (e.getDiscriminator() == DemuxFilterEvent::Event::hidl_discriminator::section) {
            out.push_back(e.section());
        }
    }
    return out;
}

std::vector<DemuxFilterMediaEvent> mediaEvents(const RecordingSink& sink) {
    std::vector<DemuxFilterMediaEvent> out;
    for (const auto& e : sink.events) {
        if (e.getDiscriminator() == DemuxFilterEvent::Event::hidl_discriminator::media) {
            out.push_back(e.media());
        }
    }
    return out;
}

std::vector<DemuxFilterTsRecordEvent> recordEvents(const RecordingSink& sink) {
    std::vector<DemuxFilterTsRecordEvent> out;
    for (const auto& e : sink.events) {
        if (e.getDiscriminator() == DemuxFilterEvent::Event::hidl_discriminator::tsRecord) {
            out.push_back(e.tsRecord());
        }
    }
    return out;
}

}  // namespace demuxtest
