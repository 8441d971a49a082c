#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Peers of the daemon that fail it: the user manager, systemd and oFono going
away in the middle of a call, stopping, or holding a call without ever
answering.

The main thread never waits on a peer: getLocale and the storage queries that
need the current user take their replies over and answer when the user
manager has, while every other call is answered at once. A peer that
disappears ends the round trip at once (the bus answers for it); a peer that
stops holds only the callers that need it, and they all get its real answer
when it goes on. The wait for a peer that stays but never answers is Qt's
default D-Bus time-out; that case has a test of its own
(test_peer_timeout.py), as it takes that long. The one blocking call left is
systemd's, at start-up, before the name is served.
"""

import os
import signal
import sys
import time

import dbus

import cleanexit
import knownanswers
import loadclients
import plinthtest
import scriptedpeer
import simtest
from plinthtest import FEATURES_IFACE, FEATURES_PATH, SIM_IFACE, SIM_PATH, STORAGES_IFACE, STORAGES_PATH

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

    def test_held_call_holds_nothing_else(self):
        user_manager = knownanswers.start_user_manager(self, locale_delay=scriptedpeer.NEVER)
        daemon = self.start()
        locale = self.load.start(self.device.call('getLocale'), client=0)
        user_manager.wait_for_call(GET_USER_LOCALE)
        # Only getLocale waits for the peer; the dispatch goes on.
        others = [self.load.start(self.device.call(method), client=1 + i)
                  for i, method in enumerate(('getCpuModel', 'getRamFreeSize', 'getSimCardsInfo'))]
        for pending in others:
            pending.wait(5)
        self.assertEqual([p.problem for p in others], [None] * 3)
        self.assertEqual(locale.problem, 'no answer')
        user_manager.kill()
        # The bus ends the round trip for the peer that left.
        locale.wait(5)
        self.assertEqual(locale.value, dbus.String('C'))
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


def quota_map(value):
    """What getUsersQuotaInfo must send: a{sa{sv}} (the figures depend on the machine)."""
    if isinstance(value, dbus.Dictionary) and value.signature == 'sa{sv}':
        return None
    return 'not a{sa{sv}}: %r' % (value,)


class StoppedUserManagerTest(PeerFaultTestCase):
    """A user manager stopped with SIGSTOP (hanging, swapped out, in a
    debugger) on a bus with the default limits: 128 outstanding calls per
    connection, which one peer call per client call would exhaust."""

    bus_config = plinthtest.DEFAULT_LIMITS_BUS_CONFIG
    HELD_EACH = 100
    OTHERS_SECONDS = 5.0
    MEMORY_CALLS = 1000
    MEMORY_LIMIT_KIB = 1024

    def setUp(self):
        super().setUp()
        self.user_manager, mock = self.start_mock(knownanswers.USER_MANAGER, '/', knownanswers.USER_MANAGER)
        mock.AddMethod('', 'currentUser', '', 'u', 'ret = dbus.UInt32(100000)')
        mock.AddMethod('', 'getUserLocale', 'u', 's', "ret = 'en_US.utf8'")
        # Runs before the mock's own cleanup: a stopped process would not end.
        self.addCleanup(self.resume_user_manager)
        self.quota = loadclients.Call(STORAGES_PATH, STORAGES_IFACE, 'getUsersQuotaInfo', quota_map)

    def stop_user_manager(self):
        os.kill(self.user_manager.pid, signal.SIGSTOP)

    def resume_user_manager(self):
        os.kill(self.user_manager.pid, signal.SIGCONT)

    def hold(self, count):
        """COUNT calls, getLocale and getUsersQuotaInfo in turn, from every client."""
        calls = (self.device.call('getLocale'), self.quota)
        return [self.load.start(calls[i % 2], client=i % self.load.clients) for i in range(count)]

    def test_stall_holds_only_the_callers_that_need_the_peer(self):
        daemon = self.start()
        self.stop_user_manager()
        held = self.hold(2 * self.HELD_EACH)
        loadclients.spin(1.0)
        self.assertEqual({p.problem for p in held}, {'no answer'})

        # Features and SIM answer while 200 calls wait for the stopped peer.
        for method in ('getCpuModel', 'getSimCardsInfo'):
            pending = self.load.start(self.device.call(method), client=0).wait(self.OTHERS_SECONDS)
            self.assertIsNone(pending.problem, method)
            self.assertLess(pending.seconds, self.OTHERS_SECONDS, method)

        self.resume_user_manager()
        for pending in held:
            pending.wait(30)
        # The user's real locale, not "C", and no error for anyone.
        self.assertEqual([p.problem for p in held], [None] * len(held))
        self.assertEqual({p.value for p in held if p.call.method == 'getLocale'}, {dbus.String('en_US')})
        self.assertNotIn(UID_WARNING, daemon.output())
        self.assertNotIn(LOCALE_WARNING, daemon.output())
        self.assertCleanExit(daemon)

    def held_round(self):
        self.stop_user_manager()
        held = self.hold(self.MEMORY_CALLS)
        loadclients.spin(2.0)
        self.resume_user_manager()
        for pending in held:
            pending.wait(60)
        self.assertEqual([p.problem for p in held], [None] * len(held))
        self.load.close()
        time.sleep(0.5)

    def test_held_calls_leave_no_memory_behind(self):
        # What is measured is the held calls, not the walks of the quota
        # figures: an empty /home keeps those to nothing, whatever the
        # machine's homes hold. And one malloc arena for every thread: the
        # arena glibc gives a worker the first time it allocates stays with
        # the process, and which worker a computation lands on is the pool's
        # choice, not a leak.
        home = os.path.join(self.workdir, 'home')
        os.mkdir(home)
        daemon = self.start(env={'MALLOC_ARENA_MAX': '1'}, binds={'/home': home})
        # The first round warms up what the daemon keeps for good (QtDBus's
        # caches, the allocator's arenas); the second must cost nothing more.
        self.held_round()
        idle = loadclients.private_dirty_kib(daemon.process.pid)
        self.held_round()
        after = loadclients.private_dirty_kib(daemon.process.pid)
        print('private dirty memory idle %d KiB, after %d held calls %d KiB' % (idle, self.MEMORY_CALLS, after),
              file=sys.stderr)
        # The sanitizers' allocators hold freed memory back on purpose; there
        # the leak checker at exit stands in for this. Under an emulator the
        # daemon's memory holds the emulator's translated code as well.
        if not os.environ.get('PLINTHD_SANITIZE') and not os.environ.get('PLINTHD_TEST_EMULATED'):
            self.assertLess(after - idle, self.MEMORY_LIMIT_KIB)
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
        calls = 8000
        seen = []
        cards = loadclients.Call(SIM_PATH, SIM_IFACE, 'getSimCardsInfo', self.cards_checker((0, 2), seen))
        model = loadclients.Call(FEATURES_PATH, FEATURES_IFACE, 'getNumberCpuCores',
                                 lambda value: None if isinstance(value, dbus.UInt32) else repr(value))

        def kill_after_a_quarter(result):
            if result.answered == calls // 4:
                ofono.process.kill()
        result = load.run(calls, [cards, model], after_each=kill_after_a_quarter)
        self.assertEqual(result.problems, [], result)
        self.assertEqual(result.answered, calls)
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

    def start_with_modem_list_held(self):
        """oFono that owns its name but never answers for its modem list, and
        the daemon once it has asked; returns both."""
        ofono = scriptedpeer.ScriptedPeer(self, 'org.ofono', '/', {
            'org.ofono.Manager.GetModems': ('s', 'never sent', scriptedpeer.NEVER),
        })
        daemon = self.start_sim_daemon()
        ofono.wait_for_call('org.ofono.Manager.GetModems')
        return ofono, daemon

    def assertServesNoCards(self, daemon):
        """Calls for the cards are all answered, at once, with no cards; the daemon then ends cleanly."""
        load = loadclients.Load(self.system_bus.address, clients=16, in_flight=4)
        self.addCleanup(load.close)
        cards = loadclients.Call(SIM_PATH, SIM_IFACE, 'getSimCardsInfo', dbus.Array([], signature='a{sv}'))
        result = load.run(1600, [cards])
        self.assertEqual(result.problems, [], result)
        self.assertLess(result.seconds, 10)
        self.assertEqual(daemon.terminate(), 0)
        self.assertNoSanitizerReport(daemon)

    def test_never_answering_ofono_blocks_nothing(self):
        # oFono owns its name but sits on every request: the SIM side asks
        # asynchronously, so the daemon serves on, with no cards to list.
        _, daemon = self.start_with_modem_list_held()
        self.assertServesNoCards(daemon)

    def test_never_answered_modem_list_is_not_asked_again(self):
        # A list that is still on its way is waited for, not asked for anew:
        # every call oFono holds counts against the few calls the bus lets the
        # daemon have outstanding.
        ofono, daemon = self.start_with_modem_list_held()
        ofono.calls_within(1)
        self.assertNotIn('org.ofono.Manager.GetModems', ofono.calls_within(4))
        self.assertEqual(daemon.terminate(), 0)
        self.assertNoSanitizerReport(daemon)

    def test_never_read_modems_block_nothing(self):
        # oFono lists two modems but sits on every question about them: the
        # daemon waits for their properties without waiting on them, and
        # serves on, with no cards to list.
        never = ('s', 'never sent', scriptedpeer.NEVER)
        ofono = scriptedpeer.ScriptedPeer(self, 'org.ofono', scriptedpeer.ANY_PATH, {
            'org.ofono.Manager.GetModems': ('a(oa{sv})', ['/ril_0', '/ril_1']),
            'org.ofono.Modem.GetProperties': never,
            'org.ofono.ConnectionManager.GetProperties': never,
            'org.ofono.SimManager.GetProperties': never,
        })
        daemon = self.start_sim_daemon()
        ofono.wait_for_call('org.ofono.Modem.GetProperties')
        self.assertServesNoCards(daemon)


if __name__ == '__main__':
    plinthtest.main()
