#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The Storages object under load: thousands of queries from sixteen clients,
each answer checked; clients that leave before their delayed replies; and the
Features object answering throughout.

Drives come from umockdev and the SD card's partition is a real tmpfs mount in
the daemon's mount namespace (storagebench.py), so the answers are known.
"""

import dbus

import cleanexit
import loadclients
import storagebench
from plinthtest import FEATURES_IFACE, FEATURES_PATH, STORAGES_IFACE, STORAGES_PATH

CARD_BYTES = 8 * 1024 * 1024
CLIENTS = 16



class StorageLoadTestCase(loadclients.LoadAssertions, cleanexit.CleanExit, storagebench.StorageTestCase):

    def setUp(self):
        super().setUp()
        self.load = loadclients.Load(self.system_bus.address, clients=CLIENTS, in_flight=4)
        self.addCleanup(self.load.close)

    def start_with_sd_card(self):
        daemon = self.start_storage_daemon(devices=('emmc', 'sdcard'))
        where = self.mount('mmcblk1p1', CARD_BYTES)
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

        summary, drives = storagebench.sd_card_answers(mounted_at=where, mounted_bytes=CARD_BYTES)
        return [
            storages('getExternalStorageInfo', summary),
            storages('getExternalStorageDrivesInfo', drives),
            storages('getInternalStorageInfo', map_of_type('sv')),
            storages('getInternalUserPartitionInfo', map_of_type('sv')),
            storages('getSystemStorageInfo', map_of_type('sv')),
            storages('getUsersQuotaInfo', map_of_type('sa{sv}')),
        ]


class ManyStorageClientsTest(StorageLoadTestCase):

    def test_two_thousand_queries_from_sixteen_clients(self):
        daemon, where = self.start_with_sd_card()
        # The Features object keeps answering while the pool works.
        version = loadclients.Call(FEATURES_PATH, FEATURES_IFACE, 'getOsVersion',
                                   lambda v: None if isinstance(v, dbus.String) and v.startswith('Vireo ')
                                   else repr(v))
        self.assertHeapSettles(daemon, self.calls(where) + [version], total=2000, warm_up=500)
        self.assertCleanExit(daemon)


class HastyStorageClientsTest(StorageLoadTestCase):

    def test_clients_gone_before_their_delayed_replies(self):
        daemon, where = self.start_with_sd_card()
        # Queries with delayed replies: once computed, they are answered to peers that are gone.
        delayed = [c for c in self.calls(where) if c.method in (
            'getExternalStorageInfo', 'getSystemStorageInfo', 'getInternalUserPartitionInfo')]
        loadclients.hasty_clients(self.system_bus.address, CLIENTS, 150, delayed)
        result = self.load.run(800, self.calls(where))
        self.assertAllAnswered(result, 800)
        self.assertCleanExit(daemon)


if __name__ == '__main__':
    storagebench.main()
