# SPDX-License-Identifier: BSD-3-Clause
"""Checks the daemon's Storages signals that `busctl monitor --json=short`
recorded, from a given line of the record on (the scenario notes the line
count before each step).

    signals.py RECORD FROM plugged LABEL...   the first drive signal names the
                                             drive's partitions with their labels,
                                             and all LABELs are announced
    signals.py RECORD FROM mounted LABEL PATH a drive signal shows LABEL at PATH,
                                             and the summary says mounted
    signals.py RECORD FROM unmounted LABEL    a drive signal shows LABEL without
                                             a mount point
    signals.py RECORD FROM removed           the last drive and summary signals
                                             are the empty map
Exit status 0 when the rule holds; otherwise the reason is printed.
"""

import json
import sys

INTERFACE = "org.norvu.plinth.Storages"


def value(typed):
    """busctl's {"type": ..., "data": ...} to plain values."""
    if isinstance(typed, dict) and set(typed) == {"type", "data"}:
        return value(typed["data"])
    if isinstance(typed, dict):
        return {k: value(v) for k, v in typed.items()}
    if isinstance(typed, list):
        return [value(v) for v in typed]
    return typed


def signals(record, start):
    found = []
    with open(record) as lines:
        for number, line in enumerate(lines):
            if number < start or not line.strip():
                continue
            message = json.loads(line)
            if message.get("type") != "signal" or message.get("interface") != INTERFACE:
                continue
            found.append((message["member"], value(message["payload"]["data"][0])))
    return found


def drive_signals(found):
    return [payload for member, payload in found if member == "externalDriveChanged"]


def plugged(found, labels):
    drives = [d for d in drive_signals(found) if d]
    if not drives:
        return "no externalDriveChanged with a drive after the plug"
    first = drives[0].get("partitionsInfo", [])
    names = [entry.get("partitionName", "") for entry in first]
    if not names or any(name not in labels for name in names):
        return "the first drive signal names the partitions %r, wanted some of %r" % (names, labels)
    announced = {entry.get("partitionName") for d in drives for entry in d.get("partitionsInfo", [])}
    if not set(labels) <= announced:
        return "the drive signals named %r, wanted %r" % (sorted(announced), labels)
    return None


def mounted(found, label, path):
    if not any(entry.get("partitionName") == label and entry.get("mountPoint") == path
               for d in drive_signals(found) for entry in d.get("partitionsInfo", [])):
        return "no drive signal shows %s at %s" % (label, path)
    if not any(member == "externalStorageChanged" and payload.get("mounted")
               for member, payload in found):
        return "no externalStorageChanged says mounted"
    return None


def unmounted(found, label):
    if not any(entry.get("partitionName") == label and not entry.get("mountPoint")
               for d in drive_signals(found) for entry in d.get("partitionsInfo", [])):
        return "no drive signal shows %s unmounted" % label
    return None


def removed(found):
    drives = drive_signals(found)
    summaries = [payload for member, payload in found if member == "externalStorageChanged"]
    if not drives or not summaries:
        return "no removal signals"
    if drives[-1] != {} or summaries[-1] != {}:
        return "the last signals are %r and %r, not empty maps" % (drives[-1], summaries[-1])
    return None


def main(argv):
    record, start, rule = argv[1], int(argv[2]), argv[3]
    found = signals(record, start)
    if rule == "plugged":
        reason = plugged(found, argv[4:])
    elif rule == "mounted":
        reason = mounted(found, argv[4], argv[5])
    elif rule == "unmounted":
        reason = unmounted(found, argv[4])
    elif rule == "removed":
        reason = removed(found)
    else:
        reason = "unknown rule " + rule
    if reason:
        print(reason)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
