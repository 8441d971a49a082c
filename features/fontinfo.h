// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_FONTINFO_H
#define PLINTHD_FONTINFO_H

#include <QString>
#include <QStringList>

#include <fontconfig/fontconfig.h>

// The fonts installed on the device, as fontconfig lists them under the
// configuration loaded at start-up.
class FontInfo
{
public:
    FontInfo();
    virtual ~FontInfo();

    // One entry per font, in fontconfig's order, neither sorted nor merged.
    QStringList getFontNames();
    QStringList getFontFamilyNames();

    // The part of the last path component before its first dot. Applied to
    // family names too, so "Foo 1.5" comes out as "Foo 1": callers rely on both
    // lists being cut the same way.
    static QString baseName(const char *value);

private:
    QStringList listFontProperty(const char *object);
    void setPattern(FcPattern *newPattern);

    // Empty, so it matches every font; none when fontconfig failed to start.
    FcPattern *pattern = nullptr;

    Q_DISABLE_COPY(FontInfo)
};

#endif // PLINTHD_FONTINFO_H
