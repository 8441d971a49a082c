#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""An idle daemon with external drives never wakes up, and a change still wakes it.

A test of its own: ThreadSanitizer's runtime has a thread of its own that
wakes up periodically, so in that build this one cannot run and is reported
as skipped, while the rest of the storage tests run.
"""

import glob
import os
import time
import unittest

import storagebench

MiB = 1024 * 1024


def context_switches(pid):
    """Every time any thread of the process went to sleep or was preempted."""
    total = 0
    for status in glob.glob('/proc/%d/task/*/status' % pid):
        with open(status) as f:
            for line in f:
                if 'ctxt_switches' in line:
                    total += int(line.split()[1])
    return total


class IdleDaemonTest(storagebench.StorageTestCase):

    @unittest.skipIf(os.environ.get('PLINTHD_SANITIZE') == 'thread',
                     "ThreadSanitizer's own background thread wakes up periodically")
    def test_idle_daemon_makes_no_wakeups(self):
        # Drives and mounts are noticed through udev's socket and the mount
        # table's poll flag, not by polling: an idle daemon never wakes.
        daemon = self.start_storage_daemon(devices=('emmc', 'sdcard'))
        self.mount('mmcblk1p1', 8 * MiB)
        self.storages().getExternalStorageInfo()
        time.sleep(0.3)
        before = context_switches(daemon.process.pid)
        time.sleep(1.5)
        self.assertEqual(context_switches(daemon.process.pid), before)
        # Not asleep for good: a change still wakes it.
        signals = self.recorder()
        self.umount('mmcblk1p1')
        self.assertEqual(len(signals.wait_for(2)), 2)


if __name__ == '__main__':
    storagebench.main()
