#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""External drives on the Storages object: recorded devices, real mounts, signals on the bus."""

import dbus
import dbus.lowlevel

import storagebench
from plinthtest import BUS_NAME, STORAGES_IFACE, STORAGES_PATH
from storagebench import SECTOR

MiB = 1024 * 1024
SD_P2_SECTORS = 10633216


def call_message(bus, method):
    """The reply message itself, to see its signature and argument count."""
    message = dbus.lowlevel.MethodCallMessage(BUS_NAME, STORAGES_PATH, STORAGES_IFACE, method)
    return bus.send_message_with_reply_and_block(message, 10)


class ExternalStorageTest(storagebench.StorageTestCase):

    def assert_summary(self, summary, mounted, count, total, available, used):
        self.assertEqual(summary.signature, 'sv')
        self.assertEqual(sorted(summary.keys()), ['bytesAvailable', 'bytesTotal', 'bytesUsed',
                                                  'countMountedPartitions', 'deviceLabel', 'mounted'])
        self.assertEqual(summary['deviceLabel'], 'external storage')
        self.assertIsInstance(summary['deviceLabel'], dbus.String)
        self.assertIsInstance(summary['mounted'], dbus.Boolean)
        self.assertEqual(bool(summary['mounted']), mounted)
        self.assertIsInstance(summary['countMountedPartitions'], dbus.UInt32)
        self.assertEqual(summary['countMountedPartitions'], count)
        for key, value in (('bytesTotal', total), ('bytesAvailable', available), ('bytesUsed', used)):
            self.assertIsInstance(summary[key], dbus.UInt64, key)
            self.assertEqual(summary[key], value, key)

    def test_no_external_storage(self):
        self.start_storage_daemon(devices=('emmc',))
        drives = call_message(self.bus, 'getExternalStorageDrivesInfo')
        self.assertEqual(drives.get_signature(), 'aa{sv}')
        self.assertEqual(drives.get_args_list(), [[]])
        summary = call_message(self.bus, 'getExternalStorageInfo')
        self.assertEqual(summary.get_signature(), 'a{sv}')
        self.assertEqual(len(summary.get_args_list()), 1)
        self.assert_summary(summary.get_args_list()[0], False, 0, 0, 0, 0)

    def test_every_reply_has_one_argument_of_the_interface_signature(self):
        self.start_storage_daemon(devices=('emmc', 'sdcard'))
        for method, signature in (('getExternalStorageInfo', 'a{sv}'), ('getInternalStorageInfo', 'a{sv}'),
                                  ('getInternalUserPartitionInfo', 'a{sv}'),
                                  ('getExternalStorageDrivesInfo', 'aa{sv}'),
                                  ('getSystemStorageInfo', 'a{sv}'), ('getUsersQuotaInfo', 'a{sa{sv}}')):
            with self.subTest(method=method):
                reply = call_message(self.bus, method)
                self.assertEqual(reply.get_signature(), signature)
                self.assertEqual(len(reply.get_args_list()), 1)

    def test_quick_calls_each_get_their_own_reply(self):
        self.start_storage_daemon(devices=('emmc', 'sdcard'))
        self.mount('mmcblk1p1', 8 * MiB)
        first = dbus.lowlevel.MethodCallMessage(BUS_NAME, STORAGES_PATH, STORAGES_IFACE, 'getExternalStorageInfo')
        second = dbus.lowlevel.MethodCallMessage(BUS_NAME, STORAGES_PATH, STORAGES_IFACE, 'getExternalStorageInfo')
        replies = {}
        pending = [self.bus.send_message_with_reply(m, lambda r, key=i: replies.__setitem__(key, r), 10)
                   for i, m in enumerate((first, second))]
        for p in pending:
            p.block()
        self.assertEqual(sorted(replies), [0, 1])
        self.assertEqual(replies[0].get_reply_serial(), first.get_serial())
        self.assertEqual(replies[1].get_reply_serial(), second.get_serial())
        for reply in replies.values():
            self.assert_summary(reply.get_args_list()[0], True, 1, 8 * MiB, 8 * MiB, 0)

    def test_sd_card_with_two_partitions_one_mounted(self):
        self.start_storage_daemon(devices=('emmc', 'sdcard'))
        where = self.mount('mmcblk1p1', 8 * MiB)
        self.assert_summary(self.storages().getExternalStorageInfo(), True, 1, 8 * MiB, 8 * MiB, 0)

        drives = self.storages().getExternalStorageDrivesInfo()
        self.assertEqual(len(drives), 1)
        drive = drives[0]
        self.assertEqual(drive['driveName'], 'SD16G')
        self.assertEqual(drive['driveType'], 'SD')
        parts = drive['partitionsInfo']
        self.assertEqual(parts.signature, 'a{sv}')
        self.assertEqual(len(parts), 2)
        first, second = parts
        self.assertEqual(dict(first), {
            'partitionName': 'PHOTOS 2024', 'mountPoint': where, 'partitionLabel': '',
            'driveName': 'SD16G', 'bytesTotal': 8 * MiB, 'bytesUsed': 0, 'bytesAvailable': 8 * MiB})
        for key in ('bytesTotal', 'bytesUsed', 'bytesAvailable'):
            self.assertIsInstance(first[key], dbus.Int64)
        # The unmounted partition reports its device size and adds nothing to the summary.
        self.assertEqual(dict(second), {
            'partitionName': 'backup', 'mountPoint': '', 'partitionLabel': '', 'driveName': 'SD16G',
            'bytesTotal': SD_P2_SECTORS * SECTOR, 'bytesUsed': SD_P2_SECTORS * SECTOR, 'bytesAvailable': 0})

    def test_usb_stick_without_vendor(self):
        self.start_storage_daemon(devices=('emmc', 'usbstick'))
        drives = self.storages().getExternalStorageDrivesInfo()
        self.assertEqual(len(drives), 1)
        self.assertEqual(drives[0]['driveName'], 'Flash Disk')
        self.assertEqual(drives[0]['driveType'], 'USB')
        part = drives[0]['partitionsInfo'][0]
        self.assertEqual(part['partitionLabel'], 'Data partition')
        self.assertEqual(part['partitionName'], 'STICK')
        self.assertEqual(part['driveName'], 'Flash Disk')

    def test_internal_partitions_are_not_external(self):
        self.start_storage_daemon(devices=('emmc',))
        self.mount('mmcblk0p3', 4 * MiB)
        self.assertEqual(self.storages().getExternalStorageDrivesInfo(), [])
        self.assert_summary(self.storages().getExternalStorageInfo(), False, 0, 0, 0, 0)

    def test_card_inserted_mounted_and_removed(self):
        self.start_storage_daemon(devices=('emmc',))
        signals = self.recorder()

        self.plug('sdcard')
        # partitionAdded for each of the two partitions: summary, then the drive.
        got = signals.wait_for(4)
        self.assertEqual([name for name, _ in got], ['externalStorageChanged', 'externalDriveChanged'] * 2)
        summary = got[2][1]
        self.assert_summary(summary, False, 0, 0, 0, 0)
        drive = got[3][1]
        self.assertEqual(drive['driveType'], 'SD')
        self.assertEqual(len(drive['partitionsInfo']), 2)

        self.mount('mmcblk1p1', 8 * MiB)
        got = signals.wait_for(2)
        self.assertEqual([name for name, _ in got], ['externalStorageChanged', 'externalDriveChanged'])
        self.assert_summary(got[0][1], True, 1, 8 * MiB, 8 * MiB, 0)
        self.assertEqual(got[1][1]['partitionsInfo'][0]['mountPoint'], self.media + '/mmcblk1p1')

        self.umount('mmcblk1p1')
        got = signals.wait_for(2)
        self.assert_summary(got[0][1], False, 0, 0, 0, 0)

        self.unplug('sdcard')
        got = signals.wait_for(4)
        # The last removal announces an empty summary and the drive as an empty map.
        self.assertEqual(got[-2], ('externalStorageChanged', dbus.Dictionary({}, signature='sv')))
        self.assertEqual(got[-1], ('externalDriveChanged', dbus.Dictionary({}, signature='sv')))
        # A query in the same state answers the full summary.
        self.assert_summary(self.storages().getExternalStorageInfo(), False, 0, 0, 0, 0)
        self.assertEqual(self.storages().getExternalStorageDrivesInfo(), [])

    def test_same_size_mounted_again_is_not_announced(self):
        self.start_storage_daemon(devices=('emmc', 'sdcard'))
        signals = self.recorder()
        self.mount('mmcblk1p1', 8 * MiB)
        self.assertEqual(len(signals.wait_for(2)), 2)
        self.umount('mmcblk1p1')
        self.assertEqual(len(signals.wait_for(2)), 2)

        # Mounted again with the size last announced: nothing is said...
        self.mount('mmcblk1p1', 8 * MiB)
        signals.pump(1.0)
        self.assertEqual(signals.take(), [])
        # ...though a query sees it mounted.
        self.assert_summary(self.storages().getExternalStorageInfo(), True, 1, 8 * MiB, 8 * MiB, 0)

        # Another size is news again.
        self.mount('mmcblk1p2', 4 * MiB)
        got = signals.wait_for(2)
        self.assert_summary(got[0][1], True, 2, 12 * MiB, 12 * MiB, 0)


if __name__ == '__main__':
    storagebench.main()
