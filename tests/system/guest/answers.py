# SPDX-License-Identifier: BSD-3-Clause
"""Asks the daemon every method and property its installed interface
descriptions list and prints the answers as one JSON document, each value
with its D-Bus type, so that two runs can be compared exactly.

    answers.py              dump all answers
    answers.py --compare A B
                            exit 1 (and say where) when two dumps differ
                            outside the live counters
"""

import json
import sys
import xml.etree.ElementTree as ElementTree

INTERFACES = "/usr/share/dbus-1/interfaces"
SERVICE = "org.norvu.plinth"
OBJECTS = {"Features": "/org/norvu/plinth/Features", "SIM": "/org/norvu/plinth/SIM",
           "Storages": "/org/norvu/plinth/Storages"}
# Storage questions walk whole file systems; QEMU without acceleration is slow.
CALL_SECONDS = 600

# Figures that change on their own between two runs a minute apart: free
# memory, and the used and free bytes of the guest's root file system, which
# the journal and the scenario itself keep writing to ("bytesUsedOther" is the
# used bytes less the categories). Everything else must be equal, to the type.
LIVE_METHODS = {"getRamFreeSize"}
LIVE_KEYS = {"bytesFree", "bytesAvailable", "bytesUsed", "bytesUsedOther"}


def plain(value):
    import dbus
    if isinstance(value, dbus.Dictionary):
        return {"a{}": {str(k): plain(v) for k, v in value.items()}}
    if isinstance(value, (dbus.Array, dbus.Struct, list, tuple)):
        return {type(value).__name__: [plain(v) for v in value]}
    if isinstance(value, (dbus.String, dbus.ObjectPath, dbus.Signature)):
        return {type(value).__name__: str(value)}
    if isinstance(value, dbus.Boolean):
        return {"Boolean": bool(value)}
    if isinstance(value, dbus.Double):
        return {"Double": float(value)}
    return {type(value).__name__: int(value)}


def dump():
    import dbus
    bus = dbus.SystemBus()
    answers = {}
    for name, path in OBJECTS.items():
        interface = "%s.%s" % (SERVICE, name)
        tree = ElementTree.parse("%s/%s.xml" % (INTERFACES, interface))
        proxy = bus.get_object(SERVICE, path)
        for node in tree.iter("method"):
            method = node.get("name")
            answers["%s.%s" % (name, method)] = plain(
                proxy.get_dbus_method(method, interface)(timeout=CALL_SECONDS))
        for node in tree.iter("property"):
            prop = node.get("name")
            answers["%s.%s" % (name, prop)] = plain(proxy.Get(
                interface, prop, dbus_interface="org.freedesktop.DBus.Properties",
                timeout=CALL_SECONDS))
    json.dump(answers, sys.stdout, indent=1, sort_keys=True)
    print()
    return 0


def without_live(value):
    if isinstance(value, dict):
        return {k: without_live(v) for k, v in value.items() if k not in LIVE_KEYS}
    if isinstance(value, list):
        return [without_live(v) for v in value]
    return value


def compare(first, second):
    with open(first) as a, open(second) as b:
        one, two = json.load(a), json.load(b)
    differences = []
    for key in sorted(set(one) | set(two)):
        if key.split(".")[1] in LIVE_METHODS and key in one and key in two:
            continue
        if without_live(one.get(key)) != without_live(two.get(key)):
            differences.append("%s: %s != %s" % (key, json.dumps(one.get(key))[:300],
                                                 json.dumps(two.get(key))[:300]))
    for line in differences:
        print(line)
    print("%d answers, %d differ" % (len(one), len(differences)))
    return 1 if differences or not one else 0


if __name__ == "__main__":
    if len(sys.argv) == 4 and sys.argv[1] == "--compare":
        sys.exit(compare(sys.argv[2], sys.argv[3]))
    sys.exit(dump())
