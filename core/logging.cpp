// SPDX-License-Identifier: BSD-3-Clause
#include "logging.h"

#include <QByteArray>
#include <QStringList>

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcPlinthd, "plinthd", QtWarningMsg)

namespace Logging {

const char CategoryPrefix[] = "plinthd";

namespace {

bool debugSwitchOn = false;
QLoggingCategory::CategoryFilter previousCategoryFilter = nullptr;

// Called by Qt for every category, when it is made and whenever the rules change.
void plinthCategoryFilter(QLoggingCategory *category)
{
    if (previousCategoryFilter)
        previousCategoryFilter(category);
    if (debugSwitchOn && qstrncmp(category->categoryName(), CategoryPrefix, std::strlen(CategoryPrefix)) == 0) {
        category->setEnabled(QtDebugMsg, true);
        category->setEnabled(QtInfoMsg, true);
    }
}

// sd-daemon(3)'s priorities, those of syslog(3).
constexpr int PriorityCritical = 2;
constexpr int PriorityError = 3;
constexpr int PriorityWarning = 4;
constexpr int PriorityInfo = 6;
constexpr int PriorityDebug = 7;

void journalMessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    const QByteArray out = journalLines(type, qFormatLogMessage(type, context, message));
    // One write per message, so that the lines of threads logging at once
    // are not mixed within a line.
    qint64 done = 0;
    while (done < out.size()) {
        const ssize_t written = ::write(STDERR_FILENO, out.constData() + done, size_t(out.size() - done));
        if (written <= 0)
            return;
        done += written;
    }
}

} // namespace

bool standardErrorIsJournal()
{
    const QByteArray stream = qgetenv("JOURNAL_STREAM");
    const QList<QByteArray> fields = stream.split(':');
    if (fields.size() != 2)
        return false;
    bool deviceOk = false;
    bool inodeOk = false;
    const qulonglong device = fields.at(0).toULongLong(&deviceOk);
    const qulonglong inode = fields.at(1).toULongLong(&inodeOk);
    struct stat status = {};
    if (!deviceOk || !inodeOk || ::fstat(STDERR_FILENO, &status) != 0)
        return false;
    return qulonglong(status.st_dev) == device && qulonglong(status.st_ino) == inode;
}

int journalPriority(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return PriorityDebug;
    case QtInfoMsg:
        return PriorityInfo;
    case QtWarningMsg:
        return PriorityWarning;
    case QtCriticalMsg:
        return PriorityError;
    case QtFatalMsg:
        return PriorityCritical;
    }
    return PriorityInfo;
}

QByteArray journalLines(QtMsgType type, const QString &message)
{
    const QByteArray prefix = '<' + QByteArray::number(journalPriority(type)) + '>';
    QByteArray out;
    // The journal makes an entry of every line, and reads the prefix of each.
    const QStringList lines = message.split(QLatin1Char('\n'));
    for (const QString &line : lines)
        out += prefix + line.toUtf8() + '\n';
    return out;
}

bool installJournalPriorities()
{
    if (!standardErrorIsJournal())
        return false;
    qInstallMessageHandler(journalMessageHandler);
    return true;
}

void installDebugSwitch(bool debugEnabled)
{
    debugSwitchOn = debugEnabled;
    // Installing applies the filter to every existing category at once. Done
    // again, it must not chain the filter to itself.
    const QLoggingCategory::CategoryFilter previous = QLoggingCategory::installFilter(plinthCategoryFilter);
    if (previous != plinthCategoryFilter)
        previousCategoryFilter = previous;
}

} // namespace Logging
