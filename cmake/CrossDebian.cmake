# Cross-compiling for a box's architecture with Debian's cross compiler, against the Debian
# packages of that architecture that scripts/cross-sysroot.sh unpacks into build/sysroot/ARCH.
# Included by the architecture's toolchain file, which sets TUNER_CROSS_ARCH, TUNER_CROSS_TRIPLET
# and CMAKE_SYSTEM_PROCESSOR. Programs of the build machine (hidl-gen, capnp, Python) stay native.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${TUNER_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${TUNER_CROSS_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${TUNER_CROSS_TRIPLET})

get_filename_component(TUNER_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/${TUNER_CROSS_ARCH}"
                       ABSOLUTE)
if(NOT EXISTS "${TUNER_SYSROOT}/.packages")
  message(FATAL_ERROR "no sysroot for ${TUNER_CROSS_ARCH}: run scripts/cross-sysroot.sh ${TUNER_CROSS_ARCH}")
endif()
set(CMAKE_FIND_ROOT_PATH "${TUNER_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The libraries' own dependencies are found in the sysroot at link time (libbacktrace, under
# libutils, needs p7zip's 7z.so from a folder of its own).
set(_lib "${TUNER_SYSROOT}/usr/lib/${TUNER_CROSS_TRIPLET}")
set(_link "-Wl,-rpath-link,${_lib}:${_lib}/android:${TUNER_SYSROOT}/lib/${TUNER_CROSS_TRIPLET}:${TUNER_SYSROOT}/usr/lib/p7zip")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_link}")

# The build runs the target's programs (test discovery) through qemu-user, with the sysroot as the
# root its dynamic loader and libraries are found under. The presets set the same for programs
# the kernel starts through qemu (binfmt_misc): QEMU_LD_PREFIX, and the android libraries' folder
# for the guest's loader (QEMU_SET_ENV), which qemu-arm does not find through their RUNPATH.
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-${TUNER_QEMU}-static;-L;${TUNER_SYSROOT};-E;LD_LIBRARY_PATH=${_lib}/android")
