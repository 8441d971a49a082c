// SPDX-License-Identifier: BSD-3-Clause
#include "walkexclusions.h"

#include <QFile>
#include <QList>

WalkExclusions::WalkExclusions(const QString &cleanRoot, const QSet<QString> &excluded)
{
    const QString prefix = cleanRoot == QLatin1String("/") ? cleanRoot : cleanRoot + QLatin1Char('/');
    const QByteArray nativePrefix = QFile::encodeName(prefix);
    for (const QString &path : excluded) {
        if (path.size() <= prefix.size() || !path.startsWith(prefix))
            continue;
        // Walked paths are decoded file names: a string that does not survive
        // encoding can never equal one.
        const QByteArray native = QFile::encodeName(path);
        if (QFile::decodeName(native) != path || !native.startsWith(nativePrefix))
            continue;
        Node *node = &m_root;
        const QList<QByteArray> names = native.mid(nativePrefix.size()).split('/');
        for (const QByteArray &name : names)
            node = &node->children[name.toStdString()];
        node->excluded = true;
    }
}
