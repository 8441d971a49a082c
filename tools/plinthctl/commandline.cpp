// SPDX-License-Identifier: BSD-3-Clause
#include "commandline.h"

#include "reports.h"

namespace PlinthCtl {

CommandLine CommandLine::parse(const QStringList &arguments)
{
    CommandLine result;
    QStringList words;
    bool optionsEnded = false;
    for (const QString &argument : arguments) {
        if (!optionsEnded && argument == QLatin1String("--")) {
            optionsEnded = true;
        } else if (!optionsEnded && argument == QLatin1String("--json")) {
            result.json = true;
        } else if (!optionsEnded && (argument == QLatin1String("-h") || argument == QLatin1String("--help"))) {
            result.command = Help;
            return result;
        } else if (!optionsEnded && argument == QLatin1String("--version")) {
            result.command = Version;
            return result;
        } else if (!optionsEnded && argument.startsWith(QLatin1Char('-')) && argument.size() > 1) {
            result.error = QStringLiteral("unknown option '%1'").arg(argument);
            return result;
        } else {
            words.append(argument);
        }
    }
    if (words.isEmpty())
        return result;

    const QString command = words.takeFirst();
    if (command == QLatin1String("help")) {
        result.command = Help;
        return result;
    }
    if (command == QLatin1String("storage")) {
        result.command = Storage;
        for (const QString &part : qAsConst(words)) {
            if (!Reports::isStoragePart(part)) {
                result.error = QStringLiteral("unknown storage part '%1' (one of: %2)")
                                   .arg(part, Reports::storageParts().join(QStringLiteral(", ")));
                return result;
            }
            if (!result.storageParts.contains(part))
                result.storageParts.append(part);
        }
        if (result.storageParts.isEmpty())
            result.storageParts = Reports::storageParts();
        return result;
    }
    if (command == QLatin1String("features"))
        result.command = Features;
    else if (command == QLatin1String("sims"))
        result.command = Sims;
    else if (command == QLatin1String("monitor"))
        result.command = Monitor;
    else if (command == QLatin1String("status"))
        result.command = Overview;
    else {
        result.error = QStringLiteral("unknown command '%1'").arg(command);
        return result;
    }
    if (!words.isEmpty())
        result.error = QStringLiteral("'%1' takes no argument, got '%2'").arg(command, words.first());
    return result;
}

QString CommandLine::helpText()
{
    return QStringLiteral(
        "Usage: plinthctl [--json] [COMMAND]\n"
        "\n"
        "Shows what the device information daemon plinthd answers on the system bus.\n"
        "\n"
        "Commands:\n"
        "  status                 Everything, short: device, OS, locale, fonts, SIM cards,\n"
        "                         storage (the default)\n"
        "  features               Hardware, OS identity, locale and fonts in full\n"
        "  sims                   The SIM cards\n"
        "  storage [PART...]      Storage; PART is one or more of internal, user, system,\n"
        "                         external, drives, quota (all when none is named)\n"
        "  monitor                Print every signal of plinthd as it comes, and when\n"
        "                         plinthd leaves or comes back, until Ctrl-C or\n"
        "                         SIGTERM; starts plinthd when it is not running\n"
        "  help                   Show this help\n"
        "\n"
        "Options:\n"
        "  --json                 One JSON document instead of text, sizes in bytes as\n"
        "                         integers (monitor: one JSON document a line)\n"
        "  -h, --help             Show this help\n"
        "  --version              Show the version\n"
        "\n"
        "The system bus is the one DBUS_SYSTEM_BUS_ADDRESS names, if it is set.\n"
        "Exit status: 0 on success, 1 on any failure.\n");
}

} // namespace PlinthCtl
