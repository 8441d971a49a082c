// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_FILESYSTEMPROBE_H
#define PLINTHD_FILESYSTEMPROBE_H

#include <QByteArray>

struct statvfs;

// statvfs() of a mount path: the one call through which a partition scan asks
// a medium for its figures, and so the one that waits when the medium does (a
// card that stopped answering, a network file system whose server went).
//
// Test builds can make it wait on purpose, to show what the daemon does
// meanwhile. Only when the build has the CMake option PLINTHD_TEST_SEAMS on
// (it follows PLINTHD_BUILD_TESTS; packages are built without either):
//   PLINTHD_TEST_STALL_MOUNT  a mount path, exactly as the mount table gives it
//   PLINTHD_TEST_STALL_GATE   a FIFO
// Every probe of that mount path first opens the FIFO for reading and reads it
// to its end: it goes on once a writer has opened the FIFO and closed it
// again. The variables are read at the first probe of the process. Without
// the option none of this is compiled and the variables mean nothing.
namespace FileSystemProbe {

// statvfs() of `path` into `out`; false when it failed.
bool measure(const QByteArray &path, struct statvfs *out);

} // namespace FileSystemProbe

#endif // PLINTHD_FILESYSTEMPROBE_H
