#include "ChannelFile.h"

#include <libdvbv5/dvb-file.h>
#include <libdvbv5/dvb-v5-std.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "ValueParsing.h"

namespace tunerctl {

namespace {

struct FileCloser {
    void operator()(dvb_file* file) const { dvb_file_free(file); }
};
using DvbFile = std::unique_ptr<dvb_file, FileCloser>;

uint32_t prop(dvb_entry* entry, uint32_t cmd, uint32_t fallback = 0) {
    uint32_t value = fallback;
    return dvb_retrieve_entry_prop(entry, cmd, &value) == 0 ? value : fallback;
}

std::string bandwidthName(uint32_t hz) {
    switch (hz) {
        case 1712000:
            return "1.7MHz";
        case 0:
            return "auto";
        default:
            return std::to_string(hz / 1000000) + "MHz";
    }
}

std::string qamName(uint32_t modulation) {
    switch (modulation) {
        case QAM_16:
            return "16QAM";
        case QAM_32:
            return "32QAM";
        case QAM_64:
            return "64QAM";
        case QAM_128:
            return "128QAM";
        case QAM_256:
            return "256QAM";
        default:
            return "AUTO";
    }
}

uint32_t qamCode(const std::string& name) {
    const std::pair<const char*, uint32_t> codes[] = {{"16QAM", QAM_16},
                                                      {"32QAM", QAM_32},
                                                      {"64QAM", QAM_64},
                                                      {"128QAM", QAM_128},
                                                      {"256QAM", QAM_256}};
    for (const auto& [n, code] : codes) {
        if (name == n) return code;
    }
    return QAM_AUTO;
}

// One entry of a file as the options that tune it.
bool optionsOf(dvb_entry* entry, ChannelOptions& o, std::string& error) {
    const uint32_t system = prop(entry, DTV_DELIVERY_SYSTEM);
    const uint32_t frequency = prop(entry, DTV_FREQUENCY);
    switch (system) {
        case SYS_DVBT:
        case SYS_DVBT2:
            o.dvbt = std::to_string(frequency) + "Hz";
            o.bandwidth = bandwidthName(prop(entry, DTV_BANDWIDTH_HZ, 8000000));
            o.standard = system == SYS_DVBT2 ? "T2" : "T";
            return true;
        case SYS_DVBC_ANNEX_A:
        case SYS_DVBC_ANNEX_B:
        case SYS_DVBC_ANNEX_C:
            o.dvbc = std::to_string(frequency) + "Hz";
            o.symbolRate = std::to_string(prop(entry, DTV_SYMBOL_RATE));
            o.modulation = qamName(prop(entry, DTV_MODULATION, QAM_AUTO));
            o.annex = system == SYS_DVBC_ANNEX_A ? "A" : system == SYS_DVBC_ANNEX_B ? "B" : "C";
            return true;
        case SYS_DVBS:
        case SYS_DVBS2: {
            // Satellite files give the downlink in kHz, with the LNB and the switch input.
            o.dvbs = std::to_string(frequency) + "kHz";
            o.symbolRate = std::to_string(prop(entry, DTV_SYMBOL_RATE));
            o.standard = system == SYS_DVBS2 ? "S2" : "S";
            const uint32_t polarisation = prop(entry, DTV_POLARIZATION, POLARIZATION_OFF);
            const char* names[] = {"", "H", "V", "L", "R"};
            if (polarisation <= POLARIZATION_R) o.polarisation = names[polarisation];
            if (entry->lnb != nullptr) o.lnb = entry->lnb;
            if (entry->sat_number >= 0 && entry->sat_number <= 3) {
                o.satellite = std::to_string(entry->sat_number);
            }
            return true;
        }
        default:
            error = "the channel's delivery system " + std::to_string(system) +
                    " is not one tunerctl tunes (DVB-T/T2, DVB-C, DVB-S/S2)";
            return false;
    }
}

uint32_t zapSystem(const std::string& system) {
    if (system == "DVBT") return SYS_DVBT;
    if (system == "DVBC") return SYS_DVBC_ANNEX_A;
    if (system == "DVBS") return SYS_DVBS;
    return SYS_UNDEFINED;
}

// Adds an entry to the file's list, owned by the file (libdvbv5 frees it with malloc's free).
dvb_entry* addEntry(dvb_file* file, dvb_entry*& last) {
    auto* entry = static_cast<dvb_entry*>(calloc(1, sizeof(dvb_entry)));
    entry->sat_number = -1;
    (last ? last->next : file->first_entry) = entry;
    last = entry;
    ++file->n_entries;
    return entry;
}

void store(dvb_entry* entry, uint32_t cmd, uint32_t value) {
    entry->props[entry->n_props].cmd = cmd;
    entry->props[entry->n_props].u.data = value;
    ++entry->n_props;
}

}  // namespace

bool readChannel(const std::string& file, const std::string& format, const std::string& system,
                 const std::string& name, ChannelOptions& options, std::string& error) {
    const dvb_file_formats kind = format == "zap" ? FILE_ZAP : FILE_DVBV5;
    const uint32_t delsys =
            kind == FILE_ZAP ? zapSystem(system) : static_cast<uint32_t>(SYS_UNDEFINED);
    if (kind == FILE_ZAP && delsys == SYS_UNDEFINED) {
        error = "a zap file holds one delivery system: this frontend's is not DVB-T, -C or -S";
        return false;
    }
    DvbFile channels(dvb_read_file_format(file.c_str(), delsys, kind));
    if (channels == nullptr) {
        error = "cannot read the " + format + " channel file " + file;
        return false;
    }
    std::string known;
    for (dvb_entry* entry = channels->first_entry; entry != nullptr; entry = entry->next) {
        if (entry->channel == nullptr) continue;
        if (name == entry->channel) return optionsOf(entry, options, error);
        known += (known.empty() ? "" : ", ") + std::string(entry->channel);
    }
    error = "no channel '" + name + "' in " + file +
            (known.empty() ? "" : " (it has " + known + ")");
    return false;
}

bool writeChannels(const std::string& file, const std::vector<FoundChannel>& channels,
                   std::string& error) {
    DvbFile out(static_cast<dvb_file*>(calloc(1, sizeof(dvb_file))));
    dvb_entry* last = nullptr;
    for (const FoundChannel& c : channels) {
        dvb_entry* entry = addEntry(out.get(), last);
        entry->channel = strdup(c.name.c_str());
        const ChannelOptions& o = c.options;
        if (!o.dvbt.empty()) {
            store(entry, DTV_DELIVERY_SYSTEM, o.standard == "T2" ? SYS_DVBT2 : SYS_DVBT);
            store(entry, DTV_FREQUENCY, parseFrequencyHz(o.dvbt).value_or(0));
            const auto bandwidth = parseFrequencyHz(o.bandwidth.empty() ? "8MHz" : o.bandwidth);
            store(entry, DTV_BANDWIDTH_HZ, bandwidth.value_or(0));
        } else if (!o.dvbc.empty()) {
            store(entry, DTV_DELIVERY_SYSTEM,
                  o.annex == "C"   ? SYS_DVBC_ANNEX_C
                  : o.annex == "B" ? SYS_DVBC_ANNEX_B
                                   : SYS_DVBC_ANNEX_A);
            store(entry, DTV_FREQUENCY, parseFrequencyHz(o.dvbc).value_or(0));
            store(entry, DTV_SYMBOL_RATE, parseSymbolRate(o.symbolRate).value_or(0));
            store(entry, DTV_MODULATION, qamCode(o.modulation));
        } else {
            store(entry, DTV_DELIVERY_SYSTEM, o.standard == "S" ? SYS_DVBS : SYS_DVBS2);
            store(entry, DTV_FREQUENCY, parseFrequencyKHz(o.dvbs).value_or(0));
            store(entry, DTV_SYMBOL_RATE, parseSymbolRate(o.symbolRate).value_or(0));
            const uint32_t polarisation = o.polarisation == "H"   ? POLARIZATION_H
                                          : o.polarisation == "V" ? POLARIZATION_V
                                          : o.polarisation == "L" ? POLARIZATION_L
                                          : o.polarisation == "R" ? POLARIZATION_R
                                                                  : POLARIZATION_OFF;
            if (polarisation != POLARIZATION_OFF) store(entry, DTV_POLARIZATION, polarisation);
            if (!o.lnb.empty()) entry->lnb = strdup(o.lnb.c_str());
            if (!o.satellite.empty()) entry->sat_number = std::atoi(o.satellite.c_str());
        }
    }
    if (dvb_write_file_format(file.c_str(), out.get(), SYS_UNDEFINED, FILE_DVBV5) != 0) {
        error = "cannot write the channel file " + file;
        return false;
    }
    return true;
}

}  // namespace tunerctl
