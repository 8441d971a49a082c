#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""docs/examples/cpp/drives.cpp, following externalDriveChanged, against the
real daemon: an SD card (two partitions, recorded with umockdev) arrives, one
partition is mounted, and the card leaves."""

import os
import subprocess
import threading
import time

import plinthtest
import storagebench

BUILT = os.path.join(os.environ.get('PLINTHD_BUILD_DIR', ''), 'docs', 'examples', 'cpp', 'plinth-example-drives')
MiB = 1024 * 1024


class Output:
    """The lines a running program prints, as they come."""

    def __init__(self, process):
        self.lines = []
        self._changed = threading.Condition()
        self._thread = threading.Thread(target=self._read, args=(process.stdout,), daemon=True)
        self._thread.start()

    def _read(self, stream):
        for line in stream:
            with self._changed:
                self.lines.append(line.rstrip('\n'))
                self._changed.notify_all()

    def finish(self):
        """Waits until everything the ended program printed is read."""
        self._thread.join(10)

    def wait_for(self, predicate, timeout=10.0, what='a line'):
        deadline = time.monotonic() + timeout
        with self._changed:
            while not predicate(self.lines):
                left = deadline - time.monotonic()
                if left <= 0:
                    raise AssertionError('timed out waiting for %s; printed so far: %r' % (what, self.lines))
                self._changed.wait(left)


class CppDrivesExample(storagebench.StorageTestCase):

    def test_follows_a_card_that_comes_and_goes(self):
        self.assertTrue(os.access(BUILT, os.X_OK), '%s is not built' % BUILT)
        self.start_storage_daemon(devices=('emmc',))
        # Two signals when the card's partitions appear, one for the mount,
        # two when they go: five, then the program ends by itself.
        env = dict(os.environ, **plinthtest.CLIENT_SANITIZER_ENV)
        env.pop('LD_PRELOAD', None)
        process = subprocess.Popen([BUILT, '5'], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   stdin=subprocess.DEVNULL, universal_newlines=True, env=env)
        self.addCleanup(process.kill)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.stdout.close)
        output = Output(process)
        output.wait_for(lambda lines: lines[:1] == ['drives: 0'], what='the first list')

        self.plug('sdcard')
        output.wait_for(lambda lines: sum(l.startswith('changed: ') for l in lines) >= 2, what='the card')
        where = self.mount('mmcblk1p1', 8 * MiB)
        output.wait_for(lambda lines: sum(l.startswith('changed: ') for l in lines) >= 3, what='the mount')
        self.unplug('sdcard')
        process.wait(timeout=20)
        output.finish()
        errors = process.stderr.read()
        self.assertEqual(process.returncode, 0, errors)
        self.assertEqual(errors, '')

        lines = output.lines
        changes = [l for l in lines if l.startswith('changed: ')]
        # Every announcement names the drive; once both partitions are known
        # both are listed, and the mount shows its free space.
        self.assertTrue(all(l.startswith('changed: SD16G (SD), PHOTOS 2024: ') for l in changes[:3]), changes)
        self.assertIn('changed: SD16G (SD), PHOTOS 2024: not mounted, backup: not mounted', changes[:2])
        self.assertEqual(changes[2], 'changed: SD16G (SD), PHOTOS 2024: %d bytes free at %s, backup: not mounted'
                         % (8 * MiB, where))
        # The card leaves: its partitions go one after the other, and the
        # last one leaves an empty map, after which the list is empty.
        self.assertEqual(lines[-2:], ['removed: a drive has gone', 'drives: 0'], lines)


if __name__ == '__main__':
    storagebench.main()
