// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHCTL_COMMANDLINE_H
#define PLINTHCTL_COMMANDLINE_H

#include <QString>
#include <QStringList>

namespace PlinthCtl {

// What the user asked for. Parsing never exits; main decides what to do with
// an error.
struct CommandLine
{
    enum Command { Overview, Features, Sims, Storage, Monitor, Help, Version };

    Command command = Overview;
    QStringList storageParts; // for Storage: the parts to show, all when none named
    bool json = false;
    QString error; // non-empty: the arguments make no sense

    static CommandLine parse(const QStringList &arguments); // without the program name
    static QString helpText();
};

} // namespace PlinthCtl

#endif // PLINTHCTL_COMMANDLINE_H
