// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_WIDEFILETYPES_H
#define PLINTHD_WIDEFILETYPES_H

#include <sys/types.h>

// Sizes, block counts, inode numbers and times from stat(), statvfs() and
// quotactl() must be 64 bits wide. On 32-bit targets (armhf, i386) the C
// library narrows them unless asked otherwise, and then stat() fails with
// EOVERFLOW on every file over 2 GiB (a phone's videos) or with a time after
// 2038, and statvfs() wraps the size of a large partition. The top
// CMakeLists.txt asks for the wide types (_FILE_OFFSET_BITS=64, _TIME_BITS=64);
// code that reads file system figures includes this header so that a build
// that loses those flags fails to compile instead of miscounting.
static_assert(sizeof(off_t) == 8, "off_t must be 64 bits: build with -D_FILE_OFFSET_BITS=64");
static_assert(sizeof(blkcnt_t) == 8, "blkcnt_t must be 64 bits: build with -D_FILE_OFFSET_BITS=64");
static_assert(sizeof(fsblkcnt_t) == 8, "fsblkcnt_t must be 64 bits: build with -D_FILE_OFFSET_BITS=64");
static_assert(sizeof(ino_t) == 8, "ino_t must be 64 bits: build with -D_FILE_OFFSET_BITS=64");
static_assert(sizeof(time_t) == 8, "time_t must be 64 bits: build with -D_TIME_BITS=64");

#endif
