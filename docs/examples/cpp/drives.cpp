// SPDX-License-Identifier: BSD-3-Clause
//
// Follows the external drives with Qt: lists them, then prints every
// externalDriveChanged signal as it comes.
//
//   plinth-example-drives [COUNT]
//
// stops after COUNT signals (without COUNT it runs until it is interrupted).
//
// The signal carries the drive map of the drive whose partition changed,
// with all its partitions. An empty map announces that a drive has gone, but
// not which one: the program asks for the list again to find out.

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusReply>
#include <QObject>
#include <QTextStream>

namespace {

const QString Service = QStringLiteral("org.norvu.plinth");
const QString Path = QStringLiteral("/org/norvu/plinth/Storages");
const QString Interface = QStringLiteral("org.norvu.plinth.Storages");

// A map inside a variant arrives as a QDBusArgument; "partitionsInfo" is
// such a list of maps (aa{sv}).
QList<QVariantMap> partitions(const QVariantMap &drive)
{
    QList<QVariantMap> list;
    const QVariant value = drive.value(QStringLiteral("partitionsInfo"));
    if (value.canConvert<QDBusArgument>())
        value.value<QDBusArgument>() >> list;
    else
        list = qvariant_cast<QList<QVariantMap>>(value);
    return list;
}

QString describe(const QVariantMap &drive)
{
    QString text = drive.value(QStringLiteral("driveName")).toString() + QStringLiteral(" (")
        + drive.value(QStringLiteral("driveType")).toString() + QStringLiteral(")");
    for (const QVariantMap &partition : partitions(drive)) {
        const QString mountPoint = partition.value(QStringLiteral("mountPoint")).toString();
        text += QStringLiteral(", ") + partition.value(QStringLiteral("partitionName")).toString() + QStringLiteral(": ")
            // Partition sizes are signed ("x").
            + (mountPoint.isEmpty() ? QStringLiteral("not mounted")
                                    : QString::number(partition.value(QStringLiteral("bytesAvailable")).toLongLong())
                       + QStringLiteral(" bytes free at ") + mountPoint);
    }
    return text;
}

} // namespace

class DriveFollower : public QObject
{
    Q_OBJECT
public:
    DriveFollower(QDBusConnection bus, int count)
        : m_bus(bus), m_left(count)
    {
    }

    bool start()
    {
        // Subscribe first, then ask: no change can fall in between.
        if (!m_bus.connect(Service, Path, Interface, QStringLiteral("externalDriveChanged"), this,
                           SLOT(driveChanged(QVariantMap)))) {
            QTextStream(stderr) << "cannot subscribe: " << m_bus.lastError().message() << '\n';
            return false;
        }
        return list();
    }

private slots:
    void driveChanged(const QVariantMap &drive)
    {
        QTextStream out(stdout);
        if (drive.isEmpty())
            out << "removed: a drive has gone\n";
        else
            out << "changed: " << describe(drive) << '\n';
        out.flush();
        if (drive.isEmpty() && !list())
            QCoreApplication::exit(1);
        if (m_left > 0 && --m_left == 0)
            QCoreApplication::quit();
    }

private:
    bool list()
    {
        // Quick (only the external partitions are sized): the default
        // time-out is enough.
        const QDBusReply<QList<QVariantMap>> drives = m_bus.call(
            QDBusMessage::createMethodCall(Service, Path, Interface, QStringLiteral("getExternalStorageDrivesInfo")));
        if (!drives.isValid()) {
            QTextStream(stderr) << "getExternalStorageDrivesInfo: " << drives.error().message() << '\n';
            return false;
        }
        QTextStream out(stdout);
        out << "drives: " << drives.value().size() << '\n';
        for (const QVariantMap &drive : drives.value())
            out << "  " << describe(drive) << '\n';
        out.flush();
        return true;
    }

    QDBusConnection m_bus;
    int m_left;
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    qDBusRegisterMetaType<QList<QVariantMap>>();
    const int count = argc > 1 ? QString::fromLocal8Bit(argv[1]).toInt() : 0;
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected()) {
        QTextStream(stderr) << "no system bus: " << bus.lastError().message() << '\n';
        return 1;
    }
    DriveFollower follower(bus, count);
    if (!follower.start())
        return 1;
    return app.exec();
}

#include "drives.moc"
