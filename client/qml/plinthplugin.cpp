// SPDX-License-Identifier: BSD-3-Clause
#include "plinthplugin.h"

#include "externaldrives.h"
#include "features.h"
#include "simcards.h"
#include "storageobjects.h"

#include <QQmlEngine>

namespace PlinthQml {

namespace {

constexpr int MajorVersion = 1;
constexpr int MinorVersion = 0;

} // namespace

void PlinthPlugin::registerTypes(const char *uri)
{
    Q_ASSERT(qstrcmp(uri, "org.norvu.plinth") == 0);
    // One per engine, made when QML first names it; the engine owns it.
    qmlRegisterSingletonType<Features>(uri, MajorVersion, MinorVersion, "Features",
                                       [](QQmlEngine *, QJSEngine *) -> QObject * { return new Features; });
    qmlRegisterType<SimCards>(uri, MajorVersion, MinorVersion, "SimCards");
    qmlRegisterType<ExternalDrives>(uri, MajorVersion, MinorVersion, "ExternalDrives");
    qmlRegisterType<InternalStorage>(uri, MajorVersion, MinorVersion, "InternalStorage");
    qmlRegisterType<UserPartition>(uri, MajorVersion, MinorVersion, "UserPartition");
    qmlRegisterType<SystemStorage>(uri, MajorVersion, MinorVersion, "SystemStorage");
    qmlRegisterType<ExternalStorage>(uri, MajorVersion, MinorVersion, "ExternalStorage");
}

} // namespace PlinthQml
