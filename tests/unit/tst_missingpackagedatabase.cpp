// SPDX-License-Identifier: BSD-3-Clause
// librpm with a configuration whose database folder holds no database, as on
// Debian (~/.rpmdb, with HOME a fresh folder here): the queries answer "none",
// the state is reported once, and nothing is created where the database would
// be. librpm reads its configuration once per process, hence a program of its own.
#include "messagecapture.h"
#include "packagedatabase.h"
#include "packagesizes.h"

#include <QDirIterator>
#include <QTemporaryDir>
#include <QtTest>

class TestMissingPackageDatabase : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;

    QStringList entriesOfHome() const
    {
        QStringList found;
        QDirIterator it(m_home.path(), QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot | QDir::System,
                        QDirIterator::Subdirectories);
        while (it.hasNext())
            found << it.next();
        return found;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        QVERIFY(qputenv("HOME", QFile::encodeName(m_home.path())));
        if (!QFileInfo::exists(QStringLiteral("/usr/lib/rpm/macros")))
            QSKIP("no rpm configuration installed (rpm-common)");
    }

    void queriesAnswerNoneAndReportOnce()
    {
        MessageCapture capture;
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(PackageSizes::read(QStringLiteral("*")), quint64(0));
            QVERIFY(!PackageDatabase::hasPackageNamed("bash"));
        }
        int reports = 0;
        for (const MessageCapture::Message &message : capture.messages())
            reports += message.text.startsWith(QLatin1String("No package database in")) ? 1 : 0;
        QCOMPARE(reports, 1);
    }

    void nothingIsCreatedInTheHomeFolder()
    {
        PackageSizes::read(QStringLiteral("tarn-*"));
        PackageDatabase::hasPackageNamed("content-configuration-cert");
        QCOMPARE(entriesOfHome(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestMissingPackageDatabase)
#include "tst_missingpackagedatabase.moc"
