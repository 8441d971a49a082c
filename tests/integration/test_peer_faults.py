#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Peers of the daemon that fail it: the user manager, systemd and oFono going
away in the middle of a call, or holding a call without ever answering.

The Features object answers synchronously on the main thread, and it asks the
user manager (getLocale) and systemd (start-up) with blocking calls: while
such a call is out, the daemon serves nothing else, and then everything that
queued up is served in order. These tests show that in bounded time: a peer
that disappears ends the blocking call at once (the bus answers for it), and
the daemon goes on serving every object. The wait for a peer that stays but
never answers is Qt's default D-Bus time-out; that case has a test of its own
(test_peer_timeout.py), as it takes that long.
"""

import dbus

import cleanexit
import knownanswers
import loadclients
import plinthtest
import scriptedpeer
import simtest
from plinthtest import FEATURES_IFACE, FEATURES_PATH, SIM_IFACE, SIM_PATH

GET_USER_LOCALE = knownanswers.USER_MANAGER + '.getUserLocale'
LOCALE_WARNING = 'Unable to obtain current user locale'
UID_WARNING = 'Unable to obtain current user UID'
VIRTUALIZATION_WARNING = "Invalid result from 'Virtualization' DBus property"
SYSTEMD = 'org.freedesktop.systemd1'
GET_VIRTUALIZATION = 'org.freedesktop.DBus.Properties.Get:Virtualization'
SYSTEMD_XML = '''<node><interface name="org.freedesktop.systemd1.Manager">
<property name="Virtualization" type="s" access="read"/></interface></node>'''


class PeerFaultTestCase(cleanexit.CleanExit, plinthtest.DaemonTestCase):

    def setUp(self):
        super().setUp()
        self.device = knownanswers.KnownDevice(self)
        self.load = loadclients.Load(self.system_bus.address, clients=16, in_flight=4)
        self.addCleanup(self.load.close)

    def start(self, **kwargs):
        return self.start_daemon(**self.device.daemon_kwargs(**kwargs))

    def assertServesEverything(self, locale):
        result = self.load.run(1600, self.device.calls(locale=locale))
        self.assertEqual(result.problems, [], result)
        self.assertEqual(result.answered, 1600)


class UserManagerTest(PeerFaultTestCase):

    def test_gone_in_the_middle_of_a_call(self):
        user_manager = knownanswers.start_user_manager(self, locale_delay=scriptedpeer.NEVER)
        daemon = self.start()
        locale = self.load.start(self.device.call('getLocale'))
        user_manager.wait_for_call(GET_USER_LOCALE)
        user_manager.kill()
        # The bus ends the call for the peer that left, so the daemon answers
        # at once, with the neutral locale and its warning.
        locale.wait(5)
        self.assertEqual(locale.value, dbus.String('C'), locale.problem)
        self.assertLess(locale.seconds, 5)
        self.assertEqual(daemon.output().count(LOCALE_WARNING), 1, daemon.output())
        # Without a user manager every later getLocale is "C" too, and the
        # other objects never noticed.
        self.assertServesEverything(locale='C')
        self.assertIn(UID_WARNING, daemon.output())
        self.assertCleanExit(daemon)

    def test_held_call_holds_the_main_thread_until_the_peer_goes(self):
        user_manager = knownanswers.start_user_manager(self, locale_delay=scriptedpeer.NEVER)
        daemon = self.start()
        locale = self.load.start(self.device.call('getLocale'), client=0)
        user_manager.wait_for_call(GET_USER_LOCALE)
        waiting = [self.load.start(self.device.call(method), client=1 + i)
                   for i, method in enumerate(('getCpuModel', 'getRamFreeSize', 'getSimCardsInfo'))]
        introspect = self.bus.get_object(plinthtest.BUS_NAME, '/org/norvu/plinth/Storages', introspect=False)
        # What the design says: a blocking call of the Features object holds
        # up the dispatch of the whole daemon. Nothing is answered meanwhile...
        loadclients.spin(1.0)
        self.assertEqual([p.problem for p in [locale] + waiting], ['no answer'] * 4)
        user_manager.kill()
        # ...and all of it, right, as soon as the peer is gone.
        for pending in [locale] + waiting:
            pending.wait(5)
        self.assertEqual(locale.value, dbus.String('C'))
        self.assertEqual([p.problem for p in waiting], [None] * 3)
        self.assertIn('org.norvu.plinth.Storages',
                      introspect.Introspect(dbus_interface='org.freedesktop.DBus.Introspectable', timeout=5))
        self.assertCleanExit(daemon)

    def test_slow_user_manager_delays_but_drops_nothing(self):
        knownanswers.start_user_manager(self, locale_delay=0.2)
        daemon = self.start()
        locale = self.load.start(self.device.call('getLocale'), client=0)
        others = [self.load.start(call, client=1 + i % 15) for i, call in enumerate(self.device.calls())]
        for pending in [locale] + others:
            pending.wait(10)
        self.assertEqual([p.problem for p in [locale] + others], [None] * (1 + len(others)))
        self.assertGreaterEqual(locale.seconds, 0.2)
        self.assertCleanExit(daemon)


class SystemdTest(PeerFaultTestCase):

    def systemd(self, virtualization):
        return scriptedpeer.ScriptedPeer(self, SYSTEMD, '/org/freedesktop/systemd1', {
            'org.freedesktop.DBus.Introspectable.Introspect': ('s', SYSTEMD_XML),
            GET_VIRTUALIZATION: virtualization,
        })

    def is_emulated(self):
        properties = self.bus.get_object(plinthtest.BUS_NAME, FEATURES_PATH, introspect=False)
        return properties.Get(FEATURES_IFACE, 'isOsEmulated', dbus_interface=dbus.PROPERTIES_IFACE)

    def test_answering_systemd(self):
        # The scripted systemd itself is sound: with an answer the probe uses it.
        self.systemd(('v', ('s', 'kvm')))
        knownanswers.start_user_manager(self)
        daemon = self.start()
        self.assertEqual(self.is_emulated(), dbus.Boolean(True))
        self.assertNotIn(VIRTUALIZATION_WARNING, daemon.output())

    def test_gone_during_the_start_up_probe(self):
        systemd = self.systemd(('v', ('s', 'kvm'), scriptedpeer.NEVER))
        knownanswers.start_user_manager(self)
        daemon = self.start(wait=False)
        systemd.wait_for_call(GET_VIRTUALIZATION, timeout=20)
        systemd.kill()
        daemon.wait_ready(timeout=10)
        self.assertEqual(self.is_emulated(), dbus.Boolean(False))
        self.assertEqual(daemon.output().count(VIRTUALIZATION_WARNING), 1, daemon.output())
        self.assertServesEverything(locale='en_US')
        self.assertCleanExit(daemon)


class OfonoTest(cleanexit.CleanExit, simtest.SimTestCase):

    def cards_checker(self, counts, seen):
        """Well-typed lists of one of COUNTS cards; SEEN collects the counts in order."""
        def check(cards):
            if not isinstance(cards, dbus.Array) or cards.signature != 'a{sv}':
                return 'not aa{sv}: %r' % (cards,)
            seen.append(len(cards))
            if len(cards) not in counts:
                return '%d cards' % len(cards)
            return None
        return check

    def test_gone_under_load(self):
        ofono = self.start_ofono()
        ofono.add_modem('ril_0')
        ofono.add_modem('ril_1')
        daemon = self.start_sim_daemon()
        plinthtest.wait_until(lambda: len(self.cards()) == 2, what='two SIM cards')

        load = loadclients.Load(self.system_bus.address, clients=16, in_flight=4)
        self.addCleanup(load.close)
        seen = []
        cards = loadclients.Call(SIM_PATH, SIM_IFACE, 'getSimCardsInfo', self.cards_checker((0, 2), seen))
        model = loadclients.Call(FEATURES_PATH, FEATURES_IFACE, 'getNumberCpuCores',
                                 lambda value: None if isinstance(value, dbus.UInt32) else repr(value))
        from gi.repository import GLib
        GLib.timeout_add(300, lambda: ofono.process.kill() and False)
        result = load.run(8000, [cards, model])
        self.assertEqual(result.problems, [], result)
        self.assertEqual(result.answered, 8000)
        # oFono went in the middle: two cards before, none after, nothing
        # between. (Replies to different clients may pass each other on the
        # way, so only the ends of the sequence are in a fixed order.)
        self.assertEqual(seen[0], 2)
        self.assertEqual(seen[-1], 0)
        self.assertEqual(set(seen), {0, 2})
        # Gone without a word (killed): the daemon follows the bus and lists nothing.
        plinthtest.wait_until(lambda: len(self.cards()) == 0, what='the cards to go with oFono')
        self.assertEqual(daemon.terminate(), 0)
        self.assertNoSanitizerReport(daemon)

    def test_never_answering_ofono_blocks_nothing(self):
        # oFono owns its name but sits on every request: the SIM side asks
        # asynchronously, so the daemon serves on, with no cards to list.
        ofono = scriptedpeer.ScriptedPeer(self, 'org.ofono', '/', {
            'org.ofono.Manager.GetModems': ('s', 'never sent', scriptedpeer.NEVER),
        })
        daemon = self.start_sim_daemon()
        ofono.wait_for_call('org.ofono.Manager.GetModems')
        load = loadclients.Load(self.system_bus.address, clients=16, in_flight=4)
        self.addCleanup(load.close)
        cards = loadclients.Call(SIM_PATH, SIM_IFACE, 'getSimCardsInfo', dbus.Array([], signature='a{sv}'))
        result = load.run(1600, [cards])
        self.assertEqual(result.problems, [], result)
        self.assertLess(result.seconds, 10)
        self.assertEqual(daemon.terminate(), 0)
        self.assertNoSanitizerReport(daemon)


if __name__ == '__main__':
    plinthtest.main()
