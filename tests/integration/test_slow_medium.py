#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""A medium that stalls the partition rescan: the other objects go on answering.

The daemon is built with its test hooks: the statvfs() of one mount path
waits on a FIFO of the test (PLINTHD_TEST_STALL_MOUNT, PLINTHD_TEST_STALL_GATE,
platform/storage/filesystemprobe.h), as the call would on a card that stopped
answering. Mounting the recorded SD card's first partition there starts a
rescan that stalls in that call. Meanwhile Features and SIM must answer at
once, and once the medium is let go the drive signals must go out as they
would have, in order, with the maps of the new picture.
"""

import errno
import os
import time

import dbus

import loadclients
import storagebench
from loadclients import sv
from plinthtest import FEATURES_IFACE, FEATURES_PATH, SIM_IFACE, SIM_PATH

MiB = 1024 * 1024
# How long the rescan may take to reach the stalled medium, in a loaded
# sanitizer build.
STALL_SECONDS = 20
# What an answer of Features or SIM may take while the rescan is stalled; with
# the rescan on the main thread none came before the medium was let go.
ANSWER_SECONDS = 5
# How long the other objects are asked while the rescan is stalled, and how often.
ASKING_SECONDS = 2.0
ASKING_INTERVAL = 0.1
# Long enough for a rescan that should not come to reach the medium.
SETTLE_SECONDS = 1.0


class StallGate:
    """The test's end of the stalled medium: a FIFO that the daemon's probe of
    the stalled mount path opens for reading and reads to its end."""

    def __init__(self, path):
        self.path = path
        os.mkfifo(path)
        self.fd = None

    def _try_hold(self):
        # Opening for writing without blocking fails with ENXIO until a probe
        # has the FIFO open for reading.
        try:
            self.fd = os.open(self.path, os.O_WRONLY | os.O_NONBLOCK | os.O_CLOEXEC)
        except OSError as error:
            if error.errno != errno.ENXIO:
                raise
            return False
        return True

    def hold(self, timeout):
        """Waits until a probe is at the gate and keeps it there."""
        deadline = time.monotonic() + timeout
        while not self._try_hold():
            if time.monotonic() > deadline:
                raise AssertionError('no probe reached the stalled medium within %.0f s' % timeout)
            time.sleep(0.01)

    def probe_arrives(self, within):
        """Whether a probe comes to the gate within that many seconds (it is then held)."""
        deadline = time.monotonic() + within
        while time.monotonic() < deadline:
            if self._try_hold():
                return True
            time.sleep(0.01)
        return False

    def release(self):
        if self.fd is not None:
            os.close(self.fd)
            self.fd = None


def sd_card_signals(mounts):
    """The externalStorageChanged and externalDriveChanged arguments for the
    recorded SD card with the partitions of MOUNTS ({index: (path, bytes)})
    mounted on tmpfs file systems with nothing used."""
    names = {1: 'PHOTOS 2024', 2: 'backup'}
    sectors = {1: storagebench.SD_P1_SECTORS, 2: storagebench.SD_P2_SECTORS}
    partitions = []
    for index in (1, 2):
        where, size = mounts.get(index, ('', sectors[index] * storagebench.SECTOR))
        free = size if index in mounts else 0
        partitions.append(sv(partitionName=dbus.String(names[index]), mountPoint=dbus.String(where),
                             partitionLabel=dbus.String(''), driveName=dbus.String('SD16G'),
                             bytesTotal=dbus.Int64(size), bytesUsed=dbus.Int64(size - free),
                             bytesAvailable=dbus.Int64(free)))
    total = dbus.UInt64(sum(size for _, size in mounts.values()))
    summary = sv(deviceLabel=dbus.String('external storage'), mounted=dbus.Boolean(bool(mounts)),
                 countMountedPartitions=dbus.UInt32(len(mounts)), bytesTotal=total, bytesAvailable=total,
                 bytesUsed=dbus.UInt64(0))
    drive = sv(driveName=dbus.String('SD16G'), driveType=dbus.String('SD'),
               partitionsInfo=dbus.Array(partitions, signature='a{sv}'))
    return [('externalStorageChanged', summary), ('externalDriveChanged', drive)]


class SlowMediumTest(storagebench.StorageTestCase):

    def setUp(self):
        super().setUp()
        self.gate = StallGate(os.path.join(self.workdir, 'stall-gate'))
        self.addCleanup(self.gate.release)
        self.stalled_path = os.path.join(self.media, 'mmcblk1p1')

    def start(self):
        return self.start_storage_daemon(devices=('emmc', 'sdcard'), env={
            'PLINTHD_TEST_STALL_MOUNT': self.stalled_path,
            'PLINTHD_TEST_STALL_GATE': self.gate.path,
        })

    def ask_the_other_objects(self):
        """(method, answer, seconds) for getCpuModel and getSimCardsInfo."""
        answers = []
        for proxy, method in ((self.proxy(FEATURES_PATH, FEATURES_IFACE), 'getCpuModel'),
                              (self.proxy(SIM_PATH, SIM_IFACE), 'getSimCardsInfo')):
            started = time.monotonic()
            answer = getattr(proxy, method)(timeout=ANSWER_SECONDS + 1)
            answers.append((method, answer, time.monotonic() - started))
        return answers

    def assertSignals(self, got, expected):
        self.assertEqual([name for name, _ in got], [name for name, _ in expected], got)
        for (name, value), (_, wanted) in zip(got, expected):
            self.assertIsNone(loadclients.describe_mismatch(value, wanted), name)

    def test_features_and_sim_answer_while_the_rescan_stalls(self):
        self.start()
        signals = self.recorder()
        before = [(method, answer) for method, answer, _ in self.ask_the_other_objects()]

        first = self.mount('mmcblk1p1', 8 * MiB)
        self.assertEqual(first, self.stalled_path)
        self.gate.hold(STALL_SECONDS)

        asked = 0
        deadline = time.monotonic() + ASKING_SECONDS
        while time.monotonic() < deadline:
            answers = self.ask_the_other_objects()
            self.assertEqual([(method, answer) for method, answer, _ in answers], before)
            for method, _, seconds in answers:
                self.assertLess(seconds, ANSWER_SECONDS, method)
            asked += 1
            time.sleep(ASKING_INTERVAL)
        self.assertGreater(asked, 1)

        # More changes while the rescan is held: the second partition mounted
        # and a few udev events. Nothing is announced before the rescan is back.
        second = self.mount('mmcblk1p2', 4 * MiB)
        for _ in range(3):
            self.testbed.uevent(self.anchor_device, 'change')
        signals.pump(SETTLE_SECONDS)
        self.assertEqual(signals.take(), [])

        # The held rescan read the mount table before the second mount.
        self.gate.release()
        self.assertSignals(signals.wait_for(2), sd_card_signals({1: (first, 8 * MiB)}))

        # One more rescan for all that came meanwhile; it stalls on the first
        # partition again.
        self.gate.hold(STALL_SECONDS)
        signals.pump(SETTLE_SECONDS)
        self.assertEqual(signals.take(), [])
        self.gate.release()
        self.assertSignals(signals.wait_for(2), sd_card_signals({1: (first, 8 * MiB), 2: (second, 4 * MiB)}))

        # And no third.
        self.assertFalse(self.gate.probe_arrives(within=SETTLE_SECONDS))
        signals.pump(SETTLE_SECONDS)
        self.assertEqual(signals.take(), [])

    def test_sigterm_while_the_rescan_stalls(self):
        daemon = self.start()
        self.mount('mmcblk1p1', 8 * MiB)
        self.gate.hold(STALL_SECONDS)
        started = time.monotonic()
        self.assertEqual(daemon.terminate(timeout=STALL_SECONDS), 0, daemon.output()[-4000:])
        self.assertLess(time.monotonic() - started, ANSWER_SECONDS)


if __name__ == '__main__':
    storagebench.main()
