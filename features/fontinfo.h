// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_FONTINFO_H
#define PLINTHD_FONTINFO_H

#include "startuptask.h"

#include <QString>
#include <QStringList>

#include <fontconfig/fontconfig.h>

// Fontconfig's own start: reading its configuration and the caches of every
// font folder, several milliseconds that nothing else of the daemon's start
// needs. It runs as a StartupTask from the moment this is made until
// succeeded() takes its outcome. Nothing else touches fontconfig meanwhile.
class FontconfigStart
{
public:
    FontconfigStart();

    // Waits for the start to finish: whether fontconfig is ready for use.
    bool succeeded();

private:
    // Written by the task, read once it has been waited for.
    bool m_initialised = false;
    StartupTask m_task;

    Q_DISABLE_COPY(FontconfigStart)
};

// The fonts installed on the device, as fontconfig lists them under the
// configuration loaded at start-up.
class FontInfo
{
public:
    // Starts fontconfig and waits for it.
    FontInfo();
    // Takes fontconfig as a start begun earlier left it.
    explicit FontInfo(FontconfigStart &&start);
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
