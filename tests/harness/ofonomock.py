#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""python3-dbusmock's ofono template, on the system bus, without modems.

Unlike dbusmock's own launcher, which claims the bus name first and loads the
template afterwards, this loads the template and only then claims "org.ofono",
so a client that reacts to the name's appearance finds a complete oFono, as it
would find the real one. Modems are added and changed from the test through the
template's and the mock's methods. It stops when the bus goes away or on
SIGTERM.

Where the template's modems behave unlike the real oFono daemon, this corrects
them (the SIM tests against the real daemon, test_sim_ofono.py, show how it
behaves):

- A card is pulled and inserted through PullCard and InsertCard of the
  interface TEST_IFACE on "/", in oFono's order: a pulled card's SIM interface
  announces "Present" false and then holds no other property, and the modem's
  packet data and network registration interfaces leave its "Interfaces"; an
  inserted card announces "Present" true first, then its identities, and the
  interfaces come back. (The template's SetProperty would change "Present"
  alone, which oFono never does: it is read-only there.)
- On SIGTERM the mock announces ModemRemoved for every modem before it leaves
  the bus, as oFono does when it stops.

    ofonomock.py        (DBUS_SYSTEM_BUS_ADDRESS names the bus)
"""

import ctypes
import os
import signal

import dbus
import dbus.mainloop.glib
import dbus.service
import dbusmock

BUS_NAME = 'org.ofono'
MANAGER = 'org.ofono.Manager'
TEST_IFACE = 'org.norvu.plinth.test.OfonoMock'

# The modem interfaces oFono offers only while a card is in. (The method
# bodies run under exec() with separate locals, where a comprehension would not
# see them: plain loops.)
CARD_INTERFACES = "('org.ofono.ConnectionManager', 'org.ofono.NetworkRegistration')"

PULL_CARD = """
modem = objects[args[0]]
sim = modem.props['org.ofono.SimManager']
sim.clear()
sim['Present'] = dbus.Boolean(False)
modem.EmitSignal('org.ofono.SimManager', 'PropertyChanged', 'sv', ['Present', dbus.Boolean(False)])
interfaces = dbus.Array(signature='s')
for interface in modem.props['org.ofono.Modem']['Interfaces']:
    if interface not in %s:
        interfaces.append(interface)
modem.props['org.ofono.Modem']['Interfaces'] = interfaces
modem.EmitSignal('org.ofono.Modem', 'PropertyChanged', 'sv', ['Interfaces', interfaces])
""" % CARD_INTERFACES

INSERT_CARD = """
modem = objects[args[0]]
sim = modem.props['org.ofono.SimManager']
sim['Present'] = dbus.Boolean(True)
modem.EmitSignal('org.ofono.SimManager', 'PropertyChanged', 'sv', ['Present', dbus.Boolean(True)])
for name, value in (('CardIdentifier', args[2]), ('SubscriberIdentity', args[1]),
                    ('PinRequired', 'none')):
    sim[name] = dbus.String(value)
    modem.EmitSignal('org.ofono.SimManager', 'PropertyChanged', 'sv', [name, dbus.String(value)])
interfaces = dbus.Array(modem.props['org.ofono.Modem']['Interfaces'], signature='s')
for interface in %s:
    if interface not in interfaces:
        interfaces.append(interface)
modem.props['org.ofono.Modem']['Interfaces'] = interfaces
modem.EmitSignal('org.ofono.Modem', 'PropertyChanged', 'sv', ['Interfaces', interfaces])
""" % CARD_INTERFACES


def main():
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.bus.BusConnection(os.environ['DBUS_SYSTEM_BUS_ADDRESS'])
    should_run = {True}
    bus.add_signal_receiver(should_run.pop, signal_name='Disconnected',
                            path='/org/freedesktop/DBus/Local', dbus_interface='org.freedesktop.DBus.Local')

    manager = dbusmock.mockobject.DBusMockObject(bus, '/', MANAGER, {}, os.devnull)
    dbusmock.mockobject.objects['/'] = manager
    manager.AddTemplate('ofono', {'no_modem': True})
    # The template keeps removed modems in its list; list only what exists.
    manager.AddMethod(MANAGER, 'GetModems', '', 'a(oa{sv})',
                      'ret = [(m, objects[m].GetAll("org.ofono.Modem")) for m in self.modems if m in objects]')

    manager.AddMethod(TEST_IFACE, 'PullCard', 'o', '', PULL_CARD)
    manager.AddMethod(TEST_IFACE, 'InsertCard', 'oss', '', INSERT_CARD)

    def leave(*_):
        for path in list(manager.modems):
            if path in dbusmock.mockobject.objects:
                manager.EmitSignal(MANAGER, 'ModemRemoved', 'o', [dbus.ObjectPath(path)])
        should_run.clear()
    signal.signal(signal.SIGTERM, leave)

    name = dbus.service.BusName(BUS_NAME, bus, do_not_queue=True)
    libglib = ctypes.cdll.LoadLibrary('libglib-2.0.so.0')
    while should_run:
        libglib.g_main_context_iteration(None, True)
    # The goodbyes go out before the name is released.
    bus.flush()
    del name


if __name__ == '__main__':
    main()
