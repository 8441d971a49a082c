// SPDX-License-Identifier: BSD-3-Clause
#include "probeprocess.h"

#include "probeparsers.h"

namespace {

// A child that has not finished by then is given up on: its answers become
// "unknown" rather than holding the daemon's start any longer.
const int ProcessTimeoutMs = 30000;

} // namespace

ProbeProcess::ProbeProcess(const QString &program, const QStringList &arguments)
    : m_deadline(ProcessTimeoutMs)
{
    m_process.setStandardErrorFile(QProcess::nullDevice());
    m_process.start(program, arguments, QIODevice::ReadWrite);
}

ProbeProcess ProbeProcess::shell(const QString &commandLine)
{
    return ProbeProcess(QStringLiteral("bash"), {QStringLiteral("-c"), commandLine});
}

QStringList ProbeProcess::lines()
{
    if (m_process.waitForFinished(int(m_deadline.remainingTime())))
        return ProbeParsers::splitLines(m_process.readAllStandardOutput());
    const QByteArray output = m_process.readAllStandardOutput();
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(-1);
    }
    return ProbeParsers::splitLines(output);
}
