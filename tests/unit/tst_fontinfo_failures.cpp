// SPDX-License-Identifier: BSD-3-Clause
// FontInfo when fontconfig fails. Fontconfig cannot be made to fail these calls
// from the outside (they fail on allocation errors), so this program defines the
// few entry points it breaks: the linker binds FontInfo's calls to these, which
// hand over to the real library unless a test switched a failure on.
#include "fontinfo.h"

#include "fontfixture.h"
#include "messagecapture.h"

#include <QtTest>

#include <cstdarg>
#include <dlfcn.h>
#include <fontconfig/fontconfig.h>

namespace {

bool failInit = false;
bool failObjectSet = false;
bool failFontList = false;
bool appendFontWithoutValues = false;

template<typename Function>
Function realFunction(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

FcBool FcInit(void)
{
    static const auto real = realFunction<FcBool (*)(void)>("FcInit");
    return failInit ? FcFalse : real();
}

FcObjectSet *FcObjectSetBuild(const char *first, ...)
{
    if (failObjectSet)
        return nullptr;
    va_list args;
    va_start(args, first);
    FcObjectSet *set = FcObjectSetVaBuild(first, args);
    va_end(args);
    return set;
}

FcFontSet *FcFontList(FcConfig *config, FcPattern *pattern, FcObjectSet *objects)
{
    static const auto real = realFunction<FcFontSet *(*)(FcConfig *, FcPattern *, FcObjectSet *)>("FcFontList");
    if (failFontList)
        return nullptr;
    FcFontSet *set = real(config, pattern, objects);
    if (set && appendFontWithoutValues) {
        FcPattern *empty = FcPatternCreate();
        if (!FcFontSetAdd(set, empty))
            FcPatternDestroy(empty);
    }
    return set;
}

} // extern "C"

class TestFontInfoFailures : public QObject
{
    Q_OBJECT

    FontFixture fixture;

    static bool onlyWarnings(const MessageCapture &capture, const QString &text, int count)
    {
        if (capture.messages().size() != count)
            return false;
        for (const MessageCapture::Message &message : capture.messages()) {
            if (message.type != QtWarningMsg || message.category != "plinthd" || message.text != text)
                return false;
        }
        return true;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(realFunction<void *>("FcInit") && realFunction<void *>("FcFontList"));
        QVERIFY(fixture.create({QStringLiteral("DejaVuSans-Bold.ttf")}));
        qputenv("FONTCONFIG_FILE", fixture.configFile().toUtf8());
    }

    void cleanup()
    {
        failInit = failObjectSet = failFontList = appendFontWithoutValues = false;
    }

    // Runs first, while fontconfig has never been initialised in this process.
    void initFailureLeavesEveryCallEmpty()
    {
        failInit = true;
        MessageCapture capture;
        FontInfo info;
        failInit = false;
        QVERIFY(onlyWarnings(capture, QStringLiteral("Font configuration is not initialized"), 1));
        // Fontconfig works now, but the instance keeps no pattern and does not retry.
        QCOMPARE(info.getFontNames(), QStringList());
        QCOMPARE(info.getFontFamilyNames(), QStringList());
        QVERIFY(onlyWarnings(capture, QStringLiteral("Font configuration is not initialized"), 3));
    }

    void workingConfigurationForComparison()
    {
        MessageCapture capture;
        FontInfo info;
        QCOMPARE(info.getFontNames(), QStringList({QStringLiteral("DejaVuSans-Bold")}));
        QVERIFY(capture.messages().isEmpty());
    }

    void objectSetFailure()
    {
        FontInfo info;
        failObjectSet = true;
        MessageCapture capture;
        QCOMPARE(info.getFontNames(), QStringList());
        QCOMPARE(info.getFontFamilyNames(), QStringList());
        QVERIFY(onlyWarnings(capture, QStringLiteral("Can't create an instance of FcObjectSet"), 2));
    }

    // The object set made before the failure must still be released; the
    // AddressSanitizer build reports it as a leak otherwise.
    void fontListFailure()
    {
        FontInfo info;
        failFontList = true;
        MessageCapture capture;
        QCOMPARE(info.getFontNames(), QStringList());
        QCOMPARE(info.getFontFamilyNames(), QStringList());
        QVERIFY(onlyWarnings(capture, QStringLiteral("Can't create an instance of FcFontSet"), 2));
    }

    void fontWithoutTheValueIsSkipped()
    {
        FontInfo info;
        appendFontWithoutValues = true;
        MessageCapture capture;
        QCOMPARE(info.getFontNames(), QStringList({QStringLiteral("DejaVuSans-Bold")}));
        QCOMPARE(info.getFontFamilyNames(), QStringList({QStringLiteral("DejaVu Sans")}));
        QVERIFY(onlyWarnings(capture, QStringLiteral("Can't get string filed from FcPattern"), 2));
    }
};

QTEST_GUILESS_MAIN(TestFontInfoFailures)
#include "tst_fontinfo_failures.moc"
