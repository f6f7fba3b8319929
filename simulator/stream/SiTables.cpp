#include "simulator/stream/SiTables.h"

#include <bitstream/dvb/si.h>
#include <bitstream/mpeg/psi.h>

#include <algorithm>
#include <cstring>

namespace mox::air {
namespace {

constexpr size_t kBuffer = 4096;

// A number as binary-coded decimal, digits wide.
uint32_t bcd(uint64_t value, int digits) {
    uint32_t out = 0;
    for (int d = 0; d < digits; ++d) {
        out |= static_cast<uint32_t>(value % 10) << (4 * d);
        value /= 10;
    }
    return out;
}

// EN 300 468's inner FEC codes of the satellite and cable delivery descriptors.
uint8_t fecInner(const CodeRate& rate) {
    struct Entry {
        uint32_t num, den;
        uint8_t code;
    };
    constexpr Entry kCodes[] = {{1, 2, 1}, {2, 3, 2}, {3, 4, 3}, {5, 6, 4}, {7, 8, 5},
                                {8, 9, 6}, {3, 5, 7}, {4, 5, 8}, {9, 10, 9}};
    for (const Entry& e : kCodes) {
        if (e.num == rate.num && e.den == rate.den) return e.code;
    }
    return 0xF;  // no inner code
}

// The terrestrial descriptor's code rate, constellation, guard and bandwidth codes.
uint8_t terrestrialCodeRate(const CodeRate& rate) {
    const uint8_t fec = fecInner(rate);
    return fec >= 1 && fec <= 5 ? fec - 1 : 0;
}
uint8_t guardCode(const CodeRate& guard, bool t2) {
    struct Entry {
        uint32_t num, den;
        uint8_t code;
    };
    constexpr Entry kCodes[] = {{1, 32, 0},  {1, 16, 1},   {1, 8, 2},   {1, 4, 3},
                                {1, 128, 4}, {19, 128, 5}, {19, 256, 6}};
    for (const Entry& e : kCodes) {
        if (e.num == guard.num && e.den == guard.den && (t2 || e.code <= 3)) return e.code;
    }
    return 3;
}
uint8_t bandwidthCode(uint32_t kHz, bool t2) {
    switch (kHz) {
        case 8000:
            return 0;
        case 7000:
            return 1;
        case 6000:
            return 2;
        case 5000:
            return 3;
        case 10000:
            return t2 ? 4 : 0;
        case 1712:
            return t2 ? 5 : 0;
        default:
            return 0;
    }
}

uint8_t* descriptor(uint8_t* at, uint8_t tag, const std::vector<uint8_t>& body) {
    at[0] = tag;
    at[1] = static_cast<uint8_t>(body.size());
    std::copy(body.begin(), body.end(), at + 2);
    return at + 2 + body.size();
}

// The delivery descriptor of a multiplex, as the NIT carries it; returns its end.
uint8_t* deliveryDescriptor(uint8_t* d, const Delivery& delivery, uint16_t tsid) {
    switch (delivery.system) {
        case DeliverySystem::kDvbT: {
            desc5a_init(d);
            desc5a_set_frequency(d, delivery.frequencyKHz * 100);  // units of 10 Hz
            desc5a_set_bandwidth(d, bandwidthCode(delivery.bandwidthKHz, false));
            desc5a_set_priority(d, true);
            desc5a_set_timeslicing(d, true);  // "not used", as the flags are inverted
            desc5a_set_mpefec(d, true);
            const uint8_t constellation = delivery.bitsPerSymbol == 2   ? 0
                                          : delivery.bitsPerSymbol == 4 ? 1
                                                                        : 2;
            desc5a_set_constellation(d, constellation);
            desc5a_set_hierarchy(d, delivery.hierarchy);
            desc5a_set_coderatehp(d, terrestrialCodeRate(delivery.codeRate));
            desc5a_set_coderatelp(d, 0);
            desc5a_set_guard(d, guardCode(delivery.guard, false));
            desc5a_set_transmission(d, 1);  // 8k
            desc5a_set_otherfrequency(d, 0);
            return d + DESC5A_HEADER_SIZE;
        }
        case DeliverySystem::kDvbT2: {
            // Extension descriptor, T2 delivery: PLP, T2 system id, SISO, bandwidth, guard,
            // 32k, one cell at the centre frequency.
            const uint32_t tenHz = delivery.frequencyKHz * 100;
            const std::vector<uint8_t> body = {
                    0x04,
                    delivery.plpId,
                    static_cast<uint8_t>(tsid >> 8),
                    static_cast<uint8_t>(tsid),
                    static_cast<uint8_t>((bandwidthCode(delivery.bandwidthKHz, true) << 2) | 0x03),
                    static_cast<uint8_t>((guardCode(delivery.guard, true) << 5) | (5 << 2)),
                    0x00,
                    0x00,
                    static_cast<uint8_t>(tenHz >> 24),
                    static_cast<uint8_t>(tenHz >> 16),
                    static_cast<uint8_t>(tenHz >> 8),
                    static_cast<uint8_t>(tenHz),
                    0x00};
            return descriptor(d, 0x7F, body);
        }
        case DeliverySystem::kDvbC: {
            desc44_init(d);
            desc44_set_frequency_bcd(d, bcd(uint64_t{delivery.frequencyKHz} * 10, 8));
            desc44_set_fecouter(d, 2);  // RS(204/188)
            const uint8_t modulation = delivery.bitsPerSymbol >= 4 && delivery.bitsPerSymbol <= 8
                                               ? static_cast<uint8_t>(delivery.bitsPerSymbol - 3)
                                               : 0;
            desc44_set_modulation(d, modulation);
            desc44_set_symbolrate_bcd(d, bcd(delivery.symbolRate / 100, 7));
            desc44_set_fecinner(d, 0xF);
            return d + DESC44_HEADER_SIZE;
        }
        case DeliverySystem::kDvbS:
        case DeliverySystem::kDvbS2: {
            const bool s2 = delivery.system == DeliverySystem::kDvbS2;
            desc43_init(d);
            desc43_set_frequency_bcd(d, bcd(uint64_t{delivery.frequencyKHz} / 10, 8));
            desc43_set_position_bcd(d, static_cast<uint16_t>(bcd(delivery.orbitalTenths, 4)));
            desc43_set_east(d, true);
            desc43_set_polarization(d, delivery.horizontal ? 0 : 1);
            desc43_set_rolloff(d, 0);
            desc43_set_dvbs2(d, s2);
            desc43_set_modulation(d, delivery.bitsPerSymbol == 3 ? 2 : 1);
            desc43_set_symbolrate_bcd(d, bcd(delivery.symbolRate / 100, 7));
            desc43_set_fecinner(d, fecInner(delivery.codeRate));
            return d + DESC43_HEADER_SIZE;
        }
    }
    return d;
}

// Finishes a section of syntax 1: its number, the last number, version, CRC.
Section finish(uint8_t* s, uint8_t number, uint8_t last, uint8_t version) {
    psi_set_version(s, version & 0x1F);
    psi_set_current(s);
    psi_set_section(s, number);
    psi_set_lastsection(s, last);
    psi_set_crc(s);
    return Section(s, s + psi_get_length(s) + PSI_HEADER_SIZE);
}

// Numbers the sections of one table and finishes each.
std::vector<Section> number(std::vector<std::vector<uint8_t>> drafts, uint8_t version) {
    std::vector<Section> out;
    const uint8_t last = static_cast<uint8_t>(drafts.size() - 1);
    for (size_t i = 0; i < drafts.size(); ++i) {
        drafts[i].resize(kBuffer);
        out.push_back(finish(drafts[i].data(), static_cast<uint8_t>(i), last, version));
    }
    return out;
}

std::vector<uint8_t> serviceDescriptor(const Service& service) {
    uint8_t d[2 + 1 + 1 + kMaxNameLength * 2 + 1 + 1 + kMaxNameLength * 2 + 1] = {};
    desc48_init(d);
    desc48_set_type(d, service.type);
    const std::vector<uint8_t> provider = dvbText(service.provider, kMaxNameLength);
    const std::vector<uint8_t> name = dvbText(service.name, kMaxNameLength);
    desc48_set_provider(d, provider.data(), static_cast<uint8_t>(provider.size()));
    desc48_set_service(d, name.data(), static_cast<uint8_t>(name.size()));
    desc48_set_length(d);
    return std::vector<uint8_t>(d, d + 2 + desc_get_length(d));
}

}  // namespace

std::vector<uint8_t> dvbText(const std::string& text, size_t limit) {
    const bool ascii = std::all_of(text.begin(), text.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    const size_t size = std::min(text.size(), limit);
    std::vector<uint8_t> out(size + (ascii ? 0 : 1));
    if (!ascii) out[0] = 0x15;
    for (size_t i = 0; i < size; ++i) out[out.size() - size + i] = static_cast<uint8_t>(text[i]);
    return out;
}

Section patSection(const MultiplexContent& mux, uint8_t version) {
    uint8_t s[kBuffer] = {};
    pat_init(s);
    pat_set_tsid(s, mux.transportStreamId);
    // Program 0 points at the NIT, as DVB networks send it.
    pat_set_length(s, static_cast<uint16_t>((mux.services.size() + 1) * PAT_PROGRAM_SIZE));
    uint8_t* n = pat_get_program(s, 0);
    patn_init(n);
    patn_set_program(n, 0);
    patn_set_pid(n, NIT_PID);
    for (size_t i = 0; i < mux.services.size(); ++i) {
        n = pat_get_program(s, static_cast<uint8_t>(i + 1));
        patn_init(n);
        patn_set_program(n, mux.services[i].id);
        patn_set_pid(n, mux.services[i].pmtPid);
    }
    return finish(s, 0, 0, version);
}

Section catSection(uint8_t version) {
    uint8_t s[kBuffer] = {};
    cat_init(s);
    uint8_t* d = cat_get_descl(s);
    desc09_init(d);
    desc09_set_sysid(d, kCaSystemId);
    desc09_set_pid(d, kEmmPid);
    cat_set_desclength(s, DESC09_HEADER_SIZE);
    return finish(s, 0, 0, version);
}

Section pmtSection(const Service& service, uint8_t version) {
    uint8_t s[kBuffer] = {};
    pmt_init(s);
    pmt_set_program(s, service.id);
    pmt_set_pcrpid(s, service.pcrPid);
    uint8_t* at = s + PMT_HEADER_SIZE;
    uint16_t programInfo = 0;
    if (service.scrambled) {
        desc09_init(at);
        desc09_set_sysid(at, kCaSystemId);
        desc09_set_pid(at, static_cast<uint16_t>(service.pmtPid + 15));  // its ECMs
        at += DESC09_HEADER_SIZE;
        programInfo = DESC09_HEADER_SIZE;
    }
    pmt_set_desclength(s, programInfo);
    for (const Component& c : service.components) {
        pmtn_init(at);
        pmtn_set_streamtype(at, c.streamType);
        pmtn_set_pid(at, c.pid);
        uint8_t* d = at + PMT_ES_SIZE;
        if (!c.language.empty()) {
            desc0a_init(d);
            desc_set_length(d, DESC0A_LANGUAGE_SIZE);
            uint8_t* l = desc0a_get_language(d, 0);
            desc0an_set_code(l, reinterpret_cast<const uint8_t*>(c.language.c_str()));
            desc0an_set_audiotype(l, DESC0A_TYPE_UNDEFINED);
            d += DESC0A_HEADER_SIZE + DESC0A_LANGUAGE_SIZE;
        }
        if (c.ac3) d = descriptor(d, 0x6A, {0x00});  // AC-3, no optional fields
        pmtn_set_desclength(at, static_cast<uint16_t>(d - (at + PMT_ES_SIZE)));
        at = d;
    }
    pmt_set_length(s, static_cast<uint16_t>(at - (s + PMT_HEADER_SIZE)));
    return finish(s, 0, 0, version);
}

std::vector<Section> nitSections(const Network& network, uint8_t version) {
    std::vector<std::vector<uint8_t>> drafts;
    const std::vector<uint8_t> name = dvbText(network.name, kMaxNameLength);
    size_t next = 0;
    do {
        std::vector<uint8_t> draft(kBuffer);
        uint8_t* s = draft.data();
        nit_init(s, true);
        nit_set_nid(s, network.id);
        uint8_t* d = nit_get_descs(s) + DESCS_HEADER_SIZE;
        desc40_init(d);
        desc40_set_networkname(d, name.data(), static_cast<uint8_t>(name.size()));
        nit_set_desclength(s, static_cast<uint16_t>(DESC40_HEADER_SIZE + name.size()));
        uint8_t* header2 = nit_get_header2(s);
        nith_init(header2);
        uint8_t* at = header2 + NIT_HEADER2_SIZE;
        for (; next < network.multiplexes.size(); ++next) {
            const NetworkMultiplex& m = network.multiplexes[next];
            uint8_t entry[NIT_TS_SIZE + 2 + 16 + 2 + 3 * kMaxServicesPerMultiplex] = {};
            nitn_init(entry);
            nitn_set_tsid(entry, m.content.transportStreamId);
            nitn_set_onid(entry, m.content.originalNetworkId);
            uint8_t* e = deliveryDescriptor(nitn_get_descs(entry) + DESCS_HEADER_SIZE, m.delivery,
                                            m.content.transportStreamId);
            desc41_init(e);
            desc_set_length(e,
                            static_cast<uint8_t>(m.content.services.size() * DESC41_SERVICE_SIZE));
            for (size_t i = 0; i < m.content.services.size(); ++i) {
                uint8_t* n = desc41_get_service(e, static_cast<uint8_t>(i));
                desc41n_set_sid(n, m.content.services[i].id);
                desc41n_set_type(n, m.content.services[i].type);
            }
            e += DESC41_HEADER_SIZE + desc_get_length(e);
            const size_t size = static_cast<size_t>(e - entry);
            nitn_set_desclength(entry, static_cast<uint16_t>(size - NIT_TS_SIZE));
            const bool first = at == header2 + NIT_HEADER2_SIZE;
            if (!first && (at - s) + size + PSI_CRC_SIZE > kMaxSectionSize) break;
            std::memcpy(at, entry, size);
            at += size;
        }
        nith_set_tslength(header2, static_cast<uint16_t>(at - (header2 + NIT_HEADER2_SIZE)));
        nit_set_length(s, static_cast<uint16_t>(at - (s + NIT_HEADER_SIZE)));
        drafts.push_back(std::move(draft));
    } while (next < network.multiplexes.size());
    return number(std::move(drafts), version);
}

std::vector<Section> sdtSections(const MultiplexContent& mux, bool actual, uint8_t version) {
    std::vector<std::vector<uint8_t>> drafts;
    size_t next = 0;
    do {
        std::vector<uint8_t> draft(kBuffer);
        uint8_t* s = draft.data();
        sdt_init(s, actual);
        sdt_set_tsid(s, mux.transportStreamId);
        sdt_set_onid(s, mux.originalNetworkId);
        uint8_t* at = s + SDT_HEADER_SIZE;
        for (; next < mux.services.size(); ++next) {
            const Service& service = mux.services[next];
            const std::vector<uint8_t> desc = serviceDescriptor(service);
            const size_t size = SDT_SERVICE_SIZE + desc.size();
            if (at != s + SDT_HEADER_SIZE && (at - s) + size + PSI_CRC_SIZE > kMaxSectionSize) {
                break;
            }
            sdtn_init(at);
            sdtn_set_sid(at, service.id);
            sdtn_set_eitpresent(at);
            sdtn_set_running(at, 4);
            if (service.scrambled) sdtn_set_ca(at);
            sdtn_set_desclength(at, static_cast<uint16_t>(desc.size()));
            std::memcpy(at + SDT_SERVICE_SIZE, desc.data(), desc.size());
            at += size;
        }
        sdt_set_length(s, static_cast<uint16_t>(at - (s + SDT_HEADER_SIZE)));
        drafts.push_back(std::move(draft));
    } while (next < mux.services.size());
    return number(std::move(drafts), version);
}

std::vector<Section> eitPfSections(const MultiplexContent& mux, const Service& service, time_t utc,
                                   uint8_t version) {
    // The schedule repeats daily: the event running now, and the one after it.
    std::vector<const ProgrammeEvent*> order;
    for (const ProgrammeEvent& e : service.events) order.push_back(&e);
    std::sort(order.begin(), order.end(), [](const ProgrammeEvent* a, const ProgrammeEvent* b) {
        return a->startMinute < b->startMinute;
    });
    const time_t midnight = utc - utc % 86400;
    const int64_t minute = (utc - midnight) / 60;
    const ProgrammeEvent* events[2] = {nullptr, nullptr};
    time_t starts[2] = {0, 0};
    // Each event of yesterday, today and tomorrow in time order: the one running at utc is
    // present, the first to start after utc is following.
    for (int day = -1; day <= 1; ++day) {
        for (const ProgrammeEvent* e : order) {
            const int64_t start = int64_t{e->startMinute} + day * 1440;
            if (start <= minute && minute < start + e->minutes) {
                events[0] = e;
                starts[0] = midnight + start * 60;
            } else if (start > minute && events[1] == nullptr) {
                events[1] = e;
                starts[1] = midnight + start * 60;
            }
        }
    }
    std::vector<std::vector<uint8_t>> drafts;
    for (int n = 0; n < 2; ++n) {
        std::vector<uint8_t> draft(kBuffer);
        uint8_t* s = draft.data();
        eit_init(s, true);
        eit_set_sid(s, service.id);
        eit_set_tsid(s, mux.transportStreamId);
        eit_set_onid(s, mux.originalNetworkId);
        eit_set_segment_last_sec_number(s, 1);
        eit_set_last_table_id(s, EIT_TABLE_ID_PF_ACTUAL);
        uint8_t* at = s + EIT_HEADER_SIZE;
        if (const ProgrammeEvent* e = events[n]) {
            eitn_init(at);
            eitn_set_event_id(at, e->id);
            eitn_set_start_time(at, dvb_time_encode_UTC(starts[n]));
            eitn_set_duration_bcd(at, dvb_time_encode_duration(e->minutes * 60));
            eitn_set_running(at, n == 0 ? 4 : 1);
            if (service.scrambled) eitn_set_ca(at);
            uint8_t* d = at + EIT_EVENT_SIZE;
            desc4d_init(d);
            desc4d_set_lang(d, reinterpret_cast<const uint8_t*>("eng"));
            const std::vector<uint8_t> name = dvbText(e->name, kMaxNameLength);
            const std::vector<uint8_t> text = dvbText(e->text, kMaxTextLength);
            desc4d_set_event_name(d, name.data(), static_cast<uint8_t>(name.size()));
            desc4d_set_text(d, text.data(), static_cast<uint8_t>(text.size()));
            desc4d_set_length(d);
            eitn_set_desclength(at, static_cast<uint16_t>(2 + desc_get_length(d)));
            at = d + 2 + desc_get_length(d);
        }
        eit_set_length(s, static_cast<uint16_t>(at - (s + EIT_HEADER_SIZE)));
        drafts.push_back(std::move(draft));
    }
    return number(std::move(drafts), version);
}

Section tdtSection(time_t utc) {
    uint8_t s[TDT_HEADER_SIZE] = {};
    tdt_init(s);
    tdt_set_utc(s, dvb_time_encode_UTC(utc));
    return Section(s, s + TDT_HEADER_SIZE);
}

Section totSection(time_t utc) {
    uint8_t s[kBuffer] = {};
    tot_init(s);
    tot_set_utc(s, dvb_time_encode_UTC(utc));
    tot_set_desclength(s, 0);
    tot_set_length(s, 0);
    psi_set_crc(s);
    return Section(s, s + psi_get_length(s) + PSI_HEADER_SIZE);
}

}  // namespace mox::air
