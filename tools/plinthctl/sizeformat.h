// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHCTL_SIZEFORMAT_H
#define PLINTHCTL_SIZEFORMAT_H

#include <QString>
#include <QtGlobal>

namespace PlinthCtl {

// Binary units with one decimal ("1.5 GiB"); plain bytes below 1 KiB ("512 B").
// The decimal point is always '.', whatever the locale, so scripts reading the
// text form see the same figures everywhere.
QString humanSize(quint64 bytes);
// The daemon sends one size signed (bytes used by other users); a negative
// figure keeps its sign instead of wrapping around.
QString humanSize(qint64 bytes);

} // namespace PlinthCtl

#endif // PLINTHCTL_SIZEFORMAT_H
