// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_WALKEXCLUSIONS_H
#define PLINTHD_WALKEXCLUSIONS_H

#include <QSet>
#include <QString>

#include <functional>
#include <map>
#include <string>
#include <string_view>

// The excluded paths below a walked folder, one level of names per node, so
// that a walk tells at each folder whether a subfolder is left out without
// building its path. Excluded paths are exact strings: only those that the
// walk itself would build (absolute, cleaned, below the walked folder) can
// ever match, and only those are kept.
class WalkExclusions
{
public:
    struct Node
    {
        bool excluded = false;
        std::map<std::string, Node, std::less<>> children;

        const Node *child(std::string_view name) const
        {
            const auto it = children.find(name);
            return it == children.end() ? nullptr : &it->second;
        }
    };

    // `cleanRoot` is the walked folder's cleaned absolute path.
    WalkExclusions(const QString &cleanRoot, const QSet<QString> &excluded);

    const Node *root() const { return &m_root; }

private:
    Node m_root;
};

#endif // PLINTHD_WALKEXCLUSIONS_H
