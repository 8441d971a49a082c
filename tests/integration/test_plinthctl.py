#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""plinthctl against the real daemon and against a stand-in with known answers.

The real daemon checks that every command works end to end and shows exactly
what the daemon answers; the stand-in (a python-dbusmock peer owning the name)
answers with values chosen to exercise the client: 64-bit sizes beyond what a
double holds, a signed size, SIM cards, drives and quotas, and signals.
"""

import json
import os
import re
import select
import signal
import subprocess
import time

import dbus

import plinthtest
import standin
from cameras import POLICY_IFACE, POLICY_NAME, POLICY_PATH, POLICY_SIGNAL
from plinthtest import BUS_NAME, FEATURES_IFACE, FEATURES_PATH, SIM_IFACE, SIM_PATH, STORAGES_IFACE, STORAGES_PATH
from standin import BEYOND_DOUBLE, MAX_T, WRAPPED, published

PLINTHCTL = os.path.join(os.environ.get('PLINTHD_BUILD_DIR', ''), 'tools', 'plinthctl')
# Only matters in the AddressSanitizer build: see the file itself.
CLIENT_ENV = plinthtest.CLIENT_SANITIZER_ENV
STORAGE_PARTS = ['internal', 'user', 'system', 'external', 'drives', 'quota']
def asv(**values):
    """An a{sv} for a signal argument: dbus-python would guess a narrower type."""
    return dbus.Dictionary(values, signature='sv')


def aasv(*maps):
    return dbus.Array(maps, signature='a{sv}')


def size_values(document):
    """Every value in the document whose name says it is a size."""
    found = []

    def walk(value, name=''):
        if isinstance(value, dict):
            for key, inner in value.items():
                walk(inner, key)
        elif isinstance(value, list):
            for inner in value:
                walk(inner, name)
        elif name.startswith('bytes') or name in ('quotaLimit', 'quotaAvailable', 'ramTotal', 'ramFree'):
            found.append((name, value))
    walk(document)
    return found


class PlinthctlTestCase(plinthtest.DaemonTestCase):

    def plinthctl(self, *args, env=None, timeout=60):
        full_env = dict(os.environ, **CLIENT_ENV)
        full_env.update(env or {})
        return subprocess.run([PLINTHCTL] + list(args), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, universal_newlines=True, env=full_env, timeout=timeout)

    def ok(self, *args):
        result = self.plinthctl(*args)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, '')
        return result.stdout

    def json_of(self, *args):
        return json.loads(self.ok('--json', *args))

    def assert_one_line_failure(self, result, text):
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout, '')
        self.assertEqual(result.stderr.count('\n'), 1, result.stderr)
        self.assertTrue(result.stderr.startswith('plinthctl: '), result.stderr)
        self.assertIn(text, result.stderr)


class AgainstTheDaemon(PlinthctlTestCase):
    """Every command, both forms, against the real plinthd."""

    def setUp(self):
        super().setUp()
        self.start_daemon()

    def test_features_json_is_what_the_daemon_answers(self):
        document = self.json_of('features')
        self.assertEqual(list(document), ['features'])
        features = document['features']
        methods, properties = published(FEATURES_IFACE)
        self.assertEqual(sorted(features), sorted(list(methods.values()) + properties))
        proxy = self.features()
        for method, out_name in methods.items():
            with self.subTest(method=method):
                answer = getattr(proxy, method)()
                if isinstance(answer, dbus.Array):
                    answer = [type(v).__base__(v) if not isinstance(v, dbus.Boolean) else bool(v) for v in answer]
                if method == 'getRamFreeSize':
                    # Read live on every call: two reads of a running machine differ.
                    self.assertIs(type(features[out_name]), int)
                    self.assertGreater(features[out_name], 0)
                    continue
                self.assertEqual(features[out_name], answer)
                self.assertEqual(type(features[out_name]) is bool, isinstance(answer, dbus.Boolean))
        props = self.proxy(FEATURES_PATH, 'org.freedesktop.DBus.Properties').GetAll(FEATURES_IFACE)
        for name in properties:
            self.assertEqual(features[name], props[name])

    def test_every_command_in_both_forms(self):
        commands = [[], ['status'], ['features'], ['sims'], ['storage']] + [['storage', p] for p in STORAGE_PARTS]
        for command in commands:
            with self.subTest(command=command):
                text = self.ok(*command)
                self.assertTrue(text.strip())
                document = self.json_of(*command)
                self.assertIsInstance(document, dict)
                for name, value in size_values(document):
                    self.assertIs(type(value), int, name)

    def test_overview_has_every_group(self):
        text = self.ok()
        for title in ('Device', 'Operating system', 'Locale', 'Fonts', 'SIM cards', 'Internal storage',
                      'User partition', 'System storage', 'External storage', 'External drives', 'User quotas'):
            self.assertIn('\n' + title + '\n', '\n' + text)
        document = self.json_of()
        self.assertEqual(sorted(document), ['features', 'sims', 'storage'])
        self.assertEqual(sorted(document['storage']), sorted(STORAGE_PARTS))
        # The daemon's own answer, through an independent client.
        self.assertEqual(document['features']['timeZone'], self.features().getTimeZone())
        self.assertEqual(len(document['sims']), len(self.sim().getSimCardsInfo()))

    def test_storage_parts_select_what_is_asked(self):
        self.assertEqual(sorted(self.json_of('storage', 'quota', 'drives')['storage']), ['drives', 'quota'])
        text = self.ok('storage', 'drives')
        self.assertTrue(text.startswith('External drives\n'), text)
        self.assertNotIn('User quotas', text)

    def test_sigterm_stops_monitor_with_status_0(self):
        monitor = Monitor(self)
        monitor.process.send_signal(signal.SIGTERM)
        self.assertEqual(monitor.process.wait(10), 0)
        self.assertEqual(monitor.process.stdout.read(), '')

    def test_monitor_stops_when_the_bus_goes(self):
        monitor = Monitor(self)
        self.system_bus.stop()
        self.assertEqual(monitor.process.wait(10), 1)
        self.assertEqual(monitor.process.stderr.read(), 'plinthctl: the system bus has gone away; stopping\n')


class Monitor:
    """plinthctl monitor, read line by line as it prints."""

    def __init__(self, test, *args):
        self.process = subprocess.Popen([PLINTHCTL, 'monitor'] + list(args), env=dict(os.environ, **CLIENT_ENV),
                                        stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True)
        test.addCleanup(self.close)
        # The client says it is monitoring once its subscriptions are in place;
        # what it did before that (starting the daemon) comes first.
        self.notes = []
        while True:
            line = self.process.stderr.readline()
            test.assertTrue(line, 'monitor ended before it was monitoring: %r' % self.notes)
            if 'Monitoring' in line:
                break
            self.notes.append(line)
        self.buffer = ''

    def read_until(self, pattern, timeout=10.0):
        """Reads until the output matches the regular expression."""
        deadline = time.monotonic() + timeout
        while not re.search(pattern, self.buffer):
            left = deadline - time.monotonic()
            if left <= 0:
                raise AssertionError('monitor did not print %r; it printed:\n%s' % (pattern, self.buffer))
            readable, _, _ = select.select([self.process.stdout], [], [], left)
            if readable:
                chunk = os.read(self.process.stdout.fileno(), 65536).decode()
                if not chunk:
                    raise AssertionError('monitor ended; it printed:\n%s' % self.buffer)
                self.buffer += chunk
        return self.buffer

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.process.stdout.close()
        self.process.stderr.close()


class AgainstAStandIn(PlinthctlTestCase):
    """A python-dbusmock peer owns the name and answers with chosen values."""

    def setUp(self):
        super().setUp()
        self.mocks = standin.start(self)

    def test_json_keeps_sizes_exact_and_integral(self):
        document = self.json_of()
        features = document['features']
        self.assertEqual(features['ramFree'], BEYOND_DOUBLE)
        self.assertEqual(features['maxCoresClockSpeed'], [1804, 2016])
        self.assertEqual(features['osType'], 2)
        self.assertIs(features['isOsCertified'], True)
        self.assertEqual(features['mainCamRes'], 12.2)
        storage = document['storage']
        self.assertEqual(storage['internal']['bytesTotal'], MAX_T)
        self.assertEqual(storage['user']['bytesUsedOtherUsers'], -1024)
        self.assertEqual(storage['system']['bytesUsedSDK'], BEYOND_DOUBLE)
        self.assertEqual(storage['system']['bytesUsedOther'], WRAPPED)
        self.assertEqual(storage['drives'][0]['partitionsInfo'][0]['bytesTotal'], 2048)
        self.assertEqual(storage['quota']['100000']['quotaLimit'], MAX_T)
        self.assertEqual(document['sims'][0]['operatorName'], 'Tele One')
        sizes = size_values(document)
        self.assertGreaterEqual(len(sizes), 10)
        for name, value in sizes:
            self.assertIs(type(value), int, name)
        # Written digit for digit, never as a floating-point number.
        raw = self.ok('--json', 'storage', 'internal')
        self.assertIn('"bytesTotal": 18446744073709551615', raw)

    def test_text_shows_human_sizes_and_units(self):
        text = self.ok()
        for line in ('CPU model:', 'Test CPU', 'Memory total:', '4.0 GiB', '2016 MHz', '1804 MHz', '87 %',
                     '12.2 MP', 'Font files:    3', 'Font families: 2', 'Serial number: n/a', 'Certified:     yes',
                     'Tele One', 'Preferred for calls: no', 'Total:', '16.0 EiB', 'Used by other users: -1.0 KiB',
                     'Used by pictures:', '1.5 KiB', 'Used by SDK:         8.0 PiB',
                     'Used by other files: 0 B (the parts counted add up to more than the used space)',
                     'Battery:', 'Front camera:', 'not known', 'Acme Card:', 'CARD:', '2.0 KiB',
                     'uid 100000:', 'Quota set:', 'Mounted partitions: 0'):
            self.assertIn(line, text)
        full = self.ok('features')
        self.assertIn('/usr/share/fonts/c.ttf', full)
        self.assertIn('en_GB.UTF-8', full)
        self.assertRegex(self.ok('sims'), r'\n    Name: +SIM1\n')

    def test_monitor_prints_every_signal_of_the_owner(self):
        monitor = Monitor(self)
        mocks = self.mocks
        mocks[FEATURES_PATH].EmitSignal(FEATURES_IFACE, 'cameraEnabledChanged', 'b', [False])
        monitor.read_until(r'org\.norvu\.plinth\.Features\.cameraEnabledChanged\n  Camera enabled: no\n')
        mocks[SIM_PATH].EmitSignal(SIM_IFACE, 'simCardsEnabledChanged', 'aa{sv}',
                                   [aasv(asv(simName='SIM2', enabled=True))])
        mocks[SIM_PATH].EmitSignal(SIM_IFACE, 'preferredDataTransferSimChanged', 'aa{sv}', [aasv()])
        mocks[SIM_PATH].EmitSignal(SIM_IFACE, 'preferredVoiceCallSimChanged', 'aa{sv}', [aasv()])
        mocks[STORAGES_PATH].EmitSignal(STORAGES_IFACE, 'externalStorageChanged', 'a{sv}',
                                        [asv(bytesTotal=dbus.UInt64(MAX_T))])
        mocks[STORAGES_PATH].EmitSignal(STORAGES_IFACE, 'externalDriveChanged', 'a{sv}',
                                        [asv(driveName='Stick')])
        out = monitor.read_until(r'\.Storages\.externalDriveChanged\n  External drive info:\n    Drive: +Stick\n')
        for pattern in (r'\.SIM\.simCardsEnabledChanged\n  Updated sim cards:\n    SIM2:\n      Name: +SIM2\n',
                        r'\.SIM\.preferredDataTransferSimChanged\n  Updated sim cards: none\n',
                        r'\.SIM\.preferredVoiceCallSimChanged\n  Updated sim cards: none\n',
                        r'\.Storages\.externalStorageChanged\n  Updated storage:\n    Total: +16\.0 EiB\n'):
            self.assertRegex(out, pattern)
        # Every entry starts with the time it arrived.
        self.assertEqual(len(re.findall(r'^\d\d:\d\d:\d\d\.\d{3} org\.norvu\.plinth\.', out, re.M)), 6)
        # In the order they were emitted.
        self.assertLess(out.index('simCardsEnabledChanged'), out.index('externalDriveChanged'))
        monitor.process.send_signal(signal.SIGINT)
        self.assertEqual(monitor.process.wait(10), 0)

    def test_monitor_json_lines(self):
        monitor = Monitor(self, '--json')
        self.mocks[STORAGES_PATH].EmitSignal(STORAGES_IFACE, 'externalDriveChanged', 'a{sv}',
                                             [asv(bytesTotal=dbus.UInt64(MAX_T), mounted=True)])
        self.mocks[FEATURES_PATH].EmitSignal(FEATURES_IFACE, 'cameraEnabledChanged', 'b', [True])
        # The stand-in sends each signal before it answers the call that asked
        # for it, and the bus keeps one sender's messages in order: the monitor
        # must show them as they were sent, the one sent at once after it said
        # "Monitoring" included.
        out = monitor.read_until(r'cameraEnabledChanged.*\n')
        lines = [json.loads(line) for line in out.splitlines()]
        self.assertEqual(len(lines), 2, out)
        first, second = lines
        self.assertEqual(first['interface'], STORAGES_IFACE)
        self.assertEqual(first['path'], STORAGES_PATH)
        self.assertEqual(first['signal'], 'externalDriveChanged')
        self.assertEqual(first['arguments'], {'externalDriveInfo': {'bytesTotal': MAX_T, 'mounted': True}})
        self.assertRegex(first['time'], r'^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$')
        self.assertEqual(second['arguments'], {'cameraEnabled': True})
        monitor.process.send_signal(signal.SIGTERM)
        self.assertEqual(monitor.process.wait(10), 0)

    def test_monitor_ignores_signals_from_others(self):
        monitor = Monitor(self)
        # Anybody may emit a signal with the daemon's path and interface.
        impostor = dbus.bus.BusConnection(self.system_bus.address)
        self.addCleanup(impostor.close)
        impostor.send_message(dbus.lowlevel.SignalMessage(FEATURES_PATH, FEATURES_IFACE, 'cameraEnabledChanged'))
        message = dbus.lowlevel.SignalMessage(FEATURES_PATH, FEATURES_IFACE, 'cameraEnabledChanged')
        message.append(True, signature='b')
        impostor.send_message(message)
        impostor.flush()
        # The owner's signal, sent after the impostor's, is the first one shown.
        self.mocks[FEATURES_PATH].EmitSignal(FEATURES_IFACE, 'cameraEnabledChanged', 'b', [False])
        out = monitor.read_until(r'Camera enabled: no\n')
        self.assertEqual(out.count('cameraEnabledChanged'), 1, out)


class FollowingTheDaemon(plinthtest.ActivationTestCase, PlinthctlTestCase):
    """The monitor on a bus that starts the daemon on demand, as the system bus
    does: it starts an absent daemon, says when it goes and comes back, and
    shows the signals of whichever daemon is there."""

    def kill(self, pid):
        # Killed once it serves, as the test means: under qemu-user a daemon
        # killed in the middle of its start-up kept its name longer than the
        # wait below (the test's reason to exist is the monitor, not that).
        self.features().getCpuModel(timeout=60)
        os.kill(pid, signal.SIGKILL)
        plinthtest.wait_until(lambda: not self.bus.name_has_owner(BUS_NAME), timeout=30,
                              what='the daemon to leave the bus')

    def start_again(self):
        """Any call brings the daemon back."""
        self.features().getCpuModel(timeout=60)
        return self.daemon_pid()

    def assert_started_by_the_monitor(self, monitor):
        self.assertEqual(monitor.notes, ['plinthctl: plinthd was not running; the bus has started it\n'])
        self.assertTrue(self.bus.name_has_owner(BUS_NAME))

    def test_starts_follows_and_keeps_monitoring(self):
        _, policy = self.start_mock(POLICY_NAME, POLICY_PATH, POLICY_IFACE)
        self.assertFalse(self.bus.name_has_owner(BUS_NAME))
        monitor = Monitor(self)
        self.assert_started_by_the_monitor(monitor)
        first = self.daemon_pid()

        def camera_signal_shown(after):
            # The daemon may still be setting up its watch of the policy
            # manager: announce again until a signal comes through.
            for _ in range(40):
                policy.EmitSignal(POLICY_IFACE, POLICY_SIGNAL, '', [])
                try:
                    monitor.read_until(after + r'.*cameraEnabledChanged\n  Camera enabled: yes\n', timeout=0.5)
                    return
                except AssertionError:
                    pass
            monitor.read_until(after + r'.*cameraEnabledChanged', timeout=1)

        camera_signal_shown('')
        self.kill(first)
        out = monitor.read_until(r'\d\d:\d\d:\d\d\.\d{3} plinthd has left the bus \(it was :[\d.]+\)\n')
        self.assertNotIn('is on the bus', out)
        self.start_again()
        monitor.read_until(r'left the bus.*\n\d\d:\d\d:\d\d\.\d{3} plinthd is on the bus as :[\d.]+\n')
        camera_signal_shown(r'(?s)is on the bus as :[\d.]+\n')
        self.assertIsNone(monitor.process.poll())
        monitor.process.send_signal(signal.SIGTERM)
        self.assertEqual(monitor.process.wait(10), 0)

    def test_json_lines_for_the_daemon_leaving_and_coming_back(self):
        monitor = Monitor(self, '--json')
        self.assert_started_by_the_monitor(monitor)
        first_owner = self.bus.get_name_owner(BUS_NAME)
        self.kill(self.daemon_pid())
        self.start_again()
        second_owner = self.bus.get_name_owner(BUS_NAME)
        out = monitor.read_until(r'"appeared".*\n')
        events = [json.loads(line) for line in out.splitlines() if '"event"' in line]
        self.assertEqual([(e['event'], e['owner'], e['service']) for e in events],
                         [('vanished', first_owner, BUS_NAME), ('appeared', second_owner, BUS_NAME)])
        for event in events:
            self.assertRegex(event['time'], r'^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$')

    def test_a_running_daemon_is_not_started_again(self):
        self.start_again()
        self.assertEqual(Monitor(self).notes, [])


class WithoutDaemonOrBus(PlinthctlTestCase):

    def test_no_daemon_on_the_bus(self):
        for args in ([], ['features'], ['sims'], ['storage', 'quota'], ['--json']):
            with self.subTest(args=args):
                self.assert_one_line_failure(self.plinthctl(*args), 'plinthd is not running')

    def test_no_bus(self):
        env = {'DBUS_SYSTEM_BUS_ADDRESS': 'unix:path=' + os.path.join(self.workdir, 'no-such-socket')}
        for args in ([], ['--json', 'storage'], ['monitor']):
            with self.subTest(args=args):
                self.assert_one_line_failure(self.plinthctl(*args, env=env), 'cannot reach the system bus')

    def test_monitor_waits_for_a_daemon_the_bus_cannot_start(self):
        monitor = Monitor(self)
        self.assertEqual(len(monitor.notes), 1, monitor.notes)
        self.assertRegex(monitor.notes[0], r'^plinthctl: plinthd is not running and the bus cannot start it \(.+\); '
                                           r'waiting for it\n$')
        process, _ = self.start_mock(BUS_NAME, FEATURES_PATH, FEATURES_IFACE)
        owner = self.bus.get_name_owner(BUS_NAME)
        monitor.read_until(r'plinthd is on the bus as %s\n' % re.escape(owner))
        process.terminate()
        monitor.read_until(r'plinthd has left the bus \(it was %s\)\n' % re.escape(owner))

    def test_help(self):
        for args in (['--help'], ['-h'], ['help'], ['storage', '--help']):
            result = self.plinthctl(*args)
            self.assertEqual(result.returncode, 0)
            for word in ['status', 'features', 'sims', 'storage', 'monitor', '--json'] + STORAGE_PARTS:
                self.assertIn(word, result.stdout)

    def test_bad_command_lines(self):
        for args, text in ((['reboot'], "unknown command 'reboot'"), (['--frob'], "unknown option '--frob'"),
                           (['storage', 'attic'], "unknown storage part 'attic'"),
                           (['sims', 'SIM1'], "'sims' takes no argument")):
            with self.subTest(args=args):
                self.assert_one_line_failure(self.plinthctl(*args), text)


if __name__ == '__main__':
    plinthtest.main()
