// SPDX-License-Identifier: BSD-3-Clause
#include "osrelease.h"

#include <QList>

#include <cstring>

namespace OsRelease {

namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

// One shell word from the start of VALUE: quoted and unquoted pieces joined,
// ended by an unquoted blank or the end of the line. False for an unterminated
// quote.
bool parseShellWord(const QByteArray &value, QByteArray *word)
{
    word->clear();
    int i = 0;
    const int n = value.size();
    while (i < n && !isBlank(value.at(i))) {
        const char c = value.at(i);
        if (c == '\'') {
            const int end = value.indexOf('\'', i + 1);
            if (end < 0)
                return false;
            word->append(value.mid(i + 1, end - i - 1));
            i = end + 1;
        } else if (c == '"') {
            ++i;
            for (;;) {
                if (i >= n)
                    return false;
                const char d = value.at(i);
                if (d == '"') {
                    ++i;
                    break;
                }
                if (d == '\\' && i + 1 < n && std::strchr("\"\\$`", value.at(i + 1)) != nullptr) {
                    word->append(value.at(i + 1));
                    i += 2;
                    continue;
                }
                word->append(d);
                ++i;
            }
        } else if (c == '\\') {
            // A trailing backslash would continue the line in a shell; there
            // is nothing to continue with, so it adds nothing.
            if (i + 1 < n)
                word->append(value.at(i + 1));
            i += 2;
        } else {
            word->append(c);
            ++i;
        }
    }
    return true;
}

} // namespace

QString value(const QByteArray &text, const QByteArray &key)
{
    const QByteArray prefix = key + '=';
    QByteArray found;
    for (const QByteArray &rawLine : text.split('\n')) {
        const QByteArray line = rawLine.trimmed();
        if (!line.startsWith(prefix))
            continue;
        QByteArray word;
        if (parseShellWord(line.mid(prefix.size()), &word))
            found = word;
    }
    return QString::fromUtf8(found);
}

} // namespace OsRelease
