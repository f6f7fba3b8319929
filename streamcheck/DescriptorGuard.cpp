#include "streamcheck/DescriptorGuard.h"

#include <cstdio>

namespace mox::streamcheck {

namespace {

std::string hex(unsigned value) {
    char text[8];
    snprintf(text, sizeof text, "0x%02X", value);
    return text;
}

uint16_t length12(const uint8_t* p) {
    return static_cast<uint16_t>(((p[0] & 0x0F) << 8) | p[1]);
}

// The T2 delivery system descriptor after its tag extension: plp_id, T2_system_id, then
// optionally the details and a loop of cells that must end exactly with the descriptor.
bool t2IsWhole(const uint8_t* p, size_t size) {
    if (size == 3) return true;
    if (size < 5) return false;
    const bool tfs = (p[4] & 0x01) != 0;
    size_t at = 5;
    while (at < size) {
        if (size - at < 2) return false;
        at += 2;  // cell_id
        if (tfs) {
            if (at >= size) return false;
            const size_t frequencies = p[at++];
            if (frequencies % 4 != 0 || size - at < frequencies) return false;
            at += frequencies;
        } else {
            if (size - at < 4) return false;
            at += 4;
        }
        if (at >= size) return false;
        const size_t subcells = p[at++];
        if (subcells % 5 != 0 || size - at < subcells) return false;
        at += subcells;
    }
    return true;
}

// Strings preceded by their lengths, one after another, within `size`.
bool stringsFit(const uint8_t* p, size_t size, size_t at, int count) {
    for (int i = 0; i < count; ++i) {
        if (at >= size) return false;
        at += 1 + p[at];
        if (at > size) return false;
    }
    return true;
}

bool extendedEventIsWhole(const uint8_t* p, size_t size) {
    if (size < 5) return false;
    const size_t items = p[4];
    if (size - 5 < items) return false;
    size_t at = 5;
    const size_t end = 5 + items;
    while (at < end) {
        if (!stringsFit(p, end, at, 2)) return false;
        at += 1 + p[at];
        at += 1 + p[at];
    }
    return stringsFit(p, size, end, 1);
}

bool descriptorIsWhole(uint8_t tag, const uint8_t* p, size_t size, std::string& problem) {
    bool whole = true;
    switch (tag) {
        case 0x0A:
            whole = size % 4 == 0;
            break;  // ISO 639 language
        case 0x09:
            whole = size >= 4;
            break;  // conditional access
        case 0x43:
        case 0x44:
        case 0x5A:
            whole = size == 11;
            break;  // delivery systems
        case 0x48:
            whole = size >= 1 && stringsFit(p, size, 1, 2);
            break;  // service
        case 0x4D:
            whole = size >= 3 && stringsFit(p, size, 3, 2);
            break;  // short event
        case 0x4E:
            whole = extendedEventIsWhole(p, size);
            break;
        case 0x53:
            whole = size % 2 == 0;
            break;  // CA identifier
        case 0x62:
            whole = size >= 1 && (size - 1) % 4 == 0;
            break;  // frequency list
        case 0x83:
            whole = size % 4 == 0;
            break;  // logical channel
        case 0x7F:  // extension
            whole = size >= 1 && (p[0] != 0x04 || t2IsWhole(p + 1, size - 1));
            break;
        default:
            break;
    }
    if (!whole)
        problem = "descriptor " + hex(tag) + " of " + std::to_string(size) + " bytes is malformed";
    return whole;
}

bool loopIsWhole(const uint8_t* p, size_t size, std::string& problem) {
    size_t at = 0;
    while (at < size) {
        if (size - at < 2) {
            problem = "a descriptor header runs past its loop";
            return false;
        }
        const uint8_t tag = p[at];
        const size_t length = p[at + 1];
        at += 2;
        if (size - at < length) {
            problem = "a descriptor runs past its loop";
            return false;
        }
        if (!descriptorIsWhole(tag, p + at, length, problem)) return false;
        at += length;
    }
    return true;
}

// A loop length at `at` (12 bits), then the loop; advances `at` past it.
bool lengthAndLoop(const uint8_t* p, size_t size, size_t& at, std::string& problem,
                   bool tenBits = false) {
    if (size - at < 2) {
        problem = "a loop length runs past the section";
        return false;
    }
    const size_t length = length12(p + at);
    // libdvbv5 reads the PMT's lengths as 10 bits: the two bits above must be 0.
    if (tenBits && length > 0x3FF) {
        problem = "a PMT loop length has its top bits set";
        return false;
    }
    at += 2;
    if (size - at < length) {
        problem = "a loop runs past the section";
        return false;
    }
    if (!loopIsWhole(p + at, length, problem)) return false;
    at += length;
    return true;
}

bool entriesAreWhole(const uint8_t* p, size_t size, size_t at, size_t fixed, std::string& problem,
                     bool tenBits = false) {
    while (at < size) {
        if (size - at < fixed) {
            problem = "an entry runs past the section";
            return false;
        }
        at += fixed - 2;
        if (!lengthAndLoop(p, size, at, problem, tenBits)) return false;
    }
    return true;
}

}  // namespace

bool sectionIsSafeToDecode(const uint8_t* s, size_t size, std::string& problem) {
    if (size < 8) {
        problem = "section shorter than its header";
        return false;
    }
    const uint8_t table = s[0];
    size_t at = 8;
    switch (table) {
        case 0x00:  // PAT: 4-byte entries, nothing inside
            return true;
        case 0x01:  // CAT
            if (!loopIsWhole(s + at, size - at, problem)) return false;
            return true;
        case 0x02:  // PMT
            if (size < 12) break;
            at = 10;
            if (!lengthAndLoop(s, size, at, problem, true)) return false;
            return entriesAreWhole(s, size, at, 5, problem, true);
        case 0x40:
        case 0x41: {  // NIT
            if (!lengthAndLoop(s, size, at, problem)) return false;
            if (size - at < 2) break;
            if (length12(s + at) != size - at - 2) {
                problem = "the NIT's transport stream loop length does not match the section";
                return false;
            }
            return entriesAreWhole(s, size, at + 2, 6, problem);
        }
        case 0x42:
        case 0x46:  // SDT
            if (size < 11) break;
            return entriesAreWhole(s, size, 11, 5, problem);
        default:
            if (table >= 0x4E && table <= 0x6F) {  // EIT
                if (size < 14) break;
                return entriesAreWhole(s, size, 14, 12, problem);
            }
            problem = "no decoder for table " + hex(table);
            return false;
    }
    problem = "section shorter than its table's fixed fields";
    return false;
}

}  // namespace mox::streamcheck
