#include <mgconfitem.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

// The settings store is the real one: a dconf system database compiled by
// "dconf update" and announced on the (private) system bus. The test runs in a
// mount namespace of its own with a tmpfs over /etc/dconf, so the machine's
// configuration is never touched.
namespace {

const QString DconfDir = QStringLiteral("/etc/dconf");
const QString Database = QStringLiteral("plinthtest");
bool namespaceReady = false;

// Before QCoreApplication and before any thread exists: a mount namespace
// belongs to the thread that makes it, and every thread must see the tmpfs.
void enterPrivateDconf()
{
    if (geteuid() != 0 || !QDir(DconfDir).exists())
        return;
    if (unshare(CLONE_NEWNS) != 0)
        return;
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return;
    if (mount("tmpfs", "/etc/dconf", "tmpfs", 0, "mode=0755") != 0)
        return;
    QDir(DconfDir).mkpath(QStringLiteral("profile"));
    QDir(DconfDir).mkpath(QStringLiteral("db/") + Database + QStringLiteral(".d"));
    QFile profile(DconfDir + QStringLiteral("/profile/") + Database);
    if (!profile.open(QIODevice::WriteOnly))
        return;
    profile.write("system-db:" + Database.toUtf8() + "\n");
    profile.close();
    qputenv("DCONF_PROFILE", Database.toUtf8());
    namespaceReady = true;
}

} // namespace

class TestMGConfItem : public QObject
{
    Q_OBJECT

private:
    // Writes the database's only keyfile and compiles it; dconf update then
    // announces the change on the system bus.
    void writeSettings(const QByteArray &keyfile)
    {
        QFile file(DconfDir + QStringLiteral("/db/") + Database + QStringLiteral(".d/10-test"));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(keyfile);
        file.close();
        QProcess update;
        update.start(QStringLiteral("dconf"), {QStringLiteral("update")});
        QVERIFY(update.waitForFinished(10000));
        QCOMPARE(update.exitCode(), 0);
    }

private slots:
    void initTestCase()
    {
        if (!namespaceReady)
            QSKIP("needs root and /etc/dconf for a private dconf database");
        writeSettings(QByteArray());
    }

    void init()
    {
        writeSettings(QByteArray());
    }

    void unsetKeyIsInvalid()
    {
        MGConfItem item(QStringLiteral("/veska/ofono/voice_sim_usage_mode"));
        QVERIFY(!item.value().isValid());
        QCOMPARE(item.value(7), QVariant(7));
        QCOMPARE(item.key(), QStringLiteral("/veska/ofono/voice_sim_usage_mode"));
    }

    void valueIsReadAtConstruction()
    {
        writeSettings("[veska/ofono]\nvoice_sim_usage_mode=1\n");
        MGConfItem item(QStringLiteral("/veska/ofono/voice_sim_usage_mode"));
        QCOMPARE(item.value(), QVariant(1));
    }

    void changeIsNotified()
    {
        MGConfItem item(QStringLiteral("/veska/ofono/voice_sim_usage_mode"));
        QSignalSpy spy(&item, &MGConfItem::valueChanged);
        writeSettings("[veska/ofono]\nvoice_sim_usage_mode=1\n");
        QTRY_COMPARE(spy.count(), 1);
        QCOMPARE(item.value(), QVariant(1));
    }
};

int main(int argc, char *argv[])
{
    enterPrivateDconf();
    QCoreApplication app(argc, argv);
    TestMGConfItem test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_mgconfitem.moc"
