#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The real daemon under load: many clients at once, clients that leave before
their replies, and SIGTERM in the middle of it all.

The daemon runs on a device whose every answer is known (knownanswers.py), so
each of the thousands of replies is checked for its exact value and D-Bus
type, not only for having come.
"""

import signal


import cleanexit
import knownanswers
import loadclients
import plinthtest

CLIENTS = 16


class LoadTestCase(loadclients.LoadAssertions, cleanexit.CleanExit, plinthtest.DaemonTestCase):

    LOCALE_DELAY = None

    def setUp(self):
        super().setUp()
        self.device = knownanswers.KnownDevice(self)
        self.user_manager = knownanswers.start_user_manager(self, locale_delay=self.LOCALE_DELAY)
        self.load = loadclients.Load(self.system_bus.address, clients=CLIENTS, in_flight=4)
        self.addCleanup(self.load.close)

    def start(self, **kwargs):
        return self.start_daemon(**self.device.daemon_kwargs(**kwargs))


class ManyClientsTest(LoadTestCase):

    def test_ten_thousand_calls_from_sixteen_clients(self):
        daemon = self.start()
        result = self.assertHeapSettles(daemon, self.device.calls(), total=10000, warm_up=2000)
        # Every client had its share, and every method was asked many times.
        self.assertEqual(result.per_client, [10000 // CLIENTS] * CLIENTS)
        self.assertCleanExit(daemon)


class HastyClientsTest(LoadTestCase):

    # The user manager takes a while over each locale, so the daemon still
    # holds the hasty clients' locale calls when their senders are gone.
    LOCALE_DELAY = 0.5

    def test_clients_gone_before_their_replies(self):
        daemon = self.start()
        methods = ('getLocale', 'getCpuModel', 'getRamFreeSize', 'getFontNames', 'getLocales',
                   'getMaxCpuCoresClockSpeed', 'getOsVersion', 'getFontFamilyNames', 'getTimeZone',
                   'getBatteryChargePercentage')
        loadclients.hasty_clients(self.system_bus.address, CLIENTS, 100,
                                  [self.device.call(method) for method in methods])
        # The 160 locale calls of the clients that have gone are answered into
        # the void when the user manager has answered; well-behaved clients
        # meanwhile get every answer, the locale with them.
        result = self.load.run(1600, self.device.calls())
        self.assertAllAnswered(result, 1600)
        self.assertCleanExit(daemon)
        self.assertNotIn('QDBus', daemon.output())


class TerminationTest(LoadTestCase):

    def test_sigterm_under_load(self):
        daemon = self.start()
        calls = self.device.calls()

        def terminate_after_a_tenth(result):
            if result.answered == 4000:
                daemon.process.send_signal(signal.SIGTERM)
        # The load is well under way when the signal comes; after it, the
        # calls still queued and those made later get errors, never a hang.
        result = self.load.run(40000, calls, deadline=60, after_each=terminate_after_a_tenth)
        self.assertEqual(daemon.process.wait(10), 0, daemon.output())
        self.assertNoSanitizerReport(daemon)

        self.assertGreaterEqual(result.answered, 4000, result)
        self.assertLess(result.answered, 40000, 'the signal came after the load: %r' % result)
        wrong = [p for p in result.problems if not p[1].startswith('error ')]
        self.assertEqual(wrong, [], 'answers before the exit must all be right')
        # The errors say the daemon left: a call in its queue is not replied
        # to (NoReply from the bus), one that arrives while the objects are
        # unregistered meets no object, and later ones no name.
        names = {name for _, name, _ in result.errors}
        self.assertLessEqual(names, {'org.freedesktop.DBus.Error.NoReply',
                                     'org.freedesktop.DBus.Error.UnknownObject',
                                     'org.freedesktop.DBus.Error.ServiceUnknown'}, result.errors[:5])
        self.assertEqual(result.answered + len(result.errors), 40000)
        # The bus name went with the process.
        self.assertFalse(self.bus.name_has_owner(plinthtest.BUS_NAME))


if __name__ == '__main__':
    plinthtest.main()
