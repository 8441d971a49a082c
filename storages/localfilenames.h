// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_LOCALFILENAMES_H
#define PLINTHD_LOCALFILENAMES_H

#include <cstddef>

// Which directory entries a Qt directory listing shows. Qt leaves out every
// entry whose name cannot be decoded with the locale's codec, so the storage
// figures never contain such files; the directory walker has to leave them out
// the same way, without turning each name into a QString.
class LocalFileNames
{
public:
    LocalFileNames();

    bool isListed(const char *name, std::size_t length) const;

    // Strict UTF-8 as Qt reads it: no overlong forms, no surrogates, nothing
    // above U+10FFFF; noncharacters are accepted.
    static bool isValidUtf8(const char *bytes, std::size_t length);

private:
    enum class Codec { Utf8, Ascii, Latin1, Other };
    Codec m_codec;
};

#endif // PLINTHD_LOCALFILENAMES_H
