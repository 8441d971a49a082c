#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The examples of docs/examples, run against the real daemon on the private bus.

Each class is one CTest test (named on the command line). The examples use
the system bus, which DBUS_SYSTEM_BUS_ADDRESS points at the test's own; what
they print is compared with what the daemon's device holds:

- the Features example and the shell example run on the device of
  knownanswers.py, whose every Features answer is known;
- the storage example and the Python example run on a device whose user
  partition (/home), system logs, core dumps and SDK folders are tmpfs mounts
  holding files of known sizes, with a user manager that names alice.

The drive-following example needs recorded block devices and is in
test_doc_example_drives.py.
"""

import os
import re
import subprocess

import dbus

import knownanswers
import plinthtest
import userdevice
from userdevice import HOME_SIZE

SOURCE_DIR = os.environ.get('PLINTHD_SOURCE_DIR', os.path.join(os.path.dirname(__file__), '..', '..'))
EXAMPLES = os.path.join(SOURCE_DIR, 'docs', 'examples')
BUILT_EXAMPLES = os.path.join(os.environ.get('PLINTHD_BUILD_DIR', ''), 'docs', 'examples', 'cpp')


class ExampleTestCase(plinthtest.DaemonTestCase):

    def run_example(self, *command, timeout=60):
        """Runs an example to its end; its standard output."""
        done = subprocess.run(list(command), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              universal_newlines=True, timeout=timeout, stdin=subprocess.DEVNULL,
                              env=dict(os.environ, **plinthtest.CLIENT_SANITIZER_ENV))
        self.assertEqual(done.returncode, 0, 'stdout:\n%s\nstderr:\n%s' % (done.stdout, done.stderr))
        self.assertEqual(done.stderr, '')
        return done.stdout

    def cpp(self, name):
        path = os.path.join(BUILT_EXAMPLES, 'plinth-example-' + name)
        self.assertTrue(os.access(path, os.X_OK), '%s is not built' % path)
        return path

    def start_known_device(self):
        device = knownanswers.KnownDevice(self)
        return self.start_daemon(**device.daemon_kwargs())

    def start_storage_device(self):
        """/home with alice's files, /var/log, /var/cache/core-dumps, no SDK."""
        return self.start_daemon(**userdevice.prepare(self))


class CppFeaturesExample(ExampleTestCase):
    """docs/examples/cpp/features.cpp: synchronous calls."""

    def test_prints_the_device(self):
        self.start_known_device()
        output = self.run_example(self.cpp('features'))
        self.assertEqual(output.splitlines(), [
            'Processor: XYZ100, 8 cores, up to 2208 MHz',
            'Per core (MHz): 1804 2208',
            'Memory: %d bytes (3.6 GiB)' % (3809096 * 1024),
            'Main camera: not measured',
            'OS: Vireo 4.6.0.15',
            'OS type: 64, emulated: no',
            'SIM cards: 0',
        ])


class CppStorageExample(ExampleTestCase):
    """docs/examples/cpp/storage.cpp: asynchronous storage questions."""

    def test_prints_the_user_partition_and_the_system_categories(self):
        self.start_storage_device()
        output = self.run_example(self.cpp('storage'))
        lines = output.splitlines()
        # The quick question is answered before the measurements.
        self.assertEqual(lines[0], 'External drives: 0')
        blocks = {}
        for line in lines[1:]:
            if not line.startswith('  '):
                current = blocks.setdefault(line, [])
            else:
                current.append(line.strip())
        self.assertEqual(sorted(blocks), ['System storage:', 'User partition (alice partition, tmpfs):'])
        user = dict(line.split(': ', 1) for line in blocks['User partition (alice partition, tmpfs):'])
        self.assertEqual(list(user), ['total', 'used', 'available', 'Pictures', 'Videos', 'Music', 'Documents',
                                      'Downloads', 'other files', 'other users'])
        self.assertEqual(user['total'], '%d bytes' % HOME_SIZE)
        used = int(user['used'].split()[0])
        self.assertEqual(int(user['available'].split()[0]), HOME_SIZE - used)
        self.assertEqual([user[f] for f in ('Pictures', 'Videos', 'Music', 'Documents', 'Downloads')],
                         ['1000 bytes', '0 bytes', '200 bytes', '0 bytes', '0 bytes'])
        self.assertEqual(user['other files'], '%d bytes' % (used - 1200))
        self.assertEqual(user['other users'], '0 bytes')

        system = dict(line.split(': ', 1) for line in blocks['System storage:'])
        self.assertEqual(list(system), ['total', 'used', 'Apps', 'DebugInfo', 'SDK', 'CoreDumps', 'SystemLogs'])
        self.assertEqual(system['Apps'], '0 bytes')
        self.assertEqual(system['SDK'], '0 bytes')
        self.assertEqual(system['CoreDumps'], '2000 bytes')
        self.assertEqual(system['SystemLogs'], '3000 bytes')
        self.assertRegex(system['total'], r'^[1-9]\d* bytes$')


class PythonExample(ExampleTestCase):
    """docs/examples/python/plinth-info.py: Gio, synchronous and asynchronous."""

    def test_prints_the_device_and_the_system_storage(self):
        self.start_storage_device()
        output = self.run_example('/usr/bin/python3', os.path.join(EXAMPLES, 'python', 'plinth-info.py'))
        features = self.features()
        speeds = ' '.join(str(int(v)) for v in features.getMaxCpuCoresClockSpeed())
        model = str(features.getCpuModel()) or 'unknown'
        lines = output.splitlines()
        self.assertEqual(lines[:7], [
            'Processor: %s, %d cores' % (model, features.getNumberCpuCores()),
            'Per core (MHz): %s' % speeds,
            'Memory: %d bytes' % features.getRamTotalSize(),
            'Time zone: %s' % features.getTimeZone(),
            'OS type: 64',
            'SIM cards: 0',
            'System storage:',
        ])
        storage = {}
        for line in lines[7:]:
            match = re.match(r'^  (\w+) \((\w+)\): (\d+)$', line)
            self.assertTrue(match, line)
            storage[match.group(1)] = (match.group(2), int(match.group(3)))
        self.assertEqual(sorted(storage), sorted([
            'bytesAvailable', 'bytesTotal', 'bytesUsed', 'bytesUsedApps', 'bytesUsedDebugInfo', 'bytesUsedSDK',
            'bytesUsedCoreDumps', 'bytesUsedSystemLogs', 'bytesUsedOther']))
        self.assertEqual({t for t, _ in storage.values()}, {'t'})
        self.assertEqual(storage['bytesUsedSystemLogs'], ('t', 3000))
        self.assertEqual(storage['bytesUsedCoreDumps'], ('t', 2000))
        self.assertEqual(storage['bytesUsedSDK'], ('t', 0))

    def run_failing(self, env=None):
        done = subprocess.run(['/usr/bin/python3', os.path.join(EXAMPLES, 'python', 'plinth-info.py')],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True, timeout=60,
                              stdin=subprocess.DEVNULL, env=dict(os.environ, **(env or {})))
        self.assertEqual((done.returncode, done.stdout), (1, ''))
        return done.stderr

    def test_says_when_the_daemon_is_not_running(self):
        self.assertEqual(self.run_failing(), 'plinth-info.py: plinthd is not running\n')

    def test_says_when_there_is_no_bus(self):
        stderr = self.run_failing({'DBUS_SYSTEM_BUS_ADDRESS': 'unix:path=' + os.path.join(self.workdir, 'no-bus')})
        self.assertRegex(stderr, r'^plinth-info\.py: no system bus \(.+\)\n$')


class ShellExample(ExampleTestCase):
    """docs/examples/shell/plinth-query.sh: busctl and gdbus."""

    def test_prints_what_the_tools_answer(self):
        self.start_known_device()
        output = self.run_example(os.path.join(EXAMPLES, 'shell', 'plinth-query.sh'))
        lines = output.splitlines()
        self.assertEqual(lines[:6], [
            's "XYZ100"',
            'u 64',
            'av 2 u 1804 u 2208',
            'aa{sv} 0',
            '(uint32 8,)',
            '(@aa{sv} [],)',
        ])
        # The internal memory: five keys, sizes unsigned.
        self.assertRegex(lines[6], r'^a\{sv\} 5 "bytesAvailable" t \d+ "bytesTotal" t \d+ "bytesUsed" t \d+ '
                                   r'"deviceLabel" s "internal memory" "filesystemType" s "\S+"$')
        self.assertRegex(lines[7], r"^\(\{'bytesAvailable': <uint64 \d+>, 'bytesTotal': <uint64 \d+>, ")
        self.assertIn("'bytesUsedSystemLogs': <uint64 ", lines[7])
        self.assertEqual(len(lines), 8)


if __name__ == '__main__':
    plinthtest.main()
