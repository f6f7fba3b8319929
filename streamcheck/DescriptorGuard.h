// Checks a section's loops and the descriptors libdvbv5 would trust before it gets them.
//
// libdvbv5 1.22 reads what a descriptor says about itself: a terrestrial delivery descriptor
// longer than 11 bytes is copied over the end of its allocation, a T2 delivery descriptor whose
// cell loop is cut short crashes, and the NIT's transport stream loop is read to the end of the
// buffer whatever its length says. So every loop length and the inner lengths of the
// descriptors it decodes must agree with the section before the section is handed over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace mox::streamcheck {

// `section` is a whole section without its CRC. False, with the reason, when a length in it
// does not fit where it stands.
bool sectionIsSafeToDecode(const uint8_t* section, size_t size, std::string& problem);

}  // namespace mox::streamcheck
