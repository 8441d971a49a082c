// SPDX-License-Identifier: BSD-3-Clause
#include "localfilenames.h"

#include <QTextCodec>

namespace {

// IANA MIBenum numbers of the character sets, as QTextCodec::mibEnum() gives them.
const int MibUsAscii = 3;
const int MibLatin1 = 4;
const int MibUtf8 = 106;

bool isAscii(const char *bytes, std::size_t length)
{
    for (std::size_t i = 0; i < length; ++i) {
        if (static_cast<unsigned char>(bytes[i]) >= 0x80)
            return false;
    }
    return true;
}

} // namespace

LocalFileNames::LocalFileNames()
{
    // The MIBenum values are the ones Qt's own listing distinguishes.
    const QTextCodec *codec = QTextCodec::codecForLocale();
    const int mib = codec ? codec->mibEnum() : MibLatin1;
    if (mib == MibUtf8)
        m_codec = Codec::Utf8;
    else if (mib == MibUsAscii)
        m_codec = Codec::Ascii;
    else if (mib == MibLatin1)
        m_codec = Codec::Latin1;
    else
        m_codec = Codec::Other;
}

bool LocalFileNames::isListed(const char *name, std::size_t length) const
{
    switch (m_codec) {
    case Codec::Utf8:
        return isValidUtf8(name, length);
    case Codec::Ascii:
        return isAscii(name, length);
    case Codec::Latin1:
        return true;
    case Codec::Other:
        break;
    }
    if (isAscii(name, length))
        return true;
    // Rare locales: ask the codec itself, as Qt does.
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    QTextCodec::codecForLocale()->toUnicode(name, int(length), &state);
    return state.invalidChars == 0 && state.remainingChars == 0;
}

bool LocalFileNames::isValidUtf8(const char *bytes, std::size_t length)
{
    const auto *p = reinterpret_cast<const unsigned char *>(bytes);
    const unsigned char *end = p + length;
    while (p < end) {
        const unsigned char lead = *p;
        if (lead < 0x80) {
            ++p;
            continue;
        }
        int trailing;
        unsigned char low = 0x80; // bounds of the first continuation byte
        unsigned char high = 0xbf;
        if (lead >= 0xc2 && lead <= 0xdf) {
            trailing = 1;
        } else if (lead >= 0xe0 && lead <= 0xef) {
            trailing = 2;
            if (lead == 0xe0)
                low = 0xa0; // overlong
            else if (lead == 0xed)
                high = 0x9f; // surrogates
        } else if (lead >= 0xf0 && lead <= 0xf4) {
            trailing = 3;
            if (lead == 0xf0)
                low = 0x90; // overlong
            else if (lead == 0xf4)
                high = 0x8f; // above U+10FFFF
        } else {
            return false;
        }
        if (end - p <= trailing)
            return false;
        if (p[1] < low || p[1] > high)
            return false;
        for (int i = 2; i <= trailing; ++i) {
            if ((p[i] & 0xc0) != 0x80)
                return false;
        }
        p += trailing + 1;
    }
    return true;
}
