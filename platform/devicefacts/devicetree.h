// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_DEVICETREE_H
#define PLINTHD_DEVICETREE_H

#include <QByteArray>

namespace DeviceTree {

// Device-tree string properties (a board's model, its serial number) end in
// NUL, and a string list is several NUL-terminated strings: only the first
// string is the value.
inline QByteArray firstString(const QByteArray &property)
{
    const int nul = property.indexOf('\0');
    return nul < 0 ? property : property.left(nul);
}

} // namespace DeviceTree

#endif // PLINTHD_DEVICETREE_H
