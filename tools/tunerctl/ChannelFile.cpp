#include "ChannelFile.h"

#include <fcntl.h>
#include <libdvbv5/dvb-file.h>
#include <libdvbv5/dvb-v5-std.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <sstream>

#include "ValueParsing.h"

namespace tunerctl {

namespace {

struct FileCloser {
    void operator()(dvb_file* file) const { dvb_file_free(file); }
};
using DvbFile = std::unique_ptr<dvb_file, FileCloser>;

// What libdvbv5 writes to stderr while it reads a file, caught so that tunerctl says it once, in
// its own words (libdvbv5's reader takes no log function).
class CaughtStderr {
  public:
    CaughtStderr() : mFile(std::tmpfile()) {
        fflush(stderr);
        mSaved = mFile != nullptr ? dup(STDERR_FILENO) : -1;
        if (mSaved >= 0) dup2(fileno(mFile), STDERR_FILENO);
    }
    ~CaughtStderr() { release(); }
    CaughtStderr(const CaughtStderr&) = delete;
    CaughtStderr& operator=(const CaughtStderr&) = delete;

    // Restores stderr; returns what was written meanwhile.
    std::string release() {
        std::string text;
        if (mSaved >= 0) {
            fflush(stderr);
            dup2(mSaved, STDERR_FILENO);
            close(mSaved);
            mSaved = -1;
            std::rewind(mFile);
            char buffer[512];
            size_t n;
            while ((n = std::fread(buffer, 1, sizeof(buffer), mFile)) > 0) text.append(buffer, n);
        }
        if (mFile != nullptr) std::fclose(mFile);
        mFile = nullptr;
        return text;
    }

  private:
    FILE* mFile;
    int mSaved = -1;
};

// libdvbv5's complaint ("ERROR value FOO is invalid for DELIVERY_SYSTEM while parsing line 6 of
// F") as FILE:LINE: what.
std::string fileError(const std::string& file, const std::string& caught) {
    static const std::regex kParse("(?:ERROR\\s+)?(.*) while parsing line ([0-9]+) of .*");
    std::istringstream lines(caught);
    std::string line;
    while (std::getline(lines, line)) {
        std::smatch m;
        if (std::regex_match(line, m, kParse)) return file + ":" + m[2].str() + ": " + m[1].str();
    }
    return file + ": not a channel file tunerctl can read" +
           (caught.empty() ? std::string() : " (" + caught.substr(0, caught.find('\n')) + ")");
}

// Each channel's name with the line it starts on, read from the text (libdvbv5's entries do not
// keep their lines): "[NAME]" groups in a dvbv5 file, "NAME:..." lines in a zap file.
std::vector<std::pair<std::string, int>> channelLines(const std::string& text, bool zap) {
    std::vector<std::pair<std::string, int>> names;
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        const size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') continue;
        if (zap) {
            names.emplace_back(line.substr(0, line.find(':')), number);
        } else if (line[first] == '[') {
            const size_t end = line.find(']', first);
            if (end != std::string::npos) {
                names.emplace_back(line.substr(first + 1, end - first - 1), number);
            }
        }
    }
    return names;
}

// Two channels of one name make "tune --channel NAME" ambiguous: the file is refused by name.
bool uniqueNames(const std::string& file, const std::vector<std::pair<std::string, int>>& names,
                 std::string& error) {
    std::map<std::string, int> seen;
    for (const auto& [name, line] : names) {
        const auto [at, fresh] = seen.emplace(name, line);
        if (!fresh) {
            error = file + ":" + std::to_string(line) + ": a second channel named '" + name +
                    "' (the first is at line " + std::to_string(at->second) +
                    "): give each channel a name of its own";
            return false;
        }
    }
    return true;
}

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

// DTV_STREAM_ID, when the entry names one that tunerctl can pass (NO_STREAM_ID_FILTER, ~0, and
// anything past 8 bits mean none).
std::string streamIdOf(dvb_entry* entry) {
    const uint32_t id = prop(entry, DTV_STREAM_ID, ~0u);
    return id <= kMaxStreamId ? std::to_string(id) : std::string();
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
            if (system == SYS_DVBT2) o.plp = streamIdOf(entry);
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
            if (system == SYS_DVBS2) o.plp = streamIdOf(entry);
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

// A PID list as libdvbv5 keeps it: malloc'd, freed with the entry.
uint16_t* copyPids(const std::vector<uint16_t>& pids, unsigned& length) {
    length = static_cast<unsigned>(pids.size());
    if (pids.empty()) return nullptr;
    auto* copy = static_cast<uint16_t*>(calloc(pids.size(), sizeof(uint16_t)));
    std::copy(pids.begin(), pids.end(), copy);
    return copy;
}

void store(dvb_entry* entry, uint32_t cmd, uint32_t value) {
    entry->props[entry->n_props].cmd = cmd;
    entry->props[entry->n_props].u.data = value;
    ++entry->n_props;
}

}  // namespace

bool readChannel(const std::string& file, const std::string& format, const std::string& system,
                 const std::string& name, ChannelOptions& options, std::string& error,
                 FoundChannel* service) {
    const dvb_file_formats kind = format == "zap" ? FILE_ZAP : FILE_DVBV5;
    const uint32_t delsys =
            kind == FILE_ZAP ? zapSystem(system) : static_cast<uint32_t>(SYS_UNDEFINED);
    if (kind == FILE_ZAP && delsys == SYS_UNDEFINED) {
        error = file +
                ": a zap file holds one delivery system: this frontend's is not DVB-T, -C "
                "or -S";
        return false;
    }
    std::ifstream in(file);
    if (!in) {
        error = file + ": " + std::strerror(errno);
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    const std::vector<std::pair<std::string, int>> names =
            channelLines(text.str(), kind == FILE_ZAP);
    if (!uniqueNames(file, names, error)) return false;
    CaughtStderr caught;
    DvbFile channels(dvb_read_file_format(file.c_str(), delsys, kind));
    const std::string complaint = caught.release();
    if (channels == nullptr) {
        error = fileError(file, complaint);
        return false;
    }
    std::string known;
    for (dvb_entry* entry = channels->first_entry; entry != nullptr; entry = entry->next) {
        if (entry->channel == nullptr) continue;
        if (name == entry->channel) {
            if (service != nullptr) {
                service->name = name;
                service->serviceId = entry->service_id;
                service->videoPids.assign(entry->video_pid, entry->video_pid + entry->video_pid_len);
                service->audioPids.assign(entry->audio_pid, entry->audio_pid + entry->audio_pid_len);
            }
            if (optionsOf(entry, options, error)) return true;
            for (const auto& [n, line] : names) {
                if (n == name) error = file + ":" + std::to_string(line) + ": " + error;
            }
            return false;
        }
        known += (known.empty() ? "" : ", ") + std::string(entry->channel);
    }
    error = file + ": no channel '" + name + "'" + (known.empty() ? "" : " (it has " + known + ")");
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
            if (o.standard == "T2" && !o.plp.empty()) {
                store(entry, DTV_STREAM_ID, std::strtoul(o.plp.c_str(), nullptr, 10));
            }
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
            if (o.standard != "S" && !o.plp.empty()) {
                store(entry, DTV_STREAM_ID, std::strtoul(o.plp.c_str(), nullptr, 10));
            }
            if (!o.lnb.empty()) entry->lnb = strdup(o.lnb.c_str());
            if (!o.satellite.empty()) entry->sat_number = std::atoi(o.satellite.c_str());
        }
        if (c.serviceId != 0) {
            entry->service_id = c.serviceId;
            entry->video_pid = copyPids(c.videoPids, entry->video_pid_len);
            entry->audio_pid = copyPids(c.audioPids, entry->audio_pid_len);
        }
    }
    // Written beside the file and renamed over it: an interruption leaves the previous file or
    // the whole new one, never a part.
    const std::string partial = file + ".tunerctl-" + std::to_string(getpid());
    CaughtStderr caught;
    const int written = dvb_write_file_format(partial.c_str(), out.get(), SYS_UNDEFINED, FILE_DVBV5);
    caught.release();
    if (written != 0 || std::rename(partial.c_str(), file.c_str()) != 0) {
        error = "cannot write the channel file " + file + ": " + std::strerror(errno);
        unlink(partial.c_str());
        return false;
    }
    return true;
}

}  // namespace tunerctl
