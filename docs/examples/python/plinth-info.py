#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""plinthd from Python with GLib's Gio (Debian: python3-gi).

    plinth-info.py

Asks a few Features questions and the SIM cards synchronously (they are
answered at once), reads a property, then asks the system storage
categories asynchronously with a time-out of five minutes: that answer comes
later, from a worker of the daemon, and takes minutes on a full device.
Prints every key of the storage map with its D-Bus type.

Without a system bus, or without the daemon, it says so on standard error in
one line and exits with status 1.
"""

import sys

from gi.repository import Gio, GLib

SERVICE = 'org.norvu.plinth'
STORAGE_TIMEOUT_MS = 5 * 60 * 1000
# What the bus answers for a name nobody owns and nothing can start: no
# activation file for it, or none that works.
NOT_RUNNING = ('org.freedesktop.DBus.Error.ServiceUnknown', 'org.freedesktop.DBus.Error.NameHasNoOwner',
               'org.freedesktop.DBus.Error.Spawn.ServiceNotFound')


def failure(error):
    """One line for the user instead of a traceback."""
    if Gio.DBusError.is_remote_error(error) and Gio.DBusError.get_remote_error(error) in NOT_RUNNING:
        return 'plinthd is not running'
    Gio.DBusError.strip_remote_error(error)
    return error.message


def proxy(bus, name):
    return Gio.DBusProxy.new_sync(bus, Gio.DBusProxyFlags.NONE, None, SERVICE,
                                  '/org/norvu/plinth/' + name, 'org.norvu.plinth.' + name, None)


def call(p, method):
    """A synchronous call with the default time-out; the one value it answers."""
    return p.call_sync(method, None, Gio.DBusCallFlags.NONE, -1, None).unpack()[0]


def main():
    try:
        bus = Gio.bus_get_sync(Gio.BusType.SYSTEM, None)
    except GLib.Error as error:
        print('plinth-info.py: no system bus (%s)' % error.message, file=sys.stderr)
        return 1
    try:
        return report(bus)
    except GLib.Error as error:
        print('plinth-info.py: %s' % failure(error), file=sys.stderr)
        return 1


def report(bus):
    features = proxy(bus, 'Features')
    print('Processor: %s, %d cores' % (call(features, 'getCpuModel') or 'unknown',
                                       call(features, 'getNumberCpuCores')))
    # "av": unpack() gives the numbers inside the variants, in MHz.
    print('Per core (MHz): %s' % ' '.join(str(mhz) for mhz in call(features, 'getMaxCpuCoresClockSpeed')))
    print('Memory: %d bytes' % call(features, 'getRamTotalSize'))
    print('Time zone: %s' % call(features, 'getTimeZone'))
    # The proxy reads the properties when it is made.
    print('OS type: %d' % features.get_cached_property('osType').unpack())

    sim = proxy(bus, 'SIM')
    cards = call(sim, 'getSimCardsInfo')
    print('SIM cards: %d' % len(cards))
    for card in cards:
        print('  %s: %s' % (card['simName'], card['operatorName'] or 'no operator name'))

    storages = proxy(bus, 'Storages')
    loop = GLib.MainLoop()
    outcome = {}

    def done(source, result):
        try:
            outcome['reply'] = source.call_finish(result)
        except GLib.Error as error:
            outcome['error'] = error
        loop.quit()

    storages.call('getSystemStorageInfo', None, Gio.DBusCallFlags.NONE, STORAGE_TIMEOUT_MS, None, done)
    loop.run()
    if 'error' in outcome:
        raise outcome['error']
    # Keep the GVariant to see the D-Bus type of every value: sizes are "t".
    info = outcome['reply'].get_child_value(0)
    print('System storage:')
    for i in range(info.n_children()):
        entry = info.get_child_value(i)
        key = entry.get_child_value(0).get_string()
        value = entry.get_child_value(1).get_variant()
        print('  %s (%s): %s' % (key, value.get_type_string(), value.unpack()))
    return 0


if __name__ == '__main__':
    sys.exit(main())
