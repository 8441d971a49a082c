#!/usr/bin/python3
"""The real daemon under load: many clients at once, clients that leave before
their replies, and SIGTERM in the middle of it all.

The daemon runs on a device whose every answer is known (knownanswers.py), so
each of the thousands of replies is checked for its exact value and D-Bus
type, not only for having come.
"""

import os
import signal
import subprocess
import sys
import textwrap
import time

import cleanexit
import knownanswers
import loadclients
import plinthtest

CLIENTS = 16


def vm_rss_kib(pid):
    with open('/proc/%d/status' % pid) as f:
        for line in f:
            if line.startswith('VmRSS:'):
                return int(line.split()[1])
    raise AssertionError('no VmRSS for %d' % pid)


class LoadTestCase(cleanexit.CleanExit, plinthtest.DaemonTestCase):

    def setUp(self):
        super().setUp()
        self.device = knownanswers.KnownDevice(self)
        self.user_manager = knownanswers.start_user_manager(self)
        self.load = loadclients.Load(self.system_bus.address, clients=CLIENTS, in_flight=4)
        self.addCleanup(self.load.close)

    def start(self, **kwargs):
        return self.start_daemon(**self.device.daemon_kwargs(**kwargs))

    def assertAllAnswered(self, result, total):
        self.assertEqual(result.problems, [], result)
        self.assertEqual(result.answered, total, result)


class ManyClientsTest(LoadTestCase):

    # The heap must come back to where it was: a leak or a cache that grows
    # per call shows here, while glibc's own arenas and Qt's pools, warmed up
    # by the first round, do not grow any more. 10,000 calls leaking only 100
    # bytes each would be 1 MiB.
    RSS_GROWTH_LIMIT_KIB = 1024

    def test_ten_thousand_calls_from_sixteen_clients(self):
        daemon = self.start()
        calls = self.device.calls()
        warm_up = self.load.run(2000, calls)
        self.assertAllAnswered(warm_up, 2000)
        self.load.close()
        time.sleep(0.5)
        idle = vm_rss_kib(daemon.process.pid)

        result = self.load.run(10000, calls)
        self.assertAllAnswered(result, 10000)
        # Every client had its share, and every method was asked many times.
        self.assertEqual(result.per_client, [10000 // CLIENTS] * CLIENTS)
        self.load.close()
        time.sleep(0.5)
        after = vm_rss_kib(daemon.process.pid)
        print('VmRSS idle %d KiB, after 10,000 calls %d KiB (%.0f calls/s)'
              % (idle, after, 10000 / result.seconds), file=sys.stderr)
        # The sanitizers' allocators hold freed memory back on purpose
        # (quarantine); there the leak checker at exit stands in for this.
        if not os.environ.get('PLINTHD_SANITIZE'):
            self.assertLess(after - idle, self.RSS_GROWTH_LIMIT_KIB,
                            'VmRSS grew from %d to %d KiB' % (idle, after))
        self.assertCleanExit(daemon)


# A client that sends its calls and leaves at once, without reading a reply:
# the program gets the bus address, the number of calls and the methods.
HASTY_CLIENT = textwrap.dedent('''
    import os, sys
    import dbus
    bus = dbus.bus.BusConnection(sys.argv[1])
    methods = sys.argv[3].split(',')
    for i in range(int(sys.argv[2])):
        message = dbus.lowlevel.MethodCallMessage('org.norvu.plinth', '/org/norvu/plinth/Features',
                                                  'org.norvu.plinth.Features', methods[i % len(methods)])
        bus.send_message(message)
    bus.flush()
    os._exit(0)
''')


class HastyClientsTest(LoadTestCase):

    def setUp(self):
        # The user manager takes a while over each locale, so the daemon is
        # still busy with the first calls when their senders are gone.
        plinthtest.DaemonTestCase.setUp(self)
        self.device = knownanswers.KnownDevice(self)
        self.user_manager = knownanswers.start_user_manager(self, locale_delay=0.02)
        self.load = loadclients.Load(self.system_bus.address, clients=CLIENTS, in_flight=4)
        self.addCleanup(self.load.close)

    def test_clients_gone_before_their_replies(self):
        daemon = self.start()
        methods = ','.join(['getLocale', 'getCpuModel', 'getRamFreeSize', 'getFontNames', 'getLocales',
                            'getMaxCpuCoresClockSpeed', 'getOsVersion', 'getFontFamilyNames', 'getTimeZone',
                            'getBatteryChargePercentage'])
        hasty = [subprocess.Popen([sys.executable, '-c', HASTY_CLIENT, self.system_bus.address, '100', methods])
                 for _ in range(CLIENTS)]
        for process in hasty:
            self.assertEqual(process.wait(30), 0)
        # 16 x 10 locale calls at 20 ms each are still being worked through;
        # well-behaved clients queue up behind them and get every answer.
        result = self.load.run(1600, self.device.calls())
        self.assertAllAnswered(result, 1600)
        self.assertGreaterEqual(result.seconds, 0.5, 'the hasty calls were not served first')
        self.assertCleanExit(daemon)
        self.assertNotIn('QDBus', daemon.output())


class TerminationTest(LoadTestCase):

    def test_sigterm_under_load(self):
        daemon = self.start()
        calls = self.device.calls()
        from gi.repository import GLib

        def terminate():
            daemon.process.send_signal(signal.SIGTERM)
            return False
        # The load is well under way when the signal comes; after it, the
        # calls still queued and those made later get errors, never a hang.
        GLib.timeout_add(700, terminate)
        result = self.load.run(40000, calls, deadline=60)
        self.assertEqual(daemon.process.wait(10), 0, daemon.output())
        self.assertNoSanitizerReport(daemon)

        self.assertGreater(result.answered, 1000, result)
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
