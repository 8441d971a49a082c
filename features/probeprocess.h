// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PROBEPROCESS_H
#define PLINTHD_PROBEPROCESS_H

#include <QDeadlineTimer>
#include <QProcess>
#include <QStringList>

// One child process of the start-up probes. It starts when it is made, so
// that the probes' children run side by side while the caller goes on with
// other work; lines() then waits for it. Standard error is not wanted.
class ProbeProcess
{
public:
    ProbeProcess(const QString &program, const QStringList &arguments);
    // A shell command line, run by bash.
    static ProbeProcess shell(const QString &commandLine);

    // Standard output as lines (ProbeParsers::splitLines). A child that could
    // not start gives none; one that has not finished within its time, counted
    // from its start, gives what it had written by then and is killed.
    QStringList lines();

private:
    QProcess m_process;
    QDeadlineTimer m_deadline;
};

#endif // PLINTHD_PROBEPROCESS_H
