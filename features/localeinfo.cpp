// SPDX-License-Identifier: BSD-3-Clause
#include "localeinfo.h"

#include "usermanagerclient.h"

#include <QDBusMessage>
#include <QDir>
#include <QLocale>

namespace {

const QString LocaleDirectory = QStringLiteral("/usr/lib/locale");
const QString FallbackLocale = QStringLiteral("C");

// The first argument of a reply, converted when the peer sent another type; a
// value that does not convert reads as the type's empty value.
template<typename T>
T firstArgument(const QDBusMessage &reply)
{
    return reply.arguments().value(0).value<T>();
}

} // namespace

LocaleInfo::LocaleInfo()
    : QObject(nullptr)
    , userManager(new UserManagerClient(this))
{
    // The names go in as listed, "." and ".." included: they can never equal a
    // framework locale name, so they cost nothing, and the directory names are
    // matched exactly, suffixes and all.
    const QStringList entries = QDir(LocaleDirectory).entryList(QDir::Dirs, QDir::NoSort);
    for (const QString &entry : entries)
        installedLocales.insert(entry);
}

LocaleInfo::~LocaleInfo() = default;

void LocaleInfo::getLocale(const LocaleAnswer &answer)
{
    userManager->currentUser([this, answer](const QDBusMessage &uidReply) {
        if (uidReply.type() == QDBusMessage::ErrorMessage) {
            qWarning("Unable to obtain current user UID");
            answer(FallbackLocale);
            return;
        }
        askLocaleOf(firstArgument<uint>(uidReply), answer);
    });
}

void LocaleInfo::askLocaleOf(uint uid, const LocaleAnswer &answer)
{
    userManager->userLocale(uid, [answer](const QDBusMessage &localeReply) {
        if (localeReply.type() == QDBusMessage::ErrorMessage) {
            qWarning("Unable to obtain current user locale");
            answer(FallbackLocale);
            return;
        }
        // Callers expect the bare locale name; only the lower-case codeset
        // suffix that the user manager stores is dropped, other spellings pass
        // unchanged.
        answer(firstArgument<QString>(localeReply).remove(QStringLiteral(".utf8"), Qt::CaseSensitive));
    });
}

QStringList LocaleInfo::getLocales()
{
    QStringList locales;
    const QList<QLocale> known = QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript,
                                                          QLocale::AnyCountry);
    for (const QLocale &locale : known) {
        const QString name = locale.name();
        if (installedLocales.count(name) > 0)
            locales.append(name);
    }
    return locales;
}
