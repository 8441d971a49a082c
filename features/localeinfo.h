// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_LOCALEINFO_H
#define PLINTHD_LOCALEINFO_H

#include <QObject>
#include <QString>
#include <QStringList>

#include <set>

class UserManagerClient;

// The active user's locale, asked of the user manager on every call, and the
// locales this system can serve: those the framework knows that also have a
// prebuilt directory on disk.
class LocaleInfo : public QObject
{
    Q_OBJECT

public:
    LocaleInfo();
    ~LocaleInfo() override;

    QString getLocale();
    QStringList getLocales();

private:
    // Read once: locale directories that appear later are seen after a restart.
    std::set<QString> installedLocales;
    UserManagerClient *userManager = nullptr;

    Q_DISABLE_COPY(LocaleInfo)
};

#endif // PLINTHD_LOCALEINFO_H
