#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The shipped systemd unit and activation file, as configured in the build tree.

systemd-analyze judges the unit: it must be valid, and the sandbox must keep
its exposure at 2.1 or below (a property of the file, not of the machine): 2.0
and 0.1 for the one system call of @resources the walks need (setpriority,
the unit's comment says why).
"""

import os
import re
import shutil
import subprocess
import tempfile
import unittest

import plinthtest

BUILD_DIR = os.environ.get('PLINTHD_BUILD_DIR', '')
SOURCE_DIR = os.environ.get('PLINTHD_SOURCE_DIR', '')
UNIT = os.path.join(BUILD_DIR, 'data', 'plinthd.service')
ACTIVATION = os.path.join(BUILD_DIR, 'data', 'org.norvu.plinth.service')
MAX_EXPOSURE = 2.1


def read_keys(path):
    """key -> list of values, for the simple key=value files systemd and D-Bus use."""
    keys = {}
    with open(path) as f:
        for line in f:
            line = line.strip()
            if line and not line.startswith(('#', '[')) and '=' in line:
                key, value = line.split('=', 1)
                keys.setdefault(key, []).append(value)
    return keys


class SystemdUnitTest(unittest.TestCase):

    def setUp(self):
        self.workdir = tempfile.mkdtemp(prefix='plinthunit.')
        self.addCleanup(shutil.rmtree, self.workdir, ignore_errors=True)

    def analyze(self, *args):
        return subprocess.run(['systemd-analyze'] + list(args), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, universal_newlines=True, timeout=60,
                              env=dict(os.environ, SYSTEMD_COLORS='0', MANPATH=self.manpath()))

    def manpath(self):
        """The manual pages as they will be installed, for the Documentation= check."""
        root = os.path.join(self.workdir, 'man')
        for section, page in (('man8', 'data/plinthd.8'), ('man1', 'data/plinthctl.1'),
                              ('man7', 'docs/plinthd-interfaces.7')):
            os.makedirs(os.path.join(root, section), exist_ok=True)
            target = os.path.join(root, section, os.path.basename(page))
            if not os.path.exists(target):
                shutil.copy(os.path.join(BUILD_DIR, page), target)
        return root

    def unit_copy(self):
        """The unit with ExecStart pointing at the built daemon, which verify checks for."""
        path = os.path.join(self.workdir, 'plinthd.service')
        binary = os.environ['PLINTHD_BINARY']
        with open(UNIT) as f:
            text = re.sub(r'^ExecStart=\S+', 'ExecStart=' + binary, f.read(), flags=re.M)
        with open(path, 'w') as f:
            f.write(text)
        return path

    def test_unit_is_valid(self):
        result = self.analyze('verify', self.unit_copy())
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assertNotIn('plinthd.service', result.stdout)

    def test_exposure_is_at_most_the_target(self):
        result = self.analyze('security', '--offline=true', '--no-pager', UNIT)
        match = re.search(r'Overall exposure level for plinthd\.service: (\d+\.\d)', result.stdout)
        self.assertIsNotNone(match, result.stdout)
        self.assertLessEqual(float(match.group(1)), MAX_EXPOSURE, result.stdout)

    def test_unit_is_a_bus_service_of_the_installed_daemon(self):
        keys = read_keys(UNIT)
        self.assertEqual(keys['Type'], ['dbus'])
        self.assertEqual(keys['BusName'], ['org.norvu.plinth'])
        self.assertEqual(len(keys['ExecStart']), 1)
        self.assertTrue(keys['ExecStart'][0].endswith('/sbin/plinthd'), keys['ExecStart'])
        self.assertTrue(os.path.isabs(keys['ExecStart'][0]))

    def test_documentation_names_the_pages_of_the_daemon_and_its_interfaces(self):
        self.assertEqual(read_keys(UNIT)['Documentation'], ['man:plinthd(8) man:plinthd-interfaces(7)'])

    def test_activation_names_the_unit(self):
        keys = read_keys(ACTIVATION)
        self.assertEqual(keys['Name'], ['org.norvu.plinth'])
        self.assertEqual(keys['SystemdService'], [os.path.basename(UNIT)])
        self.assertEqual(keys['User'], ['root'])
        self.assertEqual(keys['Exec'], read_keys(UNIT)['ExecStart'])


if __name__ == '__main__':
    plinthtest.main()
