// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_FUZZINPUT_H
#define PLINTHD_FUZZINPUT_H

// Shared by the fuzz targets: the input as Qt text types, and a check that
// stops the run when a parser breaks one of its promises. A crash is not the
// only failure worth finding; an answer that cannot be right is one too.

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#define PLINTH_FUZZ_CHECK(condition)                                                                         \
    do {                                                                                                   \
        if (!(condition)) {                                                                                \
            std::fprintf(stderr, "%s:%d: broken promise: %s\n", __FILE__, __LINE__, #condition);          \
            std::abort();                                                                                  \
        }                                                                                                  \
    } while (false)

namespace FuzzInput {

// The input without a copy, so that the sanitizer sees a read past its end:
// the parsers must go by the size, never by a terminating NUL.
inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size));
}

// What every line-based parser is given: the lines must be non-empty and may
// not hold a line break.
inline void checkLines(const QStringList &lines)
{
    for (const QString &line : lines) {
        PLINTH_FUZZ_CHECK(!line.isEmpty());
        PLINTH_FUZZ_CHECK(!line.contains(QLatin1Char('\n')));
        PLINTH_FUZZ_CHECK(!line.contains(QChar(0)));
    }
}

} // namespace FuzzInput

#endif // PLINTHD_FUZZINPUT_H
