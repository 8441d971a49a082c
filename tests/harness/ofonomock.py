#!/usr/bin/python3
# SPDX-License-Identifier: LicenseRef-plinthd
"""python3-dbusmock's ofono template, on the system bus, without modems.

Unlike dbusmock's own launcher, which claims the bus name first and loads the
template afterwards, this loads the template and only then claims "org.ofono",
so a client that reacts to the name's appearance finds a complete oFono, as it
would find the real one. Modems are added and changed from the test through the
template's and the mock's methods. It stops when the bus goes away or on
SIGTERM.

    ofonomock.py        (DBUS_SYSTEM_BUS_ADDRESS names the bus)
"""

import ctypes
import os

import dbus
import dbus.mainloop.glib
import dbus.service
import dbusmock

BUS_NAME = 'org.ofono'
MANAGER = 'org.ofono.Manager'


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

    name = dbus.service.BusName(BUS_NAME, bus, do_not_queue=True)
    libglib = ctypes.cdll.LoadLibrary('libglib-2.0.so.0')
    while should_run:
        libglib.g_main_context_iteration(None, True)
    del name


if __name__ == '__main__':
    main()
