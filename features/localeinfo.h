// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_LOCALEINFO_H
#define PLINTHD_LOCALEINFO_H

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <set>

class UserManagerClient;

// The active user's locale, asked of the user manager for every call, and the
// locales this system can serve: those the framework knows that also have a
// prebuilt directory on disk.
//
// The locale is answered later, from the main thread's event loop, once the
// user manager has answered both questions (or failed to). Callers that ask
// while a question is on its way share its round trip, so an answer is at
// most one round trip old.
class LocaleInfo : public QObject
{
    Q_OBJECT

public:
    LocaleInfo();
    ~LocaleInfo() override;

    using LocaleAnswer = std::function<void(const QString &locale)>;

    // Main thread only; `answer` runs exactly once, unless this object goes
    // first.
    void getLocale(const LocaleAnswer &answer);
    QStringList getLocales();

private:
    void askLocaleOf(uint uid, const LocaleAnswer &answer);

    // Read once: locale directories that appear later are seen after a restart.
    std::set<QString> installedLocales;
    UserManagerClient *userManager = nullptr;

    Q_DISABLE_COPY(LocaleInfo)
};

#endif // PLINTHD_LOCALEINFO_H
