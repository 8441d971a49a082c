#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Many storage queries at once, from several clients, while drives come and go; and SIGTERM under load."""

import signal
import time

import dbus
import dbus.lowlevel
import dbus.mainloop.glib
from gi.repository import GLib

import storagebench
from plinthtest import BUS_NAME, STORAGES_IFACE, STORAGES_PATH

MiB = 1024 * 1024
CLIENTS = 4
CALLS = 2000
SUMMARY_KEYS = ['bytesAvailable', 'bytesTotal', 'bytesUsed', 'countMountedPartitions', 'deviceLabel', 'mounted']
# Whatever moment a query sees, the card is absent, present, or present with
# one or both partitions mounted (8 MiB and 4 MiB).
POSSIBLE_TOTALS = {0: {0}, 1: {8 * MiB, 4 * MiB}, 2: {12 * MiB}}
ANSWERS_AFTER_SIGTERM = ('org.freedesktop.DBus.Error.NoReply', 'org.freedesktop.DBus.Error.UnknownObject')
ASYNC_METHODS = ('getExternalStorageInfo', 'getInternalStorageInfo', 'getInternalUserPartitionInfo',
                 'getSystemStorageInfo')


class Flood:
    """Calls sent without waiting, from several connections, with their replies collected."""

    def __init__(self, address, clients):
        loop = dbus.mainloop.glib.DBusGMainLoop()
        self.connections = [dbus.bus.BusConnection(address, mainloop=loop) for _ in range(clients)]
        self.sent = []
        self.replies = {}
        self.errors = {}
        self._pending = []

    def send(self, index, method):
        connection = self.connections[index % len(self.connections)]
        message = dbus.lowlevel.MethodCallMessage(BUS_NAME, STORAGES_PATH, STORAGES_IFACE, method)
        key = len(self.sent)
        self.sent.append((method, message))

        def on_reply(reply):
            if isinstance(reply, dbus.lowlevel.ErrorMessage):
                self.errors[key] = reply.get_error_name()
            else:
                self.replies[key] = reply
        self._pending.append(connection.send_message_with_reply(message, on_reply, 120))

    def pump(self, until, timeout):
        context = GLib.MainContext.default()
        deadline = time.monotonic() + timeout
        while not until():
            if time.monotonic() > deadline:
                raise AssertionError('timed out: %d of %d answered, %d errors'
                                     % (len(self.replies), len(self.sent), len(self.errors)))
            context.iteration(True)

    def answered(self):
        return len(self.replies) + len(self.errors)

    def close(self):
        for connection in self.connections:
            connection.close()


class FloodTest(storagebench.StorageTestCase):

    def flood(self, clients):
        flood = Flood(self.system_bus.address, clients)
        self.addCleanup(flood.close)
        return flood

    def check_summary(self, summary):
        self.assertEqual(sorted(summary.keys()), SUMMARY_KEYS)
        self.assertEqual(summary['deviceLabel'], 'external storage')
        count = int(summary['countMountedPartitions'])
        self.assertIn(int(summary['bytesTotal']), POSSIBLE_TOTALS[count], summary)
        self.assertEqual(bool(summary['mounted']), count > 0)
        self.assertEqual(summary['bytesUsed'], 0)

    def test_flood_while_drives_come_and_go(self):
        self.start_storage_daemon(devices=('emmc',))
        flood = self.flood(CLIENTS)
        changes = [
            lambda: self.plug('sdcard'),
            lambda: self.mount('mmcblk1p1', 8 * MiB),
            lambda: self.mount('mmcblk1p2', 4 * MiB),
            lambda: self.umount('mmcblk1p1'),
            lambda: self.umount('mmcblk1p2'),
            lambda: self.unplug('sdcard'),
        ]
        step = CALLS // (2 * len(changes))
        for i in range(CALLS):
            method = 'getExternalStorageDrivesInfo' if i % 10 == 9 else \
                ('getExternalStorageInfo' if i % 2 == 0 else ASYNC_METHODS[(i // 2) % len(ASYNC_METHODS)])
            flood.send(i, method)
            if i % step == step - 1 and i // step < 2 * len(changes) and (i // step) % 2 == 0:
                changes[(i // step) // 2]()
                flood.pump(lambda: True, 0)
        flood.pump(lambda: flood.answered() == CALLS, 120)

        self.assertEqual(flood.errors, {})
        for key, (method, message) in enumerate(flood.sent):
            reply = flood.replies[key]
            self.assertEqual(reply.get_reply_serial(), message.get_serial())
            args = reply.get_args_list()
            self.assertEqual(len(args), 1)
            if method == 'getExternalStorageDrivesInfo':
                self.assertEqual(reply.get_signature(), 'aa{sv}')
                self.assertLessEqual(len(args[0]), 1)
                # The testbed writes and removes a drive's sysfs directories one
                # by one, so a query may catch a card half there: without its
                # second partition yet, or with its MMC parent already gone.
                for drive in args[0]:
                    self.assertIn(drive['driveName'], ('SD16G', ''))
                    self.assertIn(len(drive['partitionsInfo']), (1, 2))
                    for part in drive['partitionsInfo']:
                        self.assertIn(part['partitionName'], ('PHOTOS 2024', 'backup'))
            else:
                self.assertEqual(reply.get_signature(), 'a{sv}')
                if method == 'getExternalStorageInfo':
                    self.check_summary(args[0])
        # The last state: the card is gone again.
        self.assertEqual(self.storages().getExternalStorageDrivesInfo(), [])

    def test_sigterm_during_200_running_queries(self):
        self.start_storage_daemon(devices=('emmc', 'sdcard'))
        self.mount('mmcblk1p1', 8 * MiB)
        flood = self.flood(2)
        for i in range(200):
            flood.send(i, 'getExternalStorageInfo')
        # Once the first answers arrive the rest are running or queued.
        flood.pump(lambda: flood.answered() > 0, 30)
        self.daemon.process.send_signal(signal.SIGTERM)
        self.assertEqual(self.daemon.wait(60), 0, self.daemon.output())
        # Every call is answered: by the query; by the bus once the daemon has
        # gone (NoReply); or by the daemon's bus library for a call it takes
        # off the socket after the daemon, on its way out, has deleted the
        # Storages service and with it the object path (UnknownObject). The
        # services go before the connection does, so which of the last two a
        # waiting call gets depends on when the library reads it.
        flood.pump(lambda: flood.answered() == 200, 60)
        self.assertGreater(len(flood.replies), 0)
        for reply in flood.replies.values():
            self.check_summary(reply.get_args_list()[0])
        for error in flood.errors.values():
            self.assertIn(error, ANSWERS_AFTER_SIGTERM)


if __name__ == '__main__':
    storagebench.main()
