// SPDX-License-Identifier: BSD-3-Clause
// The kernels here have no quota support: the real question must come back
// unanswered, for every device, rather than with a made-up limit.
#include "kernelquotasource.h"

#include <QStorageInfo>
#include <QtTest>

#include <sys/quota.h>

class TestKernelQuotaSource : public QObject
{
    Q_OBJECT

private slots:
    void commandWord()
    {
        QCOMPARE(uint(QCMD(Q_GETQUOTA, USRQUOTA)), 0x80000700u);
    }

    void unansweredWithoutQuotaSupport_data()
    {
        QTest::addColumn<QByteArray>("device");
        QTest::newRow("device of /home") << QStorageInfo(QStringLiteral("/home")).device();
        QTest::newRow("device of /") << QStorageInfo::root().device();
        QTest::newRow("no such device") << QByteArray("/dev/plinth-no-such-device");
        QTest::newRow("empty") << QByteArray();
    }

    void unansweredWithoutQuotaSupport()
    {
        QFETCH(QByteArray, device);
        const KernelQuotaSource source;
        QCOMPARE(source.userBlockSoftLimit(device, 100000), std::optional<quint64>());
        QCOMPARE(source.userBlockSoftLimit(device, 0), std::optional<quint64>());
    }
};

QTEST_GUILESS_MAIN(TestKernelQuotaSource)
#include "tst_kernelquotasource.moc"
