// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_LOGGING_H
#define PLINTHD_LOGGING_H

#include <QLoggingCategory>

// The daemon's own logging category. Debug and info are off unless PLINTHD_DEBUG
// is set; warnings and critical messages are always shown. Every other category
// of the daemon (the platform classes have theirs) is named "plinthd.<subject>"
// so that the same switch reaches it.
Q_DECLARE_LOGGING_CATEGORY(lcPlinthd)

namespace Logging {

// The prefix of every category name the debug switch turns on.
extern const char CategoryPrefix[];

// Installs the category filter behind PLINTHD_DEBUG. Qt's own rules
// (QT_LOGGING_RULES, qtlogging.ini) are applied first; with DEBUGENABLED the
// filter then turns debug and info on for every category whose name starts
// with CategoryPrefix, those made later included. It never silences anything
// those rules enabled.
void installDebugSwitch(bool debugEnabled);

// Under systemd, standard error is a stream into the journal, which stores each
// line at the priority its "<N>" prefix names (sd-daemon(3)) and every other
// line at info: without prefixes, "journalctl -p warning" would show none of
// the daemon's warnings. systemd names that stream in JOURNAL_STREAM
// ("DEVICE:INODE"); anywhere else (a terminal, a test's log) the output stays
// as Qt writes it.
bool standardErrorIsJournal();
// The prefix's number for a message type: debug 7, info 6, warning 4,
// critical 3, fatal 2.
int journalPriority(QtMsgType type);
// A formatted message as the journal takes it: every line with the prefix.
QByteArray journalLines(QtMsgType type, const QString &message);
// Writes every message with its prefix when standard error is the journal;
// otherwise leaves Qt's own output alone. Returns whether it did.
bool installJournalPriorities();

} // namespace Logging

#endif // PLINTHD_LOGGING_H
