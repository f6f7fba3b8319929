# A box with a 32-bit ARM userspace (arm-linux-gnueabihf). See CrossDebian.cmake.
set(TUNER_CROSS_ARCH armhf)
set(TUNER_CROSS_TRIPLET arm-linux-gnueabihf)
set(TUNER_QEMU arm)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
include(${CMAKE_CURRENT_LIST_DIR}/CrossDebian.cmake)
