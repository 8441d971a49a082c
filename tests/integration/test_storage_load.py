#!/usr/bin/python3
"""The Storages object under load: thousands of queries from sixteen clients,
each answer checked; clients that leave before their delayed replies; and the
Features object answering throughout.

Drives come from umockdev and the SD card's partition is a real tmpfs mount in
the daemon's mount namespace (storagebench.py), so the answers are known.
"""

import os
import subprocess
import sys
import textwrap
import time

import dbus

import cleanexit
import loadclients
import storagebench
from plinthtest import FEATURES_IFACE, FEATURES_PATH, STORAGES_IFACE, STORAGES_PATH
from storagebench import SECTOR

MiB = 1024 * 1024
SD_P2_SECTORS = 10633216
CLIENTS = 16


def variant(value):
    """VALUE as dbus-python gives it inside a variant (a value of an a{sv})."""
    if isinstance(value, dbus.Array):
        return dbus.Array(value, signature=value.signature, variant_level=1)
    return type(value)(value, variant_level=1)


def sv(**entries):
    return dbus.Dictionary({dbus.String(k): variant(v) for k, v in entries.items()}, signature='sv')


def vm_rss_kib(pid):
    with open('/proc/%d/status' % pid) as f:
        for line in f:
            if line.startswith('VmRSS:'):
                return int(line.split()[1])
    raise AssertionError('no VmRSS for %d' % pid)


class StorageLoadTestCase(cleanexit.CleanExit, storagebench.StorageTestCase):

    def setUp(self):
        super().setUp()
        self.load = loadclients.Load(self.system_bus.address, clients=CLIENTS, in_flight=4)
        self.addCleanup(self.load.close)

    def start_with_sd_card(self):
        daemon = self.start_storage_daemon(devices=('emmc', 'sdcard'))
        where = self.mount('mmcblk1p1', 8 * MiB)
        return daemon, where

    def calls(self, where):
        """The storage queries, with what each answers for the card as mounted."""
        def storages(method, expected):
            return loadclients.Call(STORAGES_PATH, STORAGES_IFACE, method, expected)

        def map_of_type(signature):
            def check(value):
                ok = isinstance(value, dbus.Dictionary) and value.signature == signature
                return None if ok else 'not a{%s}: %r' % (signature, value)
            return check

        summary = sv(deviceLabel=dbus.String('external storage'), mounted=dbus.Boolean(True),
                     countMountedPartitions=dbus.UInt32(1), bytesTotal=dbus.UInt64(8 * MiB),
                     bytesAvailable=dbus.UInt64(8 * MiB), bytesUsed=dbus.UInt64(0))
        partitions = dbus.Array([
            sv(partitionName=dbus.String('PHOTOS 2024'), mountPoint=dbus.String(where),
               partitionLabel=dbus.String(''), driveName=dbus.String('SD16G'),
               bytesTotal=dbus.Int64(8 * MiB), bytesUsed=dbus.Int64(0), bytesAvailable=dbus.Int64(8 * MiB)),
            sv(partitionName=dbus.String('backup'), mountPoint=dbus.String(''),
               partitionLabel=dbus.String(''), driveName=dbus.String('SD16G'),
               bytesTotal=dbus.Int64(SD_P2_SECTORS * SECTOR), bytesUsed=dbus.Int64(SD_P2_SECTORS * SECTOR),
               bytesAvailable=dbus.Int64(0)),
        ], signature='a{sv}')
        drives = dbus.Array([sv(driveName=dbus.String('SD16G'), driveType=dbus.String('SD'),
                                partitionsInfo=partitions)], signature='a{sv}')
        return [
            storages('getExternalStorageInfo', summary),
            storages('getExternalStorageDrivesInfo', drives),
            storages('getInternalStorageInfo', map_of_type('sv')),
            storages('getInternalUserPartitionInfo', map_of_type('sv')),
            storages('getSystemStorageInfo', map_of_type('sv')),
            storages('getUsersQuotaInfo', map_of_type('sa{sv}')),
        ]


class ManyStorageClientsTest(StorageLoadTestCase):

    # As for the Features load: after a warm-up the heap must not grow by more
    # than what 2,000 queries leaking a few hundred bytes each would take.
    RSS_GROWTH_LIMIT_KIB = 1024

    def test_two_thousand_queries_from_sixteen_clients(self):
        daemon, where = self.start_with_sd_card()
        calls = self.calls(where)
        warm_up = self.load.run(500, calls)
        self.assertEqual(warm_up.problems, [], warm_up)
        self.load.close()
        time.sleep(0.5)
        idle = vm_rss_kib(daemon.process.pid)

        # The Features object keeps answering while the pool works.
        version = loadclients.Call(FEATURES_PATH, FEATURES_IFACE, 'getOsVersion',
                                   lambda v: None if isinstance(v, dbus.String) and v.startswith('Vireo ')
                                   else repr(v))
        result = self.load.run(2000, calls + [version])
        self.assertEqual(result.problems, [], result)
        self.assertEqual(result.answered, 2000)
        self.load.close()
        time.sleep(0.5)
        after = vm_rss_kib(daemon.process.pid)
        print('VmRSS idle %d KiB, after 2,000 queries %d KiB (%.0f queries/s)'
              % (idle, after, 2000 / result.seconds), file=sys.stderr)
        # See test_load.py: the sanitizers' allocators keep freed memory.
        if not os.environ.get('PLINTHD_SANITIZE'):
            self.assertLess(after - idle, self.RSS_GROWTH_LIMIT_KIB,
                            'VmRSS grew from %d to %d KiB' % (idle, after))
        self.assertCleanExit(daemon)


# Sends delayed-reply queries and leaves at once; the pool threads then reply
# to a peer that is gone.
HASTY_CLIENT = textwrap.dedent('''
    import os, sys
    import dbus
    bus = dbus.bus.BusConnection(sys.argv[1])
    for i in range(int(sys.argv[2])):
        method = ('getExternalStorageInfo', 'getSystemStorageInfo', 'getInternalUserPartitionInfo')[i % 3]
        bus.send_message(dbus.lowlevel.MethodCallMessage(
            'org.norvu.plinth', '/org/norvu/plinth/Storages', 'org.norvu.plinth.Storages', method))
    bus.flush()
    os._exit(0)
''')


class HastyStorageClientsTest(StorageLoadTestCase):

    def test_clients_gone_before_their_delayed_replies(self):
        daemon, where = self.start_with_sd_card()
        hasty = [subprocess.Popen([sys.executable, '-c', HASTY_CLIENT, self.system_bus.address, '150'])
                 for _ in range(CLIENTS)]
        for process in hasty:
            self.assertEqual(process.wait(30), 0)
        result = self.load.run(800, self.calls(where))
        self.assertEqual(result.problems, [], result)
        self.assertCleanExit(daemon)


if __name__ == '__main__':
    storagebench.main()
