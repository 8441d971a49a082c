// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_UNSHAREDCOPY_H
#define PLINTHD_UNSHAREDCOPY_H

#include <QVariant>

// A copy of a storage answer that shares no data with the value it was made
// from: maps, lists and strings are copied down to their last element.
//
// A worker's answer shares its strings with what the workers keep (the
// partition manager's list, whose labels and paths a later scan replaces and
// frees). The main thread drops its references to the answer inside Qt's own
// code (QtDBus and QVariant are not built with ThreadSanitizer), so the tool
// cannot see that the main thread was done before the free, and reports a
// race that is none. Answers are small maps; copying them once on the worker
// costs far less than a D-Bus reply.
namespace UnsharedCopy {

QVariant of(const QVariant &value);

} // namespace UnsharedCopy

#endif // PLINTHD_UNSHAREDCOPY_H
