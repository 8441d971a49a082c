// SPDX-License-Identifier: BSD-3-Clause
#include "fontinfo.h"

#include "logging.h"

#include <QFileInfo>

#include <memory>

#if defined(__SANITIZE_ADDRESS__)
#define PLINTHD_LEAK_CHECKER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(leak_sanitizer)
#define PLINTHD_LEAK_CHECKER 1
#endif
#endif
#ifdef PLINTHD_LEAK_CHECKER
#include <sanitizer/lsan_interface.h>
#endif

namespace {

// Fontconfig's objects are released through these on every path out of a listing.
struct ObjectSetDeleter
{
    void operator()(FcObjectSet *set) const { FcObjectSetDestroy(set); }
};
struct FontSetDeleter
{
    void operator()(FcFontSet *set) const { FcFontSetDestroy(set); }
};

// The configuration is kept for the life of the process and never finalised:
// other code in the process may still hold fontconfig objects. Inside it
// fontconfig links some blocks by offsets instead of pointers, which a leak
// checker cannot follow, so it would report them at exit; the objects this
// class makes and releases itself stay checked.
bool initFontconfig()
{
#ifdef PLINTHD_LEAK_CHECKER
    const __lsan::ScopedDisabler keptForTheProcess;
#endif
    return FcInit();
}

} // namespace

FontconfigStart::FontconfigStart()
    : m_task([this] { m_initialised = initFontconfig(); })
{
}

bool FontconfigStart::succeeded()
{
    m_task.wait();
    return m_initialised;
}

FontInfo::FontInfo()
    : FontInfo(FontconfigStart())
{
}

FontInfo::FontInfo(FontconfigStart &&start)
{
    if (start.succeeded())
        setPattern(FcPatternCreate());
    else
        qCWarning(lcPlinthd) << "Font configuration is not initialized";
}

FontInfo::~FontInfo()
{
    setPattern(nullptr);
}

QStringList FontInfo::getFontNames()
{
    return listFontProperty(FC_FILE);
}

QStringList FontInfo::getFontFamilyNames()
{
    return listFontProperty(FC_FAMILY);
}

QString FontInfo::baseName(const char *value)
{
    return QFileInfo(QString::fromUtf8(value)).baseName();
}

QStringList FontInfo::listFontProperty(const char *object)
{
    QStringList values;
    if (!pattern) {
        qCWarning(lcPlinthd) << "Font configuration is not initialized";
        return values;
    }

    const std::unique_ptr<FcObjectSet, ObjectSetDeleter> objectSet(FcObjectSetBuild(object, nullptr));
    if (!objectSet) {
        qCWarning(lcPlinthd) << "Can't create an instance of FcObjectSet";
        return values;
    }

    const std::unique_ptr<FcFontSet, FontSetDeleter> fontSet(FcFontList(nullptr, pattern, objectSet.get()));
    if (!fontSet) {
        qCWarning(lcPlinthd) << "Can't create an instance of FcFontSet";
        return values;
    }

    values.reserve(fontSet->nfont);
    for (int i = 0; i < fontSet->nfont; ++i) {
        FcChar8 *value = nullptr;
        if (FcPatternGetString(fontSet->fonts[i], object, 0, &value) == FcResultMatch)
            values.append(baseName(reinterpret_cast<const char *>(value)));
        else
            qCWarning(lcPlinthd) << "Can't get string filed from FcPattern";
    }
    return values;
}

void FontInfo::setPattern(FcPattern *newPattern)
{
    if (pattern)
        FcPatternDestroy(pattern);
    pattern = newPattern;
}
