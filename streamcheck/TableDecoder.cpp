#include "streamcheck/TableDecoder.h"

#include <libdvbv5/desc_cable_delivery.h>
#include <libdvbv5/desc_event_short.h>
#include <libdvbv5/desc_extension.h>
#include <libdvbv5/desc_language.h>
#include <libdvbv5/desc_network_name.h>
#include <libdvbv5/desc_sat.h>
#include <libdvbv5/desc_service.h>
#include <libdvbv5/desc_t2_delivery.h>
#include <libdvbv5/desc_terrestrial_delivery.h>
#include <libdvbv5/descriptors.h>
#include <libdvbv5/dvb-fe.h>
#include <libdvbv5/eit.h>
#include <libdvbv5/nit.h>
#include <libdvbv5/pat.h>
#include <libdvbv5/pmt.h>
#include <libdvbv5/sdt.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "streamcheck/DescriptorGuard.h"
#include "streamcheck/DvbTime.h"

namespace mox::streamcheck {

namespace {

constexpr size_t kCrcSize = 4;
// Zeroed bytes behind a section handed to libdvbv5, so a fixed-size read past a short
// descriptor stays inside the buffer.
constexpr size_t kSlack = 1024;

// libdvbv5's log takes no context: the decoder that calls into it says where lines go.
thread_local std::vector<std::string>* tLogSink = nullptr;

void logToSink(int /*level*/, const char* format, ...) {
    if (tLogSink == nullptr) return;
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    tLogSink->push_back(std::string("libdvbv5: ") + line);
}

class LogTo {
  public:
    explicit LogTo(std::vector<std::string>& sink) : mPrevious(tLogSink) { tLogSink = &sink; }
    ~LogTo() { tLogSink = mPrevious; }
    LogTo(const LogTo&) = delete;
    LogTo& operator=(const LogTo&) = delete;

  private:
    std::vector<std::string>* mPrevious;
};

// libdvbv5's parsers may leave a half-built table behind on failure: it is freed either way.
template <typename Table, void (*Free)(Table*)>
struct Owned {
    Table* table = nullptr;
    ~Owned() {
        if (table != nullptr) Free(table);
    }
};

std::string text(const char* value) {
    return value != nullptr ? value : "";
}

template <size_t N>
std::string pick(const char* const (&names)[N], unsigned code) {
    return code < N ? names[code] : "reserved";
}

const char* const kCodeRates[] = {"1/2", "2/3", "3/4", "5/6", "7/8"};
const char* const kInnerFec[] = {
        "not defined", "1/2",  "2/3",      "3/4",      "5/6",      "7/8",      "8/9",      "3/5",
        "4/5",         "9/10", "reserved", "reserved", "reserved", "reserved", "reserved", "none"};

TerrestrialDelivery terrestrial(const dvb_desc_terrestrial_delivery& d) {
    static const uint32_t kBandwidths[] = {8000000, 7000000, 6000000, 5000000};
    static const char* const kConstellations[] = {"QPSK", "16QAM", "64QAM"};
    static const char* const kAlphas[] = {"none", "1", "2", "4"};
    static const char* const kGuards[] = {"1/32", "1/16", "1/8", "1/4"};
    static const char* const kModes[] = {"2k", "8k", "4k"};
    TerrestrialDelivery out;
    out.centreFrequencyHz = uint64_t{d.centre_frequency} * 10;  // sent in 10 Hz units
    out.bandwidthHz = d.bandwidth < 4 ? kBandwidths[d.bandwidth] : 0;
    out.constellation = pick(kConstellations, d.constellation);
    out.hierarchy = std::string(kAlphas[d.hierarchy_information & 3]) +
                    ((d.hierarchy_information & 4) ? " in-depth" : "");
    out.codeRateHp = pick(kCodeRates, d.code_rate_hp_stream);
    out.codeRateLp = pick(kCodeRates, d.code_rate_lp_stream);
    out.guardInterval = pick(kGuards, d.guard_interval);
    out.transmissionMode = pick(kModes, d.transmission_mode);
    out.otherFrequency = d.other_frequency_flag != 0;
    return out;
}

T2Delivery t2(const dvb_extension_descriptor& ext, const dvb_desc_t2_delivery& d) {
    static const uint32_t kBandwidths[] = {8000000, 7000000, 6000000, 5000000, 10000000, 1712000};
    static const char* const kGuards[] = {"1/32",  "1/16",   "1/8",   "1/4",
                                          "1/128", "19/128", "19/256"};
    static const char* const kModes[] = {"2k", "8k", "4k", "1k", "16k", "32k"};
    static const char* const kSisoMiso[] = {"SISO", "MISO"};
    T2Delivery out;
    out.plpId = d.plp_id;
    out.t2SystemId = d.system_id;
    out.hasDetails = ext.length > 4;  // tag extension, plp_id and T2_system_id alone are 4
    if (out.hasDetails) {
        out.sisoMiso = pick(kSisoMiso, d.SISO_MISO);
        out.bandwidthHz = d.bandwidth < 6 ? kBandwidths[d.bandwidth] : 0;
        out.guardInterval = pick(kGuards, d.guard_interval);
        out.transmissionMode = pick(kModes, d.transmission_mode);
        out.otherFrequency = d.other_frequency_flag != 0;
        out.tfs = d.tfs_flag != 0;
        for (unsigned i = 0; d.centre_frequency != nullptr && i < d.frequency_loop_length; ++i) {
            out.centreFrequenciesHz.push_back(uint64_t{d.centre_frequency[i]} * 10);
        }
    }
    return out;
}

CableDelivery cable(const dvb_desc_cable_delivery& d) {
    static const char* const kOuter[] = {"not defined", "none", "RS(204/188)"};
    static const char* const kModulations[] = {"not defined", "16QAM",  "32QAM",
                                               "64QAM",       "128QAM", "256QAM"};
    CableDelivery out;
    out.frequencyHz = d.frequency;  // libdvbv5 turns the BCD into Hz
    out.fecOuter = pick(kOuter, d.fec_outer);
    out.modulation = pick(kModulations, d.modulation);
    out.symbolRate = d.symbol_rate;
    out.fecInner = pick(kInnerFec, d.fec_inner);
    return out;
}

SatelliteDelivery satellite(const dvb_desc_sat& d) {
    static const char* const kPolarisations[] = {"H", "V", "L", "R"};
    static const char* const kModulations[] = {"auto", "QPSK", "8PSK", "16QAM"};
    static const char* const kRollOffs[] = {"0.35", "0.25", "0.20"};
    SatelliteDelivery out;
    out.frequencyKHz = d.frequency;  // libdvbv5 turns the BCD into kHz
    out.orbitalPositionTenths = d.orbit;
    out.east = d.west_east != 0;
    out.polarisation = pick(kPolarisations, d.polarization);
    out.modulationSystem = d.modulation_system ? "DVB-S2" : "DVB-S";
    out.modulation = pick(kModulations, d.modulation_type);
    if (d.modulation_system) out.rollOff = pick(kRollOffs, d.roll_off);
    out.symbolRate = d.symbol_rate;
    out.fecInner = pick(kInnerFec, d.fec);
    return out;
}

void transportStream(const dvb_table_nit_transport& transport, TransportStreamInfo& out) {
    out.transportStreamId = transport.transport_id;
    out.originalNetworkId = transport.network_id;
    for (const dvb_desc* d = transport.descriptor; d != nullptr; d = d->next) {
        switch (d->type) {
            case terrestrial_delivery_system_descriptor:
                out.terrestrial =
                        terrestrial(*reinterpret_cast<const dvb_desc_terrestrial_delivery*>(d));
                break;
            case cable_delivery_system_descriptor:
                out.cable = cable(*reinterpret_cast<const dvb_desc_cable_delivery*>(d));
                break;
            case satellite_delivery_system_descriptor:
                out.satellite = satellite(*reinterpret_cast<const dvb_desc_sat*>(d));
                break;
            case extension_descriptor: {
                const auto& ext = *reinterpret_cast<const dvb_extension_descriptor*>(d);
                if (ext.extension_code == T2_delivery_system_descriptor &&
                    ext.descriptor != nullptr) {
                    out.t2 = t2(ext, *reinterpret_cast<const dvb_desc_t2_delivery*>(ext.descriptor));
                }
                break;
            }
            case service_list_descriptor:
                // libdvbv5 1.22 keeps this one as raw bytes: service_id and type, 3 bytes each.
                if (dvb_descriptors[service_list_descriptor].init == nullptr) {
                    for (size_t i = 0; i + 3 <= d->length; i += 3) {
                        out.services.push_back(ServiceListEntry{
                                static_cast<uint16_t>((d->data[i] << 8) | d->data[i + 1]),
                                d->data[i + 2]});
                    }
                }
                break;
            default:
                break;
        }
    }
}

}  // namespace

TableDecoder::TableDecoder() : mParms(dvb_fe_dummy()) {
    if (mParms == nullptr) throw std::bad_alloc();
    mParms->verbose = 0;
    mParms->logfunc = logToSink;
}

TableDecoder::~TableDecoder() {
    free(mParms);
}

const uint8_t* TableDecoder::prepare(const std::vector<uint8_t>& section, size_t& size,
                                     std::vector<std::string>& problems) {
    if (section.size() < 8 + kCrcSize) {
        problems.push_back("section shorter than its header");
        return nullptr;
    }
    size = section.size() - kCrcSize;
    std::string problem;
    if (!sectionIsSafeToDecode(section.data(), size, problem)) {
        problems.push_back(problem);
        return nullptr;
    }
    mScratch.assign(size + kSlack, 0);
    memcpy(mScratch.data(), section.data(), size);
    return mScratch.data();
}

bool TableDecoder::pat(const std::vector<uint8_t>& section, ProgramAssociation& out,
                       std::vector<std::string>& problems) {
    size_t size = 0;
    const uint8_t* bytes = prepare(section, size, problems);
    if (bytes == nullptr) return false;
    LogTo log(problems);
    Owned<dvb_table_pat, dvb_table_pat_free> pat;
    if (dvb_table_pat_init(mParms, bytes, static_cast<ssize_t>(size), &pat.table) < 0) {
        return false;
    }
    out.transportStreamId = pat.table->header.id;
    out.version = pat.table->header.version;
    dvb_pat_program_foreach(program, pat.table) {
        out.programs[program->service_id] = program->pid;
    }
    return true;
}

bool TableDecoder::pmt(const std::vector<uint8_t>& section, ProgramMap& out,
                       std::vector<std::string>& problems) {
    size_t size = 0;
    const uint8_t* bytes = prepare(section, size, problems);
    if (bytes == nullptr) return false;
    LogTo log(problems);
    Owned<dvb_table_pmt, dvb_table_pmt_free> pmt;
    if (dvb_table_pmt_init(mParms, bytes, static_cast<ssize_t>(size), &pmt.table) < 0) {
        return false;
    }
    out.program = pmt.table->header.id;
    out.version = pmt.table->header.version;
    out.pcrPid = pmt.table->pcr_pid;
    out.streams.clear();
    dvb_pmt_stream_foreach(stream, pmt.table) {
        ElementaryStream es;
        es.type = stream->type;
        es.pid = stream->elementary_pid;
        for (const dvb_desc* d = stream->descriptor; d != nullptr; d = d->next) {
            if (d->type == iso639_language_descriptor) {
                const auto* language = reinterpret_cast<const dvb_desc_language*>(d);
                es.language.assign(reinterpret_cast<const char*>(language->language),
                                   strnlen(reinterpret_cast<const char*>(language->language), 3));
            }
        }
        out.streams.push_back(es);
    }
    return true;
}

bool TableDecoder::sdt(const std::vector<uint8_t>& section, ServiceDescription& out,
                       std::vector<std::string>& problems) {
    size_t size = 0;
    const uint8_t* bytes = prepare(section, size, problems);
    if (bytes == nullptr) return false;
    LogTo log(problems);
    Owned<dvb_table_sdt, dvb_table_sdt_free> sdt;
    if (dvb_table_sdt_init(mParms, bytes, static_cast<ssize_t>(size), &sdt.table) < 0) {
        return false;
    }
    out.transportStreamId = sdt.table->header.id;
    out.originalNetworkId = sdt.table->network_id;
    out.version = sdt.table->header.version;
    dvb_sdt_service_foreach(entry, sdt.table) {
        Service service;
        service.id = entry->service_id;
        service.freeCaMode = entry->free_CA_mode != 0;
        service.runningStatus = entry->running_status;
        service.eitSchedule = entry->EIT_schedule != 0;
        service.eitPresentFollowing = entry->EIT_present_following != 0;
        for (const dvb_desc* d = entry->descriptor; d != nullptr; d = d->next) {
            if (d->type == service_descriptor) {
                const auto* s = reinterpret_cast<const dvb_desc_service*>(d);
                service.type = s->service_type;
                service.name = text(s->name);
                service.provider = text(s->provider);
            }
        }
        out.services[service.id] = service;
    }
    return true;
}

bool TableDecoder::nit(const std::vector<uint8_t>& section, NetworkInformation& out,
                       std::vector<std::string>& problems) {
    size_t size = 0;
    const uint8_t* bytes = prepare(section, size, problems);
    if (bytes == nullptr) return false;
    LogTo log(problems);
    Owned<dvb_table_nit, dvb_table_nit_free> nit;
    if (dvb_table_nit_init(mParms, bytes, static_cast<ssize_t>(size), &nit.table) < 0) {
        return false;
    }
    out.networkId = nit.table->header.id;
    out.version = nit.table->header.version;
    for (const dvb_desc* d = nit.table->descriptor; d != nullptr; d = d->next) {
        if (d->type == network_name_descriptor) {
            out.name = text(reinterpret_cast<const dvb_desc_network_name*>(d)->network_name);
        }
    }
    dvb_nit_transport_foreach(transport, nit.table) {
        TransportStreamInfo info;
        transportStream(*transport, info);
        out.transportStreams[info.transportStreamId] = info;
    }
    return true;
}

bool TableDecoder::eit(const std::vector<uint8_t>& section, PresentFollowing& out, Event& event,
                       bool& hasEvent, std::vector<std::string>& problems) {
    hasEvent = false;
    size_t size = 0;
    const uint8_t* bytes = prepare(section, size, problems);
    if (bytes == nullptr) return false;
    LogTo log(problems);
    Owned<dvb_table_eit, dvb_table_eit_free> eit;
    if (dvb_table_eit_init(mParms, bytes, static_cast<ssize_t>(size), &eit.table) < 0) {
        return false;
    }
    out.serviceId = eit.table->header.id;
    out.transportStreamId = eit.table->transport_id;
    out.originalNetworkId = eit.table->network_id;
    out.version = eit.table->header.version;
    const dvb_table_eit_event* first = eit.table->event;
    if (first == nullptr) return true;
    hasEvent = true;
    event = Event{};
    event.id = first->event_id;
    event.runningStatus = first->running_status;
    event.freeCaMode = first->free_CA_mode != 0;
    // The times are read from the section itself (the first event starts at byte 14):
    // libdvbv5's start goes through the local time zone.
    event.startKnown = utcFromMjdBcd(bytes + 16, event.startUtc);
    if (!secondsFromBcd(bytes + 21, event.durationSeconds)) event.durationSeconds = 0;
    for (const dvb_desc* d = first->descriptor; d != nullptr; d = d->next) {
        if (d->type == short_event_descriptor) {
            const auto* e = reinterpret_cast<const dvb_desc_event_short*>(d);
            event.language.assign(reinterpret_cast<const char*>(e->language),
                                  strnlen(reinterpret_cast<const char*>(e->language), 3));
            event.name = text(e->name);
            event.text = text(e->text);
        }
    }
    return true;
}

bool TableDecoder::time(const std::vector<uint8_t>& section, int64_t& utc,
                        std::vector<std::string>& problems) {
    if (section.size() < 8) {
        problems.push_back("time section shorter than its UTC time");
        return false;
    }
    if (!utcFromMjdBcd(section.data() + 3, utc)) {
        problems.push_back("time section's UTC time is not a valid time");
        return false;
    }
    return true;
}

}  // namespace mox::streamcheck
