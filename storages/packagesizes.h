// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PACKAGESIZES_H
#define PLINTHD_PACKAGESIZES_H

#include <QString>

// The installed sizes that packages declare, summed over the packages of the
// RPM database whose names match a pattern ("tarn-*", "*-debuginfo") under
// the library's default matching. Read afresh on every call.
class PackageSizes
{
public:
    static quint64 sum(const QString &namePattern);
};

#endif // PLINTHD_PACKAGESIZES_H
