// SPDX-License-Identifier: BSD-3-Clause
// FontInfo against the real fontconfig library, each case under a font
// configuration of its own.
#include "fontinfo.h"

#include "fontfixture.h"
#include "messagecapture.h"

#include <QtTest>

#include <fontconfig/fontconfig.h>

namespace {

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

// Makes the fixture's configuration the process's current one. FontInfo never
// reloads it (it initialises fontconfig once), so a test switches it for it.
bool useConfiguration(const FontFixture &fixture)
{
    qputenv("FONTCONFIG_FILE", fixture.configFile().toUtf8());
    return FcInitReinitialize();
}

} // namespace

class TestFontInfo : public QObject
{
    Q_OBJECT

    FontFixture standard;

private slots:
    void initTestCase()
    {
        QVERIFY2(QFile::exists(FontFixture::sourceFont()), "needs Debian's fonts-dejavu-core");
        QVERIFY(standard.create({QStringLiteral("DejaVuSans-Bold.ttf"), QStringLiteral("a.b.ttf")}));
        // Before anything initialises fontconfig: FontInfo's own initialisation
        // is to load this file.
        qputenv("FONTCONFIG_FILE", standard.configFile().toUtf8());
    }

    void listsFileBaseNames()
    {
        MessageCapture capture;
        FontInfo info;
        QCOMPARE(sorted(info.getFontNames()), QStringList({QStringLiteral("DejaVuSans-Bold"), QStringLiteral("a")}));
        QVERIFY(capture.messages().isEmpty());
    }

    void listsFamilyNames()
    {
        MessageCapture capture;
        FontInfo info;
        // Both files carry the same family; fontconfig lists the family once.
        QCOMPARE(info.getFontFamilyNames(), QStringList({QStringLiteral("DejaVu Sans")}));
        QVERIFY(capture.messages().isEmpty());
    }

    void oneEntryPerFontPattern()
    {
        // The same base name in two directories, and two fonts whose first
        // family is the same but whose family lists differ: fontconfig gives a
        // pattern for each, and every pattern is one entry.
        FontFixture fixture;
        QVERIFY(fixture.create({QStringLiteral("DejaVuSans-Bold.ttf"), QStringLiteral("sub/DejaVuSans-Bold.ttf")},
                               FontFixture::familyRule(QStringLiteral("append_last"), QStringLiteral("Second Name"),
                                                       QStringLiteral("sub/DejaVuSans-Bold.ttf"))));
        QVERIFY(useConfiguration(fixture));
        FontInfo info;
        QCOMPARE(info.getFontNames(), QStringList({QStringLiteral("DejaVuSans-Bold"), QStringLiteral("DejaVuSans-Bold")}));
        QCOMPARE(info.getFontFamilyNames(), QStringList({QStringLiteral("DejaVu Sans"), QStringLiteral("DejaVu Sans")}));
    }

    void familyNamesAreCutLikeFileNames()
    {
        FontFixture fixture;
        QVERIFY(fixture.create({QStringLiteral("DejaVuSans-Bold.ttf"), QStringLiteral("a.b.ttf")},
                               FontFixture::familyRule(QStringLiteral("assign_replace"), QStringLiteral("Foo 1.5"),
                                                       QStringLiteral("a.b.ttf"))));
        QVERIFY(useConfiguration(fixture));
        FontInfo info;
        QCOMPARE(sorted(info.getFontFamilyNames()), QStringList({QStringLiteral("DejaVu Sans"), QStringLiteral("Foo 1")}));
    }

    void readsNamesAsUtf8()
    {
        FontFixture fixture;
        QVERIFY(fixture.create({QStringLiteral("Шрифт.ttf")},
                               FontFixture::familyRule(QStringLiteral("assign_replace"), QStringLiteral("Шрифт 2.0"))));
        QVERIFY(useConfiguration(fixture));
        FontInfo info;
        QCOMPARE(info.getFontNames(), QStringList({QStringLiteral("Шрифт")}));
        QCOMPARE(info.getFontFamilyNames(), QStringList({QStringLiteral("Шрифт 2")}));
    }

    void noFontsGivesEmptyListsQuietly()
    {
        FontFixture fixture;
        QVERIFY(fixture.create({}));
        QVERIFY(useConfiguration(fixture));
        MessageCapture capture;
        FontInfo info;
        QCOMPARE(info.getFontNames(), QStringList());
        QCOMPARE(info.getFontFamilyNames(), QStringList());
        QVERIFY(capture.messages().isEmpty());
    }

    void severalInstancesShareTheConfiguration()
    {
        QVERIFY(useConfiguration(standard));
        auto *first = new FontInfo;
        FontInfo second;
        delete first;
        QCOMPARE(sorted(second.getFontNames()), QStringList({QStringLiteral("DejaVuSans-Bold"), QStringLiteral("a")}));
    }

    void baseName_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QString>("expected");
        QTest::newRow("family with a dot") << QByteArray("Foo 1.5") << QStringLiteral("Foo 1");
        QTest::newRow("family without a dot") << QByteArray("DejaVu Sans") << QStringLiteral("DejaVu Sans");
        QTest::newRow("family with a slash") << QByteArray("AC/DC Sans") << QStringLiteral("DC Sans");
        QTest::newRow("file path") << QByteArray("/usr/share/fonts/DejaVuSans-Bold.ttf") << QStringLiteral("DejaVuSans-Bold");
        QTest::newRow("two dots") << QByteArray("/fonts/a.b.ttf") << QStringLiteral("a");
        QTest::newRow("dot in a directory") << QByteArray("/fonts.d/x/Name.otf") << QStringLiteral("Name");
        QTest::newRow("leading dot") << QByteArray(".hidden.ttf") << QString();
        QTest::newRow("trailing slash") << QByteArray("dir/") << QString();
        QTest::newRow("empty") << QByteArray("") << QString();
        QTest::newRow("UTF-8") << QByteArray("Шрифт 2.0") << QStringLiteral("Шрифт 2");
        QTest::newRow("not UTF-8") << QByteArray("\xff\xfe") << QString::fromUtf8("\xff\xfe");
    }

    void baseName()
    {
        QFETCH(QByteArray, value);
        QFETCH(QString, expected);
        QCOMPARE(FontInfo::baseName(value.constData()), expected);
    }
};

QTEST_GUILESS_MAIN(TestFontInfo)
#include "tst_fontinfo.moc"
