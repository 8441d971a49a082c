#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""System storage queries walking trees that change under them (with the
walked folders kept between queries, and without), and a directory of 100,000
entries.

/var/log is a directory of the test bind-mounted into the daemon's mount
namespace, so the test changes the very tree the daemon walks while the
queries run: folders are renamed, deleted, and swapped for others in one step
(renameat2 with RENAME_EXCHANGE). Every answer must come, be well-typed and lie
within what the tree ever held; once the changes stop, the figure is exact.
"""

import ctypes
import os
import random
import shutil
import threading

import dbus

import cleanexit
import loadclients
import plainwalk
import plinthtest
import rpmdb
from plinthtest import FEATURES_IFACE, FEATURES_PATH, STORAGES_IFACE, STORAGES_PATH

SYSTEM_KEYS = ('bytesAvailable', 'bytesTotal', 'bytesUsed', 'bytesUsedApps', 'bytesUsedCoreDumps',
               'bytesUsedDebugInfo', 'bytesUsedOther', 'bytesUsedSDK', 'bytesUsedSystemLogs')
AT_FDCWD = -100
RENAME_EXCHANGE = 2


def exchange(first, second):
    """Swaps two paths in one step, as a program replacing a folder atomically does."""
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.renameat2(AT_FDCWD, os.fsencode(first), AT_FDCWD, os.fsencode(second), RENAME_EXCHANGE) != 0:
        errno = ctypes.get_errno()
        raise OSError(errno, os.strerror(errno), first)


def make_files(directory, count, seed, prefix=b'f', account=None):
    """COUNT files of sizes up to 8 KiB; returns their total size, which is
    handed to ACCOUNT first, before any file exists."""
    sizes = [random.Random(seed + i).randrange(8192) for i in range(count)]
    if account:
        account(sum(sizes))
    os.makedirs(directory, exist_ok=True)
    for i, size in enumerate(sizes):
        fd = os.open(os.path.join(os.fsencode(directory), prefix + b'%06d' % i), os.O_CREAT | os.O_WRONLY, 0o644)
        os.ftruncate(fd, size)
        os.close(fd)
    return sum(sizes)


class WalkTestCase(cleanexit.CleanExit, plinthtest.DaemonTestCase):

    def setUp(self):
        super().setUp()
        self.log = os.path.join(self.workdir, 'log')
        os.mkdir(self.log)
        self.rpm = rpmdb.RpmDatabase(self.workdir)

    # Whether the daemon keeps the folders it walked between queries, as it
    # does by default, or walks them at every query.
    KEEPING = True

    def start(self):
        # The other categories are empty folders of their own, so only the
        # logs count; LC_ALL makes the daemon's file names UTF-8, as on a device.
        setup = ['mount -t tmpfs tmpfs /opt', 'mount -t tmpfs tmpfs /var/cache', 'mkdir /var/cache/core-dumps']
        env = dict(self.rpm.env(), LC_ALL='C.UTF-8')
        if not self.KEEPING:
            env['PLINTHD_MAX_FOLDER_WATCHES'] = '0'
        return self.start_daemon(env=env, setup=setup, binds={'/var/log': self.log})

    def system_call(self, check_logs):
        def check(info):
            if not isinstance(info, dbus.Dictionary) or info.signature != 'sv':
                return 'not a{sv}: %r' % (info,)
            if sorted(info) != sorted(SYSTEM_KEYS):
                return 'keys %s' % sorted(info)
            for key in SYSTEM_KEYS:
                if not isinstance(info[key], dbus.UInt64):
                    return '%s is %s' % (key, type(info[key]).__name__)
            return check_logs(int(info['bytesUsedSystemLogs']))
        return loadclients.Call(STORAGES_PATH, STORAGES_IFACE, 'getSystemStorageInfo', check, timeout=120)

    def system_logs(self):
        info = self.storages().getSystemStorageInfo(timeout=120)
        return int(info['bytesUsedSystemLogs'])


class ChangingTreeTest(WalkTestCase):
    """With the folders kept, the queries list again the folders that
    changed, while they change."""

    FOLDERS = 40
    FILES = 500
    # Loads of queries until every kind of change has happened during one:
    # kept folders make the queries quick, and the changes may come slower.
    LOADS = 30

    def test_folders_renamed_deleted_and_replaced_during_walks(self):
        written = 0
        for i in range(self.FOLDERS):
            written += make_files(os.path.join(self.log, 'app%02d' % i), self.FILES, seed=1000 * i)
        daemon = self.start()
        self.assertEqual(self.system_logs(), plainwalk.size(self.log, 0))

        stop = threading.Event()
        changes = {'renamed': 0, 'deleted': 0, 'exchanged': 0}
        failures = []
        written_lock = threading.Lock()

        def account(size):
            nonlocal written
            with written_lock:
                written += size

        def change():
            pick = random.Random(1)
            serial = 0
            try:
                while not stop.is_set():
                    serial += 1
                    folder = os.path.join(self.log, 'app%02d' % pick.randrange(self.FOLDERS))
                    if not os.path.isdir(folder):
                        make_files(folder, self.FILES // 5, seed=1000 * serial, account=account)
                        continue
                    kind = pick.choice(('renamed', 'deleted', 'exchanged'))
                    if kind == 'renamed':
                        os.rename(folder, folder + '.old')
                        os.rename(folder + '.old', folder)
                    elif kind == 'deleted':
                        shutil.rmtree(folder)
                    else:
                        fresh = '%s.new%d' % (folder, serial)
                        make_files(fresh, self.FILES // 2, seed=1000 * serial + 500, prefix=b'g', account=account)
                        exchange(fresh, folder)
                        shutil.rmtree(fresh)
                    changes[kind] += 1
            except Exception as error:  # reported by the test, not lost in the thread
                failures.append(error)

        def within_what_was_written(logs):
            with written_lock:
                bound = written
            return None if 0 <= logs <= bound else '%d bytes of logs, more than the %d ever written' % (logs, bound)

        features = loadclients.Call(FEATURES_PATH, FEATURES_IFACE, 'getOsVersion',
                                    lambda v: None if isinstance(v, dbus.String) else repr(v))
        load = loadclients.Load(self.system_bus.address, clients=4, in_flight=1)
        self.addCleanup(load.close)
        changer = threading.Thread(target=change)
        changer.start()
        try:
            for _ in range(self.LOADS):
                result = load.run(120, [self.system_call(within_what_was_written), features], deadline=60)
                self.assertEqual(result.problems, [], result)
                self.assertEqual(result.answered, 120)
                if min(changes.values()) > 0:
                    break
        finally:
            stop.set()
            changer.join()
        self.assertEqual(failures, [])
        self.assertGreater(min(changes.values()), 0, changes)
        # At rest again, the walk sees exactly what is there.
        self.assertEqual(self.system_logs(), plainwalk.size(self.log, 0))
        self.assertCleanExit(daemon)


class ChangingTreeWalkedTest(ChangingTreeTest):
    """With nothing kept, every query walks the folders while they change."""

    KEEPING = False


class HugeDirectoryTest(WalkTestCase):

    def test_hundred_thousand_entries_in_one_directory(self):
        big = os.path.join(self.log, 'big')
        make_files(big, 99000, seed=5000000)
        # Names a UTF-8 listing cannot decode are not listed, so not counted.
        make_files(big, 1000, seed=6000000, prefix=b'bad\xff')
        expected = plainwalk.size(self.log, 0)
        self.assertGreater(expected, 0)
        daemon = self.start()

        load = loadclients.Load(self.system_bus.address, clients=3, in_flight=1)
        self.addCleanup(load.close)
        walks = [load.start(self.system_call(lambda logs: None if logs == expected else
                                             '%d bytes, not %d' % (logs, expected)), client=i) for i in (0, 1)]
        # The main thread stays free for other callers while two walks run.
        latencies = []
        while not all(walk.done() for walk in walks):
            call = load.start(loadclients.Call(FEATURES_PATH, FEATURES_IFACE, 'getOsVersion',
                                               lambda v: None), client=2)
            call.wait(30)
            self.assertIsNone(call.problem)
            latencies.append(call.seconds)
            loadclients.spin(0.01)
        for walk in walks:
            self.assertIsNone(walk.wait(60).problem)
        print('walk of 100,000 entries: %.2f s; Features latency meanwhile: max %.1f ms over %d calls'
              % (max(w.seconds for w in walks), 1000 * max(latencies or [0]), len(latencies)))
        self.assertLess(max(latencies or [0]), 2.0)
        self.assertCleanExit(daemon)


if __name__ == '__main__':
    plinthtest.main()
