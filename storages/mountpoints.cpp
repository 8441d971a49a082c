// SPDX-License-Identifier: BSD-3-Clause
#include "mountpoints.h"

#include <algorithm>
#include <iterator>

namespace {

// A mountinfo line: mount ID, parent ID, major:minor, root, mount point, ...
constexpr int MountIdField = 0;
constexpr int MountPointField = 4;

// The kernel writes a blank, a tab, a newline and a backslash in a path as a
// backslash and three octal digits.
std::string unescape(const char *begin, const char *end)
{
    std::string out;
    out.reserve(std::size_t(end - begin));
    for (const char *p = begin; p != end; ++p) {
        const auto isOctal = [](char c) { return c >= '0' && c <= '7'; };
        if (*p == '\\' && end - p >= 4 && isOctal(p[1]) && isOctal(p[2]) && isOctal(p[3])) {
            out.push_back(char(((p[1] - '0') << 6) | ((p[2] - '0') << 3) | (p[3] - '0')));
            p += 3;
        } else {
            out.push_back(*p);
        }
    }
    return out;
}

} // namespace

std::vector<MountPoints::Mount> MountPoints::parse(const QByteArray &table)
{
    std::vector<Mount> mounts;
    const char *line = table.constData();
    const char *const tableEnd = line + table.size();
    while (line < tableEnd) {
        const char *lineEnd = std::find(line, tableEnd, '\n');
        const char *field = line;
        Mount mount;
        for (int index = 0; field < lineEnd; ++index) {
            const char *fieldEnd = std::find(field, lineEnd, ' ');
            if (index == MountIdField) {
                mount.id.assign(field, fieldEnd);
            } else if (index == MountPointField) {
                mount.point = unescape(field, fieldEnd);
                mounts.push_back(std::move(mount));
                break;
            }
            field = fieldEnd + 1;
        }
        line = lineEnd + 1;
    }
    std::sort(mounts.begin(), mounts.end());
    return mounts;
}

std::vector<std::string> MountPoints::changed(const std::vector<Mount> &before, const std::vector<Mount> &after)
{
    std::vector<Mount> difference;
    std::set_symmetric_difference(before.begin(), before.end(), after.begin(), after.end(),
                                  std::back_inserter(difference));
    std::vector<std::string> points;
    for (Mount &mount : difference)
        points.push_back(std::move(mount.point));
    points.erase(std::unique(points.begin(), points.end()), points.end());
    return points;
}
