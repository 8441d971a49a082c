// SPDX-License-Identifier: BSD-3-Clause
// The children of SysInfo's start-up probes: what each gives, and that several
// run at once.
#include "probeprocess.h"

#include <QElapsedTimer>
#include <QtTest>

#include <memory>
#include <vector>

class TestProbeProcess : public QObject
{
    Q_OBJECT

private slots:
    void outputAsLines()
    {
        ProbeProcess process(QStringLiteral("printf"), {QStringLiteral("one\\n\\ntwo\\n")});
        QCOMPARE(process.lines(), QStringList({QStringLiteral("one"), QStringLiteral("two")}));
    }

    void shellCommandLine()
    {
        ProbeProcess process = ProbeProcess::shell(QStringLiteral("echo a | tr a b; echo no >&2"));
        QCOMPARE(process.lines(), QStringList{QStringLiteral("b")});
    }

    void textEndsAtNul()
    {
        ProbeProcess process(QStringLiteral("printf"), {QStringLiteral("x\\0y\\n")});
        QCOMPARE(process.lines(), QStringList{QStringLiteral("x")});
    }

    void missingProgramGivesNothing()
    {
        ProbeProcess process(QStringLiteral("/nonexistent/plinthd-probe"), {});
        QCOMPARE(process.lines(), QStringList());
    }

    void failingProgramGivesWhatItWrote()
    {
        ProbeProcess process = ProbeProcess::shell(QStringLiteral("echo partial; exit 3"));
        QCOMPARE(process.lines(), QStringList{QStringLiteral("partial")});
    }

    // Each child starts when it is made: several that take a while each are
    // all done in little more than the time of one.
    void childrenRunSideBySide()
    {
        const int children = 4;
        const qint64 childMs = 500;
        const QString command = QStringLiteral("sleep %1; echo done").arg(childMs / 1000.0);
        QElapsedTimer timer;
        timer.start();
        std::vector<std::unique_ptr<ProbeProcess>> processes;
        for (int i = 0; i < children; ++i)
            processes.push_back(std::make_unique<ProbeProcess>(
                QStringLiteral("bash"), QStringList{QStringLiteral("-c"), command}));
        for (const auto &process : processes)
            QCOMPARE(process->lines(), QStringList{QStringLiteral("done")});
        QVERIFY2(timer.elapsed() < children * childMs, qPrintable(QString::number(timer.elapsed())));
    }
};

QTEST_GUILESS_MAIN(TestProbeProcess)
#include "tst_probeprocess.moc"
