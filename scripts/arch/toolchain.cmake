# SPDX-License-Identifier: BSD-3-Clause
# Cross-compiles with Debian's cross compiler against a Debian root of the
# target architecture (made by scripts/test-arch), which holds the libraries
# and headers the build links: PLINTHD_ARCH_ROOT names the root,
# PLINTHD_ARCH_TRIPLET its multiarch triplet (arm-linux-gnueabihf, ...).
# The environment carries them because CMake reads this file again for every
# compiler check, where cache entries given on the command line are unknown.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR $ENV{PLINTHD_ARCH_PROCESSOR})
set(CMAKE_SYSROOT $ENV{PLINTHD_ARCH_ROOT})
set(CMAKE_C_COMPILER $ENV{PLINTHD_ARCH_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER $ENV{PLINTHD_ARCH_TRIPLET}-g++)

# Libraries, headers and CMake packages from the root only; programs run
# during the build (python3, the Qt code generators) are the host's.
set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    "${CMAKE_SYSROOT}/usr/lib/$ENV{PLINTHD_ARCH_TRIPLET}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")

# The Qt code generators of the host: the root's are of the target
# architecture. Qt's package files define these targets only when they are
# not defined yet, so this file is read right after project() (through
# CMAKE_PROJECT_INCLUDE) and defines them first.
set(CMAKE_PROJECT_INCLUDE ${CMAKE_CURRENT_LIST_DIR}/hostqttools.cmake)
