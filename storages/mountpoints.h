// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_MOUNTPOINTS_H
#define PLINTHD_MOUNTPOINTS_H

#include <QByteArray>

#include <string>
#include <vector>

// The mounts of a mount table in the kernel's mountinfo format, and where
// mounts came or went between two readings. The kept folder trees need
// nothing else of the table: a mount that appears or goes inside a tree hides
// or shows folders without a change notice for them.
namespace MountPoints {

struct Mount
{
    std::string id;    // the kernel's number of the mount, new for every mount
    std::string point; // its escapes (\040 for a blank, ...) undone

    bool operator<(const Mount &other) const { return point < other.point || (point == other.point && id < other.id); }
    bool operator==(const Mount &other) const { return point == other.point && id == other.id; }
};

// Every mount of the table, sorted. Lines with fewer than five fields are
// skipped.
std::vector<Mount> parse(const QByteArray &table);

// Where a mount is in one of the two sorted lists but not in the other: a
// mount made over another at the same place counts, as does one that moved
// with a folder renamed above it.
std::vector<std::string> changed(const std::vector<Mount> &before, const std::vector<Mount> &after);

} // namespace MountPoints

#endif // PLINTHD_MOUNTPOINTS_H
