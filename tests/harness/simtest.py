# SPDX-License-Identifier: LicenseRef-plinthd
"""Bench for the SIM object: a mocked oFono, a private dconf database and a
recorder of the daemon's SIM signals.

    class MyTest(simtest.SimTestCase):
        def test_something(self):
            ofono = self.start_ofono()
            ofono.add_modem('ril_0')
            self.start_sim_daemon()
            _, cards = self.signals.wait_for('simCardsEnabledChanged')

Everything runs on the test's private system bus. The daemon reads its settings
from the dconf profile data/dconf/profile/plinthd, with /etc/dconf bind-mounted
from the test's scratch directory in the daemon's mount namespace;
write_settings() compiles new keyfiles with "dconf update", which announces the
change on the private bus as it would on a device.
"""

import os
import shutil
import subprocess
import sys
import time

import dbus
import dbusmock
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

import plinthtest
from plinthtest import SIM_IFACE, SIM_PATH

OFONO = 'org.ofono'
OFONO_MANAGER = 'org.ofono.Manager'
SIM_MANAGER = 'org.ofono.SimManager'
CONNECTION_MANAGER = 'org.ofono.ConnectionManager'

SIM_SIGNALS = ('simCardsEnabledChanged', 'preferredDataTransferSimChanged', 'preferredVoiceCallSimChanged')
CARD_KEYS = ['enabled', 'operatorName', 'preferredDataTransfer', 'preferredVoiceCall', 'simName']
DATABASE = 'plinthd'


def imsi(n):
    """The subscriber identity the ofono template gives its n-th modem's SIM."""
    return '310150%09d' % n


class OfonoMock:
    """python3-dbusmock's ofono template (ofonomock.py), started without a modem."""

    def __init__(self, testcase):
        self.testcase = testcase
        self.process = subprocess.Popen(
            [sys.executable, os.path.join(os.path.dirname(os.path.abspath(__file__)), 'ofonomock.py')],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        testcase._keep_mock(self.process)
        bus = testcase.bus

        def started():
            if self.process.poll() is not None:
                raise AssertionError('ofonomock.py exited with %d' % self.process.returncode)
            return bus.name_has_owner(OFONO)
        plinthtest.wait_until(started, what='the oFono mock')
        self.manager = bus.get_object(OFONO, '/', introspect=False)
        self.mock = dbus.Interface(self.manager, dbusmock.MOCK_IFACE)

    def add_modem(self, name):
        return str(self.mock.AddModem(name, dbus.Dictionary({}, signature='sv')))

    def remove_modem(self, path):
        self.mock.RemoveObject(path)
        self.mock.EmitSignal(OFONO_MANAGER, 'ModemRemoved', 'o', [dbus.ObjectPath(path)])

    def _object(self, path):
        return self.testcase.bus.get_object(OFONO, path, introspect=False)

    def set_property(self, path, interface, name, value):
        """SetProperty of the template: stores the value and emits PropertyChanged."""
        dbus.Interface(self._object(path), interface).SetProperty(name, value)

    def set_sim(self, path, name, value):
        self.set_property(path, SIM_MANAGER, name, value)

    def set_operator_name(self, path, name):
        # The template's SIM has no ServiceProviderName until one is added.
        props = dbus.Interface(self._object(path), dbus.PROPERTIES_IFACE).GetAll(SIM_MANAGER)
        if 'ServiceProviderName' not in props:
            dbus.Interface(self._object(path), dbusmock.MOCK_IFACE).AddProperty(
                SIM_MANAGER, 'ServiceProviderName', dbus.String(''))
        self.set_sim(path, 'ServiceProviderName', dbus.String(name))

    def set_data_powered(self, path, powered):
        self.set_property(path, CONNECTION_MANAGER, 'Powered', dbus.Boolean(powered))

    def stop(self):
        """oFono leaves the bus."""
        self.process.terminate()
        self.process.wait(5)


class SignalRecorder:
    """Records the daemon's SIM signals, with their message signatures.

    Waits run a GLib main loop of this recorder's own connection, bounded by a
    timeout.
    """

    def __init__(self, address):
        self.bus = dbus.bus.BusConnection(address, mainloop=DBusGMainLoop())
        self.received = []  # (member, signature, cards)
        self.bus.add_signal_receiver(self._receive, dbus_interface=SIM_IFACE, path=SIM_PATH,
                                     member_keyword='member', message_keyword='message')
        # The match rule goes out without waiting; a round trip after it
        # makes sure the bus applies it before the daemon says anything.
        self.bus.call_blocking('org.freedesktop.DBus', '/org/freedesktop/DBus', 'org.freedesktop.DBus',
                               'GetId', '', ())

    def _receive(self, cards, member=None, message=None):
        self.received.append((member, message.get_signature(), cards))

    def close(self):
        self.bus.close()

    @staticmethod
    def dispatch():
        context = GLib.MainContext.default()
        while context.pending():
            context.iteration(False)

    def spin(self, seconds):
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            self.dispatch()
            time.sleep(0.01)

    def wait_for(self, member=None, predicate=None, timeout=10.0, start=0):
        """The first signal from index start on with this member whose cards
        satisfy predicate; returns (index, cards)."""
        deadline = time.monotonic() + timeout
        while True:
            self.dispatch()
            for index in range(start, len(self.received)):
                name, _, cards = self.received[index]
                if (member is None or name == member) and (predicate is None or predicate(cards)):
                    return index, cards
            if time.monotonic() > deadline:
                raise AssertionError('timed out waiting for %s; received: %s'
                                     % (member or 'a SIM signal', self.summary()))
            time.sleep(0.01)

    def mark(self):
        return len(self.received)

    def settle(self, quiet=0.3, timeout=10.0):
        """Lets signals already on their way arrive: returns once none came
        for quiet seconds, with mark()."""
        deadline = time.monotonic() + timeout
        count = -1
        while count != len(self.received) and time.monotonic() < deadline:
            count = len(self.received)
            self.spin(quiet)
        return self.mark()

    def since(self, mark, member=None):
        return [r for r in self.received[mark:] if member is None or r[0] == member]

    def summary(self):
        return [(name, brief(cards)) for name, _, cards in self.received]


def brief(cards):
    """(simName, enabled, operatorName, preferredDataTransfer, preferredVoiceCall) per card."""
    return [(str(c['simName']), bool(c['enabled']), str(c['operatorName']),
             bool(c['preferredDataTransfer']), bool(c['preferredVoiceCall'])) for c in cards]


class SimTestCase(plinthtest.DaemonTestCase):

    def setUp(self):
        super().setUp()
        self.dconf = os.path.join(self.workdir, 'dconf')
        os.makedirs(os.path.join(self.dconf, 'profile'))
        os.makedirs(os.path.join(self.dconf, 'db', DATABASE + '.d'))
        source = os.environ.get('PLINTHD_SOURCE_DIR', os.path.join(os.path.dirname(__file__), '..', '..'))
        shutil.copy(os.path.join(source, 'data', 'dconf', 'profile', DATABASE),
                    os.path.join(self.dconf, 'profile', DATABASE))
        self.write_settings()
        self.signals = SignalRecorder(self.system_bus.address)
        self.addCleanup(self.signals.close)

    def write_settings(self, **keys):
        """Replaces the settings under /veska/ofono/ with keys (GVariant text
        values, e.g. voice_sim_usage_mode='1') and compiles the database."""
        lines = ['[veska/ofono]'] + ['%s=%s' % item for item in keys.items()]
        with open(os.path.join(self.dconf, 'db', DATABASE + '.d', '10-sim'), 'w') as f:
            f.write('\n'.join(lines) + '\n')
        # dconf update rebuilds a database only when a keyfile is newer than
        # it, and two writes within one clock tick carry the same time: age
        # the database so that it is always rebuilt.
        database = os.path.join(self.dconf, 'db', DATABASE)
        if os.path.exists(database):
            os.utime(database, (0, 0))
        subprocess.run(['dconf', 'update', os.path.join(self.dconf, 'db')], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def start_ofono(self):
        return OfonoMock(self)

    def start_sim_daemon(self, **kwargs):
        env = {'DCONF_PROFILE': DATABASE}
        env.update(kwargs.pop('env', {}))
        binds = {'/etc/dconf': self.dconf}
        binds.update(kwargs.pop('binds', {}))
        return self.start_daemon(env=env, binds=binds, **kwargs)

    def cards(self):
        return self.sim().getSimCardsInfo()

    def assertCardTypes(self, cards):
        """aa{sv} with the five keys, booleans and strings."""
        self.assertIsInstance(cards, dbus.Array)
        self.assertEqual(cards.signature, 'a{sv}')
        for card in cards:
            self.assertIsInstance(card, dbus.Dictionary)
            self.assertEqual(card.signature, 'sv')
            self.assertEqual(sorted(card.keys()), CARD_KEYS)
            for key in ('enabled', 'preferredDataTransfer', 'preferredVoiceCall'):
                self.assertIsInstance(card[key], dbus.Boolean, key)
            for key in ('operatorName', 'simName'):
                self.assertIsInstance(card[key], dbus.String, key)


main = plinthtest.main
