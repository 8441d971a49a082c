// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TESTS_FONTFIXTURE_H
#define PLINTHD_TESTS_FONTFIXTURE_H

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// A fontconfig configuration of a test's own: one font directory holding copies
// of a Debian font under the names the test chooses, and a cache directory, so
// nothing is read from or written to the system's font setup.
class FontFixture
{
public:
    static QString sourceFont() { return QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf"); }

    // copies: paths relative to the font directory, subdirectories allowed.
    // rules: extra elements placed inside <fontconfig>; "@FONTS@" stands for
    // the font directory.
    bool create(const QStringList &copies, const QString &rules = QString())
    {
        if (!dir.isValid())
            return false;
        const QString fonts = fontDirectory();
        if (!QDir().mkpath(fonts))
            return false;
        for (const QString &copy : copies) {
            const QString target = fonts + QLatin1Char('/') + copy;
            if (!QDir().mkpath(QFileInfo(target).path()) || !QFile::copy(sourceFont(), target))
                return false;
        }
        QString text = QStringLiteral("<?xml version=\"1.0\"?>\n"
                                      "<!DOCTYPE fontconfig SYSTEM \"urn:fontconfig:fonts.dtd\">\n"
                                      "<fontconfig>\n"
                                      "  <dir>%1</dir>\n"
                                      "  <cachedir>%2</cachedir>\n"
                                      "%3"
                                      "</fontconfig>\n")
                           .arg(fonts, dir.filePath(QStringLiteral("cache")), rules);
        text.replace(QStringLiteral("@FONTS@"), fonts);
        QFile file(configFile());
        return file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) == text.toUtf8().size();
    }

    // A rule that edits the family of the fonts as fontconfig scans them, of
    // one file when `file` (relative to the font directory) is given, of all
    // otherwise: how a test gets families of its choosing out of one font.
    static QString familyRule(const QString &mode, const QString &family, const QString &file = QString())
    {
        const QString test = file.isEmpty()
                ? QString()
                : QStringLiteral("<test name=\"file\"><string>@FONTS@/%1</string></test>").arg(file);
        return QStringLiteral("<match target=\"scan\">%1<edit name=\"family\" mode=\"%2\"><string>%3</string></edit>"
                              "</match>\n")
                .arg(test, mode, family);
    }

    QString fontDirectory() const { return dir.filePath(QStringLiteral("fonts")); }
    QString configFile() const { return dir.filePath(QStringLiteral("fonts.conf")); }

private:
    QTemporaryDir dir;
};

#endif // PLINTHD_TESTS_FONTFIXTURE_H
