#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The test bench itself: private bus, namespaces, fake programs, RPM databases."""

import os
import subprocess
import tempfile
import unittest

import plinthtest
import rpmdb


class RpmDatabaseTest(unittest.TestCase):

    def setUp(self):
        self.workdir = tempfile.TemporaryDirectory(prefix='rpmdbtest.')
        self.addCleanup(self.workdir.cleanup)

    def test_sizes_and_default_database(self):
        db = rpmdb.RpmDatabase(self.workdir.name)
        db.install({'tarn-maps': 4096, 'tarn-mail': 0, 'foo-debuginfo': 123456})
        db.install([('content-configuration-cert', 10)])
        self.assertEqual(db.sizes(), {'tarn-maps': 4096, 'tarn-mail': 0, 'foo-debuginfo': 123456,
                                      'content-configuration-cert': 10})
        # Without --dbpath, only through HOME/.rpmmacros, as the daemon reads it.
        env = dict(os.environ, **db.env())
        out = subprocess.run(['rpm', '-qa', '--qf', '%{NAME}\n', 'tarn-*'], env=env, check=True,
                             stdout=subprocess.PIPE, universal_newlines=True).stdout
        self.assertEqual(sorted(out.split()), ['tarn-mail', 'tarn-maps'])

    def test_empty_database(self):
        db = rpmdb.RpmDatabase(self.workdir.name)
        self.assertEqual(db.sizes(), {})

    def test_bad_names_are_refused(self):
        db = rpmdb.RpmDatabase(self.workdir.name)
        with self.assertRaises(ValueError):
            db.install({'two words': 1})


class NamespaceTest(plinthtest.DaemonTestCase):

    def test_binds_and_fake_programs_reach_the_daemon_only(self):
        fake = os.path.join(self.workdir, 'os-release')
        with open(fake, 'w') as f:
            f.write('VERSION_ID=99\n')
        probe = plinthtest.Daemon(self.workdir, binds={'/etc/os-release': fake},
                                  fake_bin={'plinthd-probe': '#!/bin/sh\ncat /etc/os-release\n'},
                                  binary='plinthd-probe')
        self.addCleanup(probe.close)
        # The fake program is found through PATH inside the namespace.
        probe.start()
        self.assertEqual(probe.wait(10), 0)
        self.assertEqual(probe.output(), 'VERSION_ID=99\n')
        with open('/etc/os-release') as f:
            self.assertNotEqual(f.read(), 'VERSION_ID=99\n')


if __name__ == '__main__':
    plinthtest.main()
