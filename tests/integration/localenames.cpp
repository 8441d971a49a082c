// SPDX-License-Identifier: BSD-3-Clause
// Prints the name of every locale the framework knows, one a line, in the
// framework's own order, so the locale tests can work out the order they must
// see from the daemon instead of assuming one.
#include <QLocale>

#include <cstdio>

int main()
{
    const QList<QLocale> locales = QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript,
                                                            QLocale::AnyCountry);
    for (const QLocale &locale : locales)
        std::printf("%s\n", locale.name().toUtf8().constData());
    return 0;
}
