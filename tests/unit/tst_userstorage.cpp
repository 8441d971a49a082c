// SPDX-License-Identifier: BSD-3-Clause
// The per-user breakdown of the user partition and the quota report, on a
// real /home and a real account database: in the private mount namespace
// CTest runs it in (needs root), with a tmpfs on /home and its own /etc/passwd. Quotas come through a fake source: the kernels here have no
// quota support.
#include "deviceusers.h"
#include "mountnamespace.h"
#include "testfiles.h"
#include "foldersizes.h"
#include "folderwatches.h"
#include "quotasource.h"
#include "storagemaps.h"
#include "userquotareport.h"
#include "userstoragebreakdown.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

namespace {

class FakeQuotaSource : public QuotaSource
{
public:
    QMap<uint, quint64> softLimits; // uids missing here: the kernel does not answer
    mutable QList<QByteArray> devices;

    std::optional<quint64> userBlockSoftLimit(const QByteArray &device, uint uid) const override
    {
        devices.append(device);
        if (!softLimits.contains(uid))
            return std::nullopt;
        return softLimits.value(uid);
    }
};

bool run(const QString &program, const QStringList &arguments)
{
    return QProcess::execute(program, arguments) == 0;
}

SpaceFigures space(quint64 used, quint64 total, quint64 available)
{
    SpaceFigures figures;
    figures.used = used;
    figures.total = total;
    figures.available = available;
    return figures;
}

// One measure of folders for the whole program, as the daemon has: the
// folders it keeps must follow every change the tests make between them.
FolderSizes &keptFolders()
{
    static FolderWatches watches(FolderWatches::DefaultMaxWatches);
    static FolderSizes folders(watches);
    return folders;
}

// The breakdown as the user-partition answer carries it.
QVariantMap breakdownMap(const QuotaSource &quotas, uint uid, const SpaceFigures &partition)
{
    QVariantMap map;
    StorageMaps::addUserBreakdown(map, UserStorageBreakdown(quotas, keptFolders()).measure(uid, partition));
    return map;
}

} // namespace

class TestUserStorage : public QObject
{
    Q_OBJECT

    QTemporaryDir m_scratch;
    QString m_passwd;

    void setUsers(const QList<QPair<uint, QString>> &users)
    {
        QByteArray text = "root:x:0:0:root:/root:/bin/sh\n";
        for (const auto &user : users)
            text += QStringLiteral("%1:x:%2:%2::/home/%1:/bin/sh\n").arg(user.second).arg(user.first).toUtf8();
        QFile file(m_passwd);
        // Rewritten in place: the bind mount follows the inode.
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.resize(0));
        QVERIFY(file.write(text) == text.size());
    }

    // Alice (owner) and Bob with files in their folders and elsewhere in /home.
    void makeHomes()
    {
        TestFiles::makeDirectory("/home/alice", 100000);
        TestFiles::write("/home/alice/Pictures/a.jpg", 1000, 100000);
        TestFiles::write("/home/alice/Pictures/given.jpg", 4000, 100001); // another owner: not hers
        TestFiles::write("/home/alice/Music/song", 200, 100000);
        TestFiles::write("/home/alice/Downloads/.partial", 30, 100000);
        TestFiles::write("/home/alice/notes", 300, 100000);
        TestFiles::write("/home/alice-loose", 50, 100000);
        TestFiles::makeDirectory("/home/bob", 100001);
        TestFiles::write("/home/bob/Videos/clip", 5000, 100001);
        TestFiles::write("/home/bob/stray-of-alice", 70, 100000);
        TestFiles::write("/home/bob/.cache", 11, 100001);
    }

private slots:
    void initTestCase()
    {
        if (!MountNamespace::inside())
            QSKIP("needs root and the mount namespace of its own that ctest gives it");
        QVERIFY(m_scratch.isValid());
        QVERIFY(MountNamespace::mount({"-t", "tmpfs", "tmpfs", "/home"}));
        m_passwd = m_scratch.filePath("passwd");
        QFile file(m_passwd);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        QVERIFY(MountNamespace::mount({"--bind", m_passwd, "/etc/passwd"}));
    }

    void init()
    {
        QVERIFY(run("sh", {"-c", "rm -rf /home/* /home/.[!.]*"}));
        makeHomes();
    }

    void deviceUsersStopAtTheFirstGap()
    {
        setUsers({{100000, "alice"}, {100001, "bob"}, {100003, "dave"}});
        QCOMPARE(DeviceUsers::uids(), QList<uint>({100000, 100001}));
        QCOMPARE(DeviceUsers::names(), QStringList({"alice", "bob"}));
        QCOMPARE(DeviceUsers::userName(100003), QStringLiteral("dave"));
        QCOMPARE(DeviceUsers::userName(100002), QString());
        setUsers({{100001, "bob"}});
        QCOMPARE(DeviceUsers::uids(), QList<uint>());
    }

    void singleUserDevice()
    {
        setUsers({{100000, "alice"}});
        FakeQuotaSource quotas;
        const SpaceFigures partition = space(10000, 50000, 40000);
        QTest::ignoreMessage(QtWarningMsg, "fillInternalUserStorageInfo Failed to get quota for uid: 100000");
        const QVariantMap map = breakdownMap(quotas, 100000, partition);

        QCOMPARE(map.value("bytesUsedPictures"), QVariant(qulonglong(1000)));
        QCOMPARE(map.value("bytesUsedVideos"), QVariant(qulonglong(0)));
        QCOMPARE(map.value("bytesUsedMusic"), QVariant(qulonglong(200)));
        QCOMPARE(map.value("bytesUsedDocuments"), QVariant(qulonglong(0))); // missing folder
        QCOMPARE(map.value("bytesUsedDownloads"), QVariant(qulonglong(30)));
        QCOMPARE(map.value("bytesUsedOther"), QVariant(qulonglong(10000 - 1230)));
        QCOMPARE(map.value("bytesUsedOtherUsers"), QVariant(qlonglong(0)));
        QCOMPARE(map.value("bytesUsedOtherUsers").userType(), int(QMetaType::LongLong));
        QCOMPARE(map.value("bytesUsed"), QVariant(qulonglong(10000)));
        QCOMPARE(map.value("bytesTotal"), QVariant(qulonglong(50000)));
        QCOMPARE(map.value("bytesAvailable"), QVariant(qulonglong(40000)));
        QCOMPARE(map.size(), 10);
        QCOMPARE(quotas.devices.value(0), UserStorageBreakdown::homeDevice());
    }

    void gapMakesASingleUserDevice()
    {
        setUsers({{100000, "alice"}, {100002, "carol"}});
        FakeQuotaSource quotas;
        quotas.softLimits[100000] = 0;
        const SpaceFigures partition = space(10000, 50000, 40000);
        const QVariantMap map = breakdownMap(quotas, 100000, partition);
        QCOMPARE(map.value("bytesUsedOtherUsers"), QVariant(qlonglong(0)));
        QCOMPARE(map.value("bytesUsedOther"), QVariant(qulonglong(10000 - 1230)));
    }

    void ownerOfATwoUserDevice()
    {
        setUsers({{100000, "alice"}, {100001, "bob"}});
        FakeQuotaSource quotas;
        quotas.softLimits[100000] = 0; // a hard limit alone: no quota
        const SpaceFigures partition = space(10000, 50000, 40000);
        const QVariantMap map = breakdownMap(quotas, 100000, partition);
        // Her notes and her file loose in /home; nothing of hers in Bob's home.
        QCOMPARE(map.value("bytesUsedOther"), QVariant(qulonglong(350)));
        QCOMPARE(map.value("bytesUsedOtherUsers"), QVariant(qulonglong(10000 - 1230 - 350)));
        QCOMPARE(map.value("bytesUsed"), QVariant(qulonglong(10000)));
        QCOMPARE(map.value("bytesTotal"), QVariant(qulonglong(50000)));
        QCOMPARE(map.value("bytesAvailable"), QVariant(qulonglong(40000)));
    }

    void secondUserSeesOnlyTheirs()
    {
        setUsers({{100000, "alice"}, {100001, "bob"}});
        FakeQuotaSource quotas;
        const SpaceFigures partition = space(10000, 50000, 40000);
        QTest::ignoreMessage(QtWarningMsg, "fillInternalUserStorageInfo Failed to get quota for uid: 100001");
        const QVariantMap map = breakdownMap(quotas, 100001, partition);
        QCOMPARE(map.value("bytesUsedVideos"), QVariant(qulonglong(5000)));
        QCOMPARE(map.value("bytesUsedPictures"), QVariant(qulonglong(0)));
        // His file in Alice's home is inside another user's home: not counted.
        QCOMPARE(map.value("bytesUsedOther"), QVariant(qulonglong(11)));
        QVERIFY(!map.contains("bytesUsedOtherUsers"));
        QCOMPARE(map.value("bytesUsed"), QVariant(qulonglong(5011)));
        QCOMPARE(map.value("bytesTotal"), QVariant(qulonglong(5011 + 40000)));
        QCOMPARE(map.value("bytesAvailable"), QVariant(qulonglong(40000)));
    }

    void softLimit_data()
    {
        QTest::addColumn<quint64>("softLimit");
        QTest::addColumn<qulonglong>("total");
        QTest::addColumn<qulonglong>("available");
        // The owner uses 10000 bytes of the partition.
        QTest::newRow("below usage") << quint64(5) << qulonglong(10000) << qulonglong(0);
        QTest::newRow("above usage") << quint64(20) << qulonglong(20480) << qulonglong(10480);
        QTest::newRow("hard limit only") << quint64(0) << qulonglong(50000) << qulonglong(40000);
    }

    void softLimit()
    {
        QFETCH(quint64, softLimit);
        QFETCH(qulonglong, total);
        QFETCH(qulonglong, available);
        setUsers({{100000, "alice"}});
        FakeQuotaSource quotas;
        quotas.softLimits[100000] = softLimit;
        const SpaceFigures partition = space(10000, 50000, 40000);
        const QVariantMap map = breakdownMap(quotas, 100000, partition);
        QCOMPARE(map.value("bytesAvailable"), QVariant(available));
        QCOMPARE(map.value("bytesTotal"), QVariant(total));
        QCOMPARE(map.value("bytesUsed"), QVariant(qulonglong(10000)));
    }

    void unknownUser()
    {
        setUsers({{100000, "alice"}, {100001, "bob"}});
        FakeQuotaSource quotas;
        quotas.softLimits[4242] = 0;
        const SpaceFigures partition = space(10000, 50000, 40000);
        const QVariantMap map = breakdownMap(quotas, 4242, partition);
        for (const UserFolder &folder : UserFolders)
            QCOMPARE(map.value(QLatin1String("bytesUsed") + QLatin1String(folder.name)), QVariant(qulonglong(0)));
        QCOMPARE(map.value("bytesUsedOther"), QVariant(qulonglong(0)));
        QCOMPARE(map.value("bytesUsed"), QVariant(qulonglong(0)));
        QCOMPARE(map.value("bytesTotal"), QVariant(qulonglong(40000)));
    }

    void emptySummary()
    {
        // The partition query may find no partition at all: every size is 0.
        setUsers({{100000, "alice"}});
        FakeQuotaSource quotas;
        quotas.softLimits[100000] = 0;
        const QVariantMap map = breakdownMap(quotas, 100000, SpaceFigures());
        QCOMPARE(map.value("bytesUsed"), QVariant(qulonglong(0)));
        QCOMPARE(map.value("bytesUsedOther"), QVariant(qulonglong(-1230)));
    }

    void quotaReportOfANonOwner()
    {
        setUsers({{100000, "alice"}, {100001, "bob"}});
        FakeQuotaSource quotas;
        quotas.softLimits[100001] = 0;
        const UserStorageBreakdown breakdown(quotas, keptFolders());
        const SpaceFigures s = space(10000, 50000, 40000);
        const QuotaInfoMap report = UserQuotaReport(breakdown).collect(100001, s);
        QCOMPARE(report.keys(), QStringList({"100001"}));
        const QVariantMap bob = report.value("100001");
        QCOMPARE(bob.size(), 3);
        QCOMPARE(bob.value("quotaIsSet"), QVariant(false));
        QCOMPARE(bob.value("quotaLimit"), QVariant(qulonglong(5011 + 40000)));
        QCOMPARE(bob.value("quotaAvailable"), QVariant(qulonglong(40000)));
    }

    void quotaReportStopsAtTheFirstGap()
    {
        setUsers({{100000, "alice"}, {100002, "carol"}});
        FakeQuotaSource quotas;
        quotas.softLimits[100000] = 0;
        const UserStorageBreakdown breakdown(quotas, keptFolders());
        const SpaceFigures s = space(10000, 50000, 40000);
        QCOMPARE(UserQuotaReport(breakdown).collect(100000, s).keys(), QStringList({"100000"}));
    }

    void quotaReportOfTwoUsersWithoutQuota()
    {
        setUsers({{100000, "alice"}, {100001, "bob"}});
        FakeQuotaSource quotas;
        const UserStorageBreakdown breakdown(quotas, keptFolders());
        const SpaceFigures s = space(10000, 50000, 40000);
        QTest::ignoreMessage(QtWarningMsg, "fillInternalUserStorageInfo Failed to get quota for uid: 100000");
        QTest::ignoreMessage(QtWarningMsg, "fillInternalUserStorageInfo Failed to get quota for uid: 100001");
        const QuotaInfoMap report = UserQuotaReport(breakdown).collect(100000, s);
        QCOMPARE(report.keys(), QStringList({"100000", "100001"}));
        QCOMPARE(report["100000"].value("quotaIsSet"), QVariant(false));
        QCOMPARE(report["100000"].value("quotaLimit"), QVariant(qulonglong(50000)));
        QCOMPARE(report["100000"].value("quotaAvailable"), QVariant(qulonglong(40000)));
        QCOMPARE(report["100001"].value("quotaIsSet"), QVariant(false));
        QCOMPARE(report["100001"].value("quotaLimit"), QVariant(qulonglong(5011 + 40000)));
        QCOMPARE(report["100001"].value("quotaAvailable"), QVariant(qulonglong(40000)));
    }

    void quotaReportCarriesFiguresFromUserToUser()
    {
        // Alice's quota leaves nothing available in the figures carried on,
        // and Bob's start from there.
        setUsers({{100000, "alice"}, {100001, "bob"}});
        FakeQuotaSource quotas;
        quotas.softLimits[100000] = 5; // 5120 bytes, below her 10000
        quotas.softLimits[100001] = 0;
        const UserStorageBreakdown breakdown(quotas, keptFolders());
        const SpaceFigures s = space(10000, 50000, 40000);
        const QuotaInfoMap report = UserQuotaReport(breakdown).collect(100000, s);
        QCOMPARE(report["100000"].value("quotaIsSet"), QVariant(true));
        QCOMPARE(report["100000"].value("quotaLimit"), QVariant(qulonglong(5120)));
        QCOMPARE(report["100000"].value("quotaAvailable"), QVariant(qulonglong(0)));
        QCOMPARE(report["100001"].value("quotaLimit"), QVariant(qulonglong(5011)));
        QCOMPARE(report["100001"].value("quotaAvailable"), QVariant(qulonglong(0)));
    }

    void quotaReportWithALimitAboveUsage()
    {
        setUsers({{100000, "alice"}, {100001, "bob"}});
        FakeQuotaSource quotas;
        quotas.softLimits[100001] = 100; // 102400 bytes
        const UserStorageBreakdown breakdown(quotas, keptFolders());
        const SpaceFigures s = space(10000, 50000, 40000);
        const QuotaInfoMap report = UserQuotaReport(breakdown).collect(100001, s);
        QCOMPARE(report["100001"].value("quotaIsSet"), QVariant(true));
        QCOMPARE(report["100001"].value("quotaLimit"), QVariant(qulonglong(102400)));
        QCOMPARE(report["100001"].value("quotaAvailable"), QVariant(qulonglong(102400 - 5011)));
    }

    // A limit of 2^54 blocks is set (not 0), though in bytes it wraps to 0:
    // the quota counts as set, with a limit of 0 and nothing available.
    void quotaReportOfALimitThatWrapsInBytes()
    {
        setUsers({{100000, "alice"}, {100001, "bob"}});
        FakeQuotaSource quotas;
        quotas.softLimits[100001] = quint64(1) << 54;
        const UserStorageBreakdown breakdown(quotas, keptFolders());
        const SpaceFigures s = space(10000, 50000, 40000);
        const QuotaInfoMap report = UserQuotaReport(breakdown).collect(100001, s);
        QCOMPARE(report["100001"].value("quotaIsSet"), QVariant(true));
        QCOMPARE(report["100001"].value("quotaLimit"), QVariant(qulonglong(0)));
        QCOMPARE(report["100001"].value("quotaAvailable"), QVariant(qulonglong(0)));
    }
};

QTEST_GUILESS_MAIN(TestUserStorage)

#include "tst_userstorage.moc"
