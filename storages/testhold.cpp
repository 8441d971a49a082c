// SPDX-License-Identifier: BSD-3-Clause
#include "testhold.h"

#include "logging.h"

#include <QFile>
#include <QThread>

namespace {

constexpr unsigned long PollMilliseconds = 20;

} // namespace

#ifdef PLINTHD_TEST_SEAMS
void TestHold::waitFor(const char *variable)
{
    const QString release = QFile::decodeName(qgetenv(variable));
    if (release.isEmpty() || QFile::exists(release))
        return;
    qCDebug(lcPlinthd) << "Held until" << release << "exists:" << variable;
    while (!QFile::exists(release))
        QThread::msleep(PollMilliseconds);
}
#endif
