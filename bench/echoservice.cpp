// SPDX-License-Identifier: BSD-3-Clause
// The reference for the Features benchmark: the least a Qt D-Bus service can
// do to answer a call, on the same bus and driven by the same client as the
// daemon. It owns "org.norvu.plinth.bench.Echo" on the system bus (whatever
// DBUS_SYSTEM_BUS_ADDRESS names) and answers echo() with a constant string.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QObject>

#include <cstdio>

class EchoService : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.norvu.plinth.bench.Echo")

public slots:
    QString echo() { return QStringLiteral("Cortex-A53"); }
};

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QDBusConnection bus = QDBusConnection::systemBus();
    EchoService echo;
    if (!bus.registerObject(QStringLiteral("/org/norvu/plinth/bench/Echo"), &echo, QDBusConnection::ExportAllSlots)
        || !bus.registerService(QStringLiteral("org.norvu.plinth.bench.Echo"))) {
        std::fprintf(stderr, "echoservice: cannot register on the system bus\n");
        return 1;
    }
    return app.exec();
}

#include "echoservice.moc"
