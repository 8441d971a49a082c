// SPDX-License-Identifier: BSD-3-Clause
// The debug switch behind PLINTHD_DEBUG: every category the daemon and its
// platform classes define is named under "plinthd", and the switch turns debug
// and info on for all of them, without silencing what Qt's own rules enable.
#include "folderwatches.h"
#include "logging.h"

#include <accesspolicylogging.h>
#include <settingslogging.h>
#include <storagelogging.h>
#include <telephonylogging.h>

#include <QDir>
#include <QDirIterator>
#include <QRegularExpression>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// Every category the daemon's libraries define, as they are linked here.
const QList<const QLoggingCategory *> &productCategories()
{
    static const QList<const QLoggingCategory *> categories = {
        &lcPlinthd(), &lcPartitions(), &lcTelephony(), &lcSettings(), &lcAccessPolicy(), &lcFolders(),
    };
    return categories;
}

} // namespace

class TestLogging : public QObject
{
    Q_OBJECT

private slots:
    void cleanup()
    {
        QLoggingCategory::setFilterRules(QString());
        Logging::installDebugSwitch(false);
    }

    // Read from the sources, so that a category added later is held to the
    // same rule without this test having to know of it.
    void everyCategoryIsNamedUnderPlinthd()
    {
        const QString sourceDir = qEnvironmentVariable("PLINTHD_SOURCE_DIR");
        QVERIFY2(!sourceDir.isEmpty(), "PLINTHD_SOURCE_DIR is not set");
        const QRegularExpression definition(QStringLiteral("Q_LOGGING_CATEGORY\\(\\s*\\w+\\s*,\\s*\"([^\"]*)\""));
        QStringList names;
        for (const char *folder : {"daemon", "core", "features", "sim", "storages", "platform", "tools"}) {
            QDirIterator it(QDir(sourceDir).filePath(QLatin1String(folder)), {QStringLiteral("*.cpp"), QStringLiteral("*.h")},
                            QDir::Files, QDirIterator::Subdirectories);
            while (it.hasNext()) {
                QFile file(it.next());
                QVERIFY(file.open(QIODevice::ReadOnly));
                auto matches = definition.globalMatch(QString::fromUtf8(file.readAll()));
                while (matches.hasNext())
                    names.append(matches.next().captured(1));
            }
        }
        QCOMPARE(names.size(), productCategories().size());
        for (const QString &name : qAsConst(names)) {
            QVERIFY2(name == QLatin1String(Logging::CategoryPrefix)
                         || name.startsWith(QLatin1String(Logging::CategoryPrefix) + QLatin1Char('.')),
                     qPrintable(name));
        }
    }

    void quietByDefault()
    {
        Logging::installDebugSwitch(false);
        for (const QLoggingCategory *category : productCategories()) {
            QVERIFY2(!category->isDebugEnabled(), category->categoryName());
            QVERIFY2(!category->isInfoEnabled(), category->categoryName());
            QVERIFY2(category->isWarningEnabled(), category->categoryName());
        }
    }

    void switchReachesEveryCategory()
    {
        Logging::installDebugSwitch(true);
        for (const QLoggingCategory *category : productCategories()) {
            QVERIFY2(category->isDebugEnabled(), category->categoryName());
            QVERIFY2(category->isInfoEnabled(), category->categoryName());
        }
        // One made after the switch, too; others' categories stay as they were.
        const QLoggingCategory later("plinthd.later", QtWarningMsg);
        QVERIFY(later.isDebugEnabled());
        const QLoggingCategory foreign("elsewhere.plinthd", QtWarningMsg);
        QVERIFY(!foreign.isDebugEnabled());
    }

    void switchedOffAgain()
    {
        Logging::installDebugSwitch(true);
        Logging::installDebugSwitch(false);
        QVERIFY(!lcTelephony().isDebugEnabled());
        QVERIFY(!lcPlinthd().isDebugEnabled());
    }

    void qtRulesStillApplyWithoutTheSwitch()
    {
        Logging::installDebugSwitch(false);
        QLoggingCategory::setFilterRules(QStringLiteral("plinthd.platform.accesspolicy.debug=true"));
        QVERIFY(lcAccessPolicy().isDebugEnabled());
        QVERIFY(!lcPartitions().isDebugEnabled());
    }

    void theSwitchNeverSilencesQtRules()
    {
        Logging::installDebugSwitch(true);
        QLoggingCategory::setFilterRules(QStringLiteral("plinthd.platform.partitions.warning=false"));
        QVERIFY(!lcPartitions().isWarningEnabled());
        QVERIFY(lcPartitions().isDebugEnabled());
        QLoggingCategory::setFilterRules(QStringLiteral("elsewhere.debug=true"));
        const QLoggingCategory foreign("elsewhere", QtWarningMsg);
        QVERIFY(foreign.isDebugEnabled());
    }
};

QTEST_GUILESS_MAIN(TestLogging)

#include "tst_logging.moc"
