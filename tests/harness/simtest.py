# SPDX-License-Identifier: BSD-3-Clause
"""Bench for the SIM object: a mocked oFono or the real one with simulated
modems, a private dconf database and a recorder of the daemon's SIM signals.

    class MyTest(simtest.SimTestCase):
        def test_something(self):
            ofono = self.start_ofono()
            ofono.add_modem('ril_0')
            self.start_sim_daemon()
            _, cards = self.signals.wait_for('simCardsEnabledChanged')

        def test_the_real_thing(self):
            ofono = self.start_real_ofono([sim_card(0, 'Fake Tel'), None])
            ofono.power(0)
            self.start_sim_daemon()

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

import modemsim
import plinthtest
from plinthtest import SIM_IFACE, SIM_PATH

OFONO = 'org.ofono'
OFONO_MANAGER = 'org.ofono.Manager'
OFONO_MODEM = 'org.ofono.Modem'
OFONO_MOCK_IFACE = 'org.norvu.plinth.test.OfonoMock'
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

    def pull_card(self, path):
        """The card leaves the modem, in the order of oFono's announcements."""
        dbus.Interface(self.manager, OFONO_MOCK_IFACE).PullCard(dbus.ObjectPath(path))

    def insert_card(self, path, subscriber_identity, card_identifier):
        dbus.Interface(self.manager, OFONO_MOCK_IFACE).InsertCard(
            dbus.ObjectPath(path), subscriber_identity, card_identifier)

    def stop(self):
        """oFono removes its modems and leaves the bus."""
        self.process.terminate()
        self.process.wait(5)


def find_ofonod():
    """The path of the real oFono daemon, or None when it is not installed."""
    return shutil.which('ofonod', path=os.pathsep.join([os.environ.get('PATH', ''), '/usr/sbin', '/sbin']))


def sim_card(n, spn=None):
    """The n-th test SIM: home network 244 05, like the simulated network."""
    return modemsim.SimCard(imsi='24405%010d' % n, iccid='8935805%013d' % n, spn=spn)


class RealOfono:
    """The real ofonod on the test's bus, with one simulated modem per card.

    Each modem is an entry of a phonesim configuration (OFONO_PHONESIM_CONFIG)
    that points oFono at a ModemSimulator; only the modem drivers this needs
    are loaded. oFono keeps per-SIM state (packet data powered, and more) under
    /var/lib/ofono: it runs in a mount namespace of its own with an empty tmpfs
    there, so nothing is read from the machine or left on it.

    Modems start unpowered, as oFono creates them; power() brings one up the
    way a device's connection manager does: Powered, then Online once the SIM
    has been read.
    """

    # Plugins: the phonesim modem driver and the AT command drivers of the
    # SIM, network and packet data atoms it creates.
    PLUGINS = 'phonesim,atmodem'
    # Taking a SIM and the network up is several dozen AT round trips.
    POWER_TIMEOUT = 30.0

    def __init__(self, testcase, cards):
        self.testcase = testcase
        self.simulators = []
        for card in cards:
            simulator = modemsim.ModemSimulator(card).start()
            testcase.addCleanup(simulator.stop)
            self.simulators.append(simulator)
        self.config = os.path.join(testcase.workdir, 'phonesim.conf')
        with open(self.config, 'w') as f:
            for index, simulator in enumerate(self.simulators):
                f.write('[%s]\nDriver=phonesim\nAddress=127.0.0.1\nPort=%d\n\n'
                        % (self.modem_name(index), simulator.port))
        self.log_path = os.path.join(testcase.workdir, 'ofonod.log')
        self.process = None
        self.start()

    @staticmethod
    def modem_name(index):
        return 'phonesim_%d' % index

    def path(self, index):
        return '/' + self.modem_name(index)

    def start(self):
        """Starts ofonod and waits until it lists every modem."""
        ofonod = find_ofonod()
        env = dict(os.environ, OFONO_PHONESIM_CONFIG=self.config)
        command = [ofonod, '-n', '-p', self.PLUGINS]
        if os.environ.get('PLINTHD_OFONO_DEBUG'):
            # The AT traffic and oFono's own trace, in ofonod.log.
            env['OFONO_AT_DEBUG'] = '1'
            command.append('-d')
        script = 'set -e\nmount -t tmpfs plinth-ofono /var/lib/ofono\nexec "$@"'
        with open(self.log_path, 'a') as log:
            self.process = subprocess.Popen(
                plinthtest.namespace_command() + ['/bin/sh', '-c', script, 'ofonod-namespace'] + command,
                env=env, stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT)
        self.testcase._keep_mock(self.process)
        bus = self.testcase.bus

        def listed():
            if self.process.poll() is not None:
                raise AssertionError('ofonod exited with %d:\n%s' % (self.process.returncode, self.output()))
            if not bus.name_has_owner(OFONO):
                return False
            try:
                return len(self.manager().GetModems()) == len(self.simulators)
            except dbus.exceptions.DBusException:
                return False
        plinthtest.wait_until(listed, self.POWER_TIMEOUT, what='ofonod to list its modems')

    def stop(self):
        """oFono leaves the bus (SIGTERM, as at a service stop)."""
        self.process.terminate()
        self.process.wait(10)

    def output(self):
        with open(self.log_path, errors='replace') as f:
            return f.read()

    def manager(self):
        return dbus.Interface(self._object('/'), OFONO_MANAGER)

    def _object(self, path):
        return self.testcase.bus.get_object(OFONO, path, introspect=False)

    def interface(self, index, interface):
        return dbus.Interface(self._object(self.path(index)), interface)

    def properties(self, index, interface):
        try:
            return self.interface(index, interface).GetProperties()
        except dbus.exceptions.DBusException:
            return {}

    def power(self, index, online=True):
        """Powers modem index and, when online and it has a card, takes it
        online once oFono has read the card's identity."""
        modem = self.interface(index, OFONO_MODEM)
        modem.SetProperty('Powered', dbus.Boolean(True, variant_level=1), timeout=self.POWER_TIMEOUT)
        if online and self.simulators[index].card is not None:
            self.go_online(index)

    def go_online(self, index):
        """oFono refuses Online until the SIM is read; a modem that is online
        stays so across a card change."""
        self.wait_sim_ready(index)
        modem = self.interface(index, OFONO_MODEM)
        if not modem.GetProperties().get('Online'):
            modem.SetProperty('Online', dbus.Boolean(True, variant_level=1), timeout=self.POWER_TIMEOUT)

    def power_off(self, index):
        self.interface(index, OFONO_MODEM).SetProperty('Powered', dbus.Boolean(False, variant_level=1),
                                                       timeout=self.POWER_TIMEOUT)

    def wait_sim_ready(self, index):
        card = self.simulators[index].card

        def read():
            return self.properties(index, SIM_MANAGER).get('SubscriberIdentity') == card.imsi
        plinthtest.wait_until(read, self.POWER_TIMEOUT, what='oFono to read the SIM of modem %d' % index)

    def pull_card(self, index):
        self.simulators[index].pull_card()

    def insert_card(self, index, card):
        self.simulators[index].insert_card(card)

    def set_data_powered(self, index, powered):
        """Packet data of modem index on or off: this moves the default data
        SIM. The interface exists only while the modem is online with a card."""
        def available():
            return 'Powered' in self.properties(index, CONNECTION_MANAGER)
        plinthtest.wait_until(available, self.POWER_TIMEOUT,
                              what='the packet data service of modem %d' % index)
        self.interface(index, CONNECTION_MANAGER).SetProperty('Powered', dbus.Boolean(powered, variant_level=1))


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


def names(cards):
    return [str(c['simName']) for c in cards]


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

    def start_real_ofono(self, cards):
        """The real ofonod with one simulated modem per card (None: no card);
        the test is skipped when oFono is not installed or it cannot have a
        mount namespace of its own."""
        if not find_ofonod():
            self.skipTest('ofonod is not installed')
        unavailable = plinthtest.namespace_unavailable()
        if unavailable:
            self.skipTest('ofonod ' + unavailable)
        return RealOfono(self, cards)

    def start_sim_daemon(self, **kwargs):
        env = {'DCONF_PROFILE': DATABASE}
        env.update(kwargs.pop('env', {}))
        binds = {'/etc/dconf': self.dconf}
        binds.update(kwargs.pop('binds', {}))
        return self.start_daemon(env=env, binds=binds, **kwargs)

    def cards(self):
        return self.sim().getSimCardsInfo()

    def wait_cards(self, expected, timeout=10.0):
        """Until getSimCardsInfo gives expected (brief form); returns the cards."""
        cards = None

        def settled():
            nonlocal cards
            self.signals.dispatch()
            cards = self.cards()
            return brief(cards) == expected
        try:
            plinthtest.wait_until(settled, timeout, what='cards %s' % expected)
        except AssertionError:
            self.fail('cards %s, expected %s; signals: %s' % (brief(cards), expected, self.signals.summary()))
        return cards

    def assertSignalsWellTyped(self):
        """At least one signal so far, each of the three with the card list's type."""
        self.signals.dispatch()
        self.assertTrue(self.signals.received)
        for member, signature, cards in self.signals.received:
            self.assertIn(member, SIM_SIGNALS)
            self.assertEqual(signature, 'aa{sv}')
            self.assertCardTypes(cards)

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
