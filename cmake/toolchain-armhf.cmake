# Cross build for the board: 32-bit ARM, hard float (arm-linux-gnueabihf).
#
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake \
#         [-DVEXA_ARMHF_SYSROOT=<dir>]
#
# The sysroot holds the target's Qt and FFmpeg; scripts/armhf-sysroot.sh makes
# one from Debian's armhf packages, or point VEXA_ARMHF_SYSROOT (cache entry or
# environment variable) at the board vendor's root file system. Without it the
# folder build-armhf-sysroot beside this checkout's cmake/ folder is used.
#
# Target programs run through qemu-arm with the sysroot as its library root,
# so ctest works on the build machine without binfmt registration.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

if(NOT VEXA_ARMHF_SYSROOT)
    if(DEFINED ENV{VEXA_ARMHF_SYSROOT} AND NOT "$ENV{VEXA_ARMHF_SYSROOT}" STREQUAL "")
        set(VEXA_ARMHF_SYSROOT "$ENV{VEXA_ARMHF_SYSROOT}")
    else()
        get_filename_component(VEXA_ARMHF_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build-armhf-sysroot" ABSOLUTE)
    endif()
endif()
get_filename_component(VEXA_ARMHF_SYSROOT "${VEXA_ARMHF_SYSROOT}" ABSOLUTE)
set(VEXA_ARMHF_SYSROOT "${VEXA_ARMHF_SYSROOT}" CACHE PATH "Root file system of the board (target Qt, FFmpeg and C library)")
if(NOT IS_DIRECTORY "${VEXA_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf")
    message(FATAL_ERROR "No armhf sysroot in '${VEXA_ARMHF_SYSROOT}': run scripts/armhf-sysroot.sh or set VEXA_ARMHF_SYSROOT")
endif()
# try_compile() projects read this file again; hand them the same sysroot.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VEXA_ARMHF_SYSROOT)

set(VEXA_ARMHF_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${VEXA_ARMHF_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${VEXA_ARMHF_TRIPLE}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${VEXA_ARMHF_TRIPLE})

# Without a sysroot the cross compiler quietly reads the build machine's
# headers; every include and library must come from the board's tree.
set(CMAKE_SYSROOT "${VEXA_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH "${VEXA_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Prefixes named in CMAKE_PREFIX_PATH that lie outside the sysroot (a staging
# prefix that this project was installed to, say) hold target files too:
# make them roots of their own so find_package() looks there as they are
# instead of under the sysroot.
foreach(vexa_prefix IN LISTS CMAKE_PREFIX_PATH)
    get_filename_component(vexa_prefix "${vexa_prefix}" ABSOLUTE)
    string(FIND "${vexa_prefix}/" "${VEXA_ARMHF_SYSROOT}/" vexa_at)
    if(NOT vexa_at EQUAL 0)
        list(APPEND CMAKE_FIND_ROOT_PATH "${vexa_prefix}")
    endif()
endforeach()

# GCC notes that the ABI for passing some structs changed in GCC 7; the whole
# system is built with one compiler, so the note is noise.
set(CMAKE_C_FLAGS_INIT "-Wno-psabi")
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

# The loader finds shared libraries of the sysroot only through the library
# folders (no ld.so.cache), but the link step must also find the ones that
# other libraries need.
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,-rpath-link,${VEXA_ARMHF_SYSROOT}/lib/${VEXA_ARMHF_TRIPLE} -Wl,-rpath-link,${VEXA_ARMHF_SYSROOT}/usr/lib/${VEXA_ARMHF_TRIPLE}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")

# pkg-config must read the target's .pc files only and prefix their paths
# with the sysroot. PKG_CONFIG_LIBDIR replaces the search path (the build
# machine's own .pc files would leak in through PKG_CONFIG_PATH).
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_LIBDIR}
    "${VEXA_ARMHF_SYSROOT}/usr/lib/${VEXA_ARMHF_TRIPLE}/pkgconfig:${VEXA_ARMHF_SYSROOT}/usr/lib/pkgconfig:${VEXA_ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${VEXA_ARMHF_SYSROOT}")
unset(ENV{PKG_CONFIG_PATH})

find_program(VEXA_QEMU_ARM qemu-arm)
if(VEXA_QEMU_ARM)
    set(CMAKE_CROSSCOMPILING_EMULATOR "${VEXA_QEMU_ARM};-L;${VEXA_ARMHF_SYSROOT}")
endif()
