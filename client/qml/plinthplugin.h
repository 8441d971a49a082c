// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHQML_PLINTHPLUGIN_H
#define PLINTHQML_PLINTHPLUGIN_H

#include <QQmlExtensionPlugin>

namespace PlinthQml {

// The QML module org.norvu.plinth 1.0, on the client library.
class PlinthPlugin : public QQmlExtensionPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QQmlExtensionInterface_iid)

public:
    void registerTypes(const char *uri) override;
};

} // namespace PlinthQml

#endif // PLINTHQML_PLINTHPLUGIN_H
