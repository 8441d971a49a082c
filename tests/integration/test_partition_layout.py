#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The partitions the storage answers are made of follow real block devices
that come, are mounted, unmounted and go, and a query on an unchanged device
costs the same however many block devices there are.

The devices are loop devices on sparse files (tests/harness/loopdevices.py),
whole or with two partitions, most with an ext4 file system. The daemon runs
in a private mount namespace whose root and /home are small tmpfs of their own
(the rest of the machine's files bound in): nothing else on the machine then
moves the figures it sums, so a second daemon started afresh in the same
namespace, on a bus of its own, must answer every storage question exactly as
the one that has been running all along. The test mounts the devices' file
systems under /media there, where they are internal data partitions counted by
the internal memory and the user partition.

No udev runs on the machines that run the suite, so what reaches the daemon
here is what the kernel announces itself: block devices that come and go, and
the mount table's changes. udev's own announcements (labels, probed file
systems) and removable drives are the recorded devices' tests
(test_storages.py, tst_partitionmanager); under QEMU, tests/system has udev.
"""

import os
import shlex
import subprocess
import tempfile

import dbus
import dbusmock

import loopdevices
import plinthtest
import syscallcount
from plinthtest import BUS_NAME, STORAGES_IFACE, STORAGES_PATH

MiB = 1024 * 1024
USER_MANAGER = 'org.brisaos.usermanager'
QUESTIONS = ('getInternalStorageInfo', 'getInternalUserPartitionInfo', 'getExternalStorageInfo',
             'getExternalStorageDrivesInfo')
# Folders of the host bound into the test's root. The merged /usr's links
# (/bin, /lib, ...) are made as links again.
BOUND_FOLDERS = ('usr', 'etc', 'var', 'run', 'dev', 'sys')
TOP_LINKS = ('bin', 'sbin', 'lib', 'lib32', 'lib64', 'libx32')
MOUNT_POINTS = 16
ROOT_BYTES = 32 * MiB
HOME_BYTES = 16 * MiB


def typed(value):
    """A D-Bus value with the type of every part, so that an answer of another
    type (an Int64 for a UInt64) differs too."""
    if isinstance(value, dict):
        return 'dict', {str(key): typed(item) for key, item in value.items()}
    if isinstance(value, list):
        return 'list', [typed(item) for item in value]
    return type(value).__name__, value


def skip_reason():
    return loopdevices.unavailable() or plinthtest.namespace_unavailable() \
        or (None if os.path.exists('/sys/class/block') else 'no /sys/class/block')


class LayoutTestCase(plinthtest.DaemonTestCase):

    def setUp(self):
        reason = skip_reason()
        if reason:
            self.skipTest(reason)
        super().setUp()
        self.loops = loopdevices.LoopDevices(self.workdir)
        self.addCleanup(self.loops.close)
        reason = self.loops.cannot_attach()
        if reason:
            self.skipTest(reason)

    def start_user_manager(self, address):
        """The user manager on the bus at ADDRESS; the current user is root."""
        saved = os.environ['DBUS_SYSTEM_BUS_ADDRESS']
        os.environ['DBUS_SYSTEM_BUS_ADDRESS'] = address
        try:
            process = dbusmock.DBusTestCase.spawn_server(USER_MANAGER, '/', USER_MANAGER, system_bus=True,
                                                         stdout=subprocess.DEVNULL)
        finally:
            os.environ['DBUS_SYSTEM_BUS_ADDRESS'] = saved
        self._keep_mock(process)
        bus = dbus.bus.BusConnection(address)
        try:
            mock = dbus.Interface(bus.get_object(USER_MANAGER, '/'), dbusmock.MOCK_IFACE)
            mock.AddMethod('', 'currentUser', '', 'u', 'ret = dbus.UInt32(0)')
        finally:
            bus.close()

    def root_setup(self):
        """Shell lines that give the daemon's namespace a root of its own."""
        root = os.path.join(self.workdir, 'root')
        q = shlex.quote
        lines = ['mkdir -p %s' % q(root),
                 'mount -t tmpfs -o size=%d,mode=0755 plinthroot %s' % (ROOT_BYTES, q(root))]
        for name in TOP_LINKS:
            path = '/' + name
            if os.path.islink(path):
                lines.append('ln -s %s %s' % (q(os.readlink(path)), q(root + path)))
            elif os.path.isdir(path):
                lines += ['mkdir %s' % q(root + path), 'mount --rbind %s %s' % (q(path), q(root + path))]
        for name in BOUND_FOLDERS:
            lines += ['mkdir %s' % q(root + '/' + name), 'mount --rbind /%s %s' % (name, q(root + '/' + name))]
        lines += ['mkdir %s' % q(root + '/proc'), 'mount -t proc proc %s' % q(root + '/proc'),
                  'mkdir %s' % q(root + '/home'),
                  'mount -t tmpfs -o size=%d plinthhome %s' % (HOME_BYTES, q(root + '/home')),
                  # Scratch files of anybody go here, not onto the root.
                  'mkdir %s' % q(root + '/tmp'), 'mount -t tmpfs tmpfs %s' % q(root + '/tmp'),
                  'mkdir -p %s' % ' '.join(q(root + '/media/m%d' % i) for i in range(MOUNT_POINTS))]
        # This test's files, and the tree the daemon comes from, where they are.
        folders = [self.workdir]
        for variable in ('PLINTHD_SOURCE_DIR', 'PLINTHD_BUILD_DIR'):
            folder = os.environ.get(variable)
            if folder:
                folders.append(os.path.realpath(folder))
        folders.append(os.path.dirname(os.path.realpath(plinthtest.plinthd_binary())))
        bound = []
        for folder in folders:
            if any(folder == b or folder.startswith(b + '/') for b in bound):
                continue
            bound.append(folder)
            lines += ['mkdir -p %s' % q(root + folder), 'mount --bind %s %s' % (q(folder), q(root + folder))]
        lines += ['mkdir %s' % q(root + '/.host'), 'cd %s' % q(root), 'pivot_root . .host', 'umount -l /.host',
                  'rmdir /.host', 'cd /']
        return lines

    def start_layout_daemon(self):
        self.start_user_manager(self.system_bus.address)
        return self.start_daemon(namespace=True, setup=self.root_setup())

    def in_namespace(self, *command):
        result = subprocess.run(['nsenter', '-t', str(self.daemon.process.pid), '-m', '--'] + list(command),
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                universal_newlines=True)
        if result.returncode != 0:
            raise AssertionError('%s failed: %s' % (' '.join(command), result.stderr.strip()))
        return result.stdout

    def mount(self, node, index):
        path = '/media/m%d' % index
        self.in_namespace('mount', '-t', 'ext4', node, path)
        self.mounted[path] = node
        return path

    def umount(self, path):
        self.in_namespace('umount', path)
        del self.mounted[path]

    def ask(self, address):
        bus = dbus.bus.BusConnection(address)
        try:
            storages = dbus.Interface(bus.get_object(BUS_NAME, STORAGES_PATH, introspect=False), STORAGES_IFACE)
            return {question: typed(getattr(storages, question)(timeout=60)) for question in QUESTIONS}
        finally:
            bus.close()

    def ask_a_fresh_daemon(self):
        """The answers of a daemon started now in the same namespace, on a bus of its own."""
        workdir = tempfile.mkdtemp(prefix='fresh.', dir=self.workdir)
        bus = plinthtest.PrivateSystemBus(workdir)
        address = bus.start()
        # The test's own bus stays the one its clients find.
        os.environ['DBUS_SYSTEM_BUS_ADDRESS'] = self.system_bus.address
        self.start_user_manager(address)
        daemon = plinthtest.Daemon(workdir, env={'DBUS_SYSTEM_BUS_ADDRESS': address}, namespace=False,
                                   wrapper=['nsenter', '-t', str(self.daemon.process.pid), '-m', '--'])
        try:
            daemon.start()
            daemon.wait_ready()
            answers = self.ask(address)
            self.assertEqual(daemon.terminate(), 0, daemon.output()[-3000:])
            return answers
        finally:
            daemon.close()
            bus.stop()
            os.environ['DBUS_SYSTEM_BUS_ADDRESS'] = self.system_bus.address

    def measured_total(self):
        """The internal memory's total, measured here: the root, /home and
        every mounted data partition, each f_blocks times f_frsize."""
        paths = ['/', '/home'] + sorted(self.mounted)
        output = self.in_namespace('stat', '-f', '-c', '%b %S', *paths)
        return sum(int(blocks) * int(size) for blocks, size in (line.split() for line in output.splitlines()))

    def check(self, stage):
        """The running daemon, asked at once (what changed may still be
        unread in its sockets), answers as a fresh one does."""
        running = self.ask(self.system_bus.address)
        self.assertEqual(running['getInternalStorageInfo'][1]['bytesTotal'], ('UInt64', self.measured_total()),
                         stage)
        fresh = self.ask_a_fresh_daemon()
        for question in QUESTIONS:
            self.assertEqual(running[question], fresh[question], '%s: %s' % (stage, question))
        return running


class LayoutFollowsDevicesTest(LayoutTestCase):

    def test_answers_equal_a_fresh_daemons_while_devices_come_and_go(self):
        loops = self.loops
        whole = [loops.attach(8 * MiB, label='whole%d' % i) for i in range(8)]
        blank = [loops.attach(4 * MiB, filesystems=False) for _ in range(16)]
        parted = [loops.attach(16 * MiB, partitions=2, label='parted%d' % i) for i in range(8)]
        self.mounted = {}
        self.daemon = self.start_layout_daemon()

        self.mount(whole[0].node, 0)
        self.mount(parted[0].partitions[0], 1)
        self.mount(parted[1].partitions[1], 2)
        before = self.check('32 devices, 3 mounted')

        # Plugged: kernel announcements only, not a listed partition yet; then one mounted.
        plugged = [loops.attach(8 * MiB, label='plugged'), loops.attach(16 * MiB, partitions=2, label='plugged2')]
        self.check('2 more plugged')
        self.mount(plugged[1].partitions[1], 3)
        after = self.check('a plugged one mounted')
        self.assertGreater(after['getInternalStorageInfo'][1]['bytesTotal'][1],
                           before['getInternalStorageInfo'][1]['bytesTotal'][1])

        self.mount(whole[1].node, 4)
        self.mount(parted[2].partitions[0], 5)
        self.mount(parted[2].partitions[1], 6)
        self.check('3 more mounted')

        self.umount('/media/m1')
        self.umount('/media/m5')
        self.check('2 unmounted')

        # Removed: one that was mounted, one mounted now, others never mounted.
        self.umount('/media/m4')
        loops.detach(whole[1])
        self.umount('/media/m3')
        loops.detach(plugged[1])
        for device in blank[:4] + [parted[5], whole[7]]:
            loops.detach(device)
        last = self.check('8 removed')
        self.assertEqual(last['getInternalStorageInfo'][1]['bytesTotal'][1], self.measured_total())


class QueryCostTest(LayoutTestCase):

    def test_an_unchanged_device_costs_the_same_with_four_times_the_block_devices(self):
        reason = syscallcount.unavailable()
        if reason:
            self.skipTest(reason)
        loops = self.loops
        for _ in range(8):
            loops.attach(4 * MiB, filesystems=False)
        mounted = loops.attach(8 * MiB, label='data')
        self.mounted = {}
        self.daemon = self.start_layout_daemon()
        self.mount(mounted.node, 0)
        storages = dbus.Interface(self.bus.get_object(BUS_NAME, STORAGES_PATH, introspect=False), STORAGES_IFACE)

        def cost(question):
            # The first call after a change reads the layout again.
            getattr(storages, question)()
            return syscallcount.count(self.daemon.process.pid, lambda: getattr(storages, question)())

        few = {question: cost(question) for question in ('getInternalStorageInfo', 'getExternalStorageInfo')}
        for _ in range(24):
            loops.attach(4 * MiB, filesystems=False)
        many = {question: cost(question) for question in few}
        for question, count in few.items():
            print('%s: %s with 8 loop devices attached, %s with 32' % (question, count, many[question]), flush=True)
            # Nothing here grows with the block devices: one poll of the
            # monitors, the D-Bus round, three calls a mounted partition
            # (the root, /home and /media/m0 here) and, for the internal
            # memory, QStorageInfo's look at each of them.
            self.assertLessEqual(count.total, QUERY_BOUNDS[question], str(count))
            self.assertLessEqual(many[question].total, count.total + SLACK, '%s, then %s' % (count, many[question]))


# What one query may cost on an unchanged device, all threads of the daemon
# together: a fifth of the cost of reading the layout of the fewest block
# devices any machine of ours has. SLACK: the calls that differ between two
# identical queries (a wake-up of a pool thread, a sanitizer's own).
QUERY_BOUNDS = {'getInternalStorageInfo': 150, 'getExternalStorageInfo': 100}
SLACK = 15


if __name__ == '__main__':
    plinthtest.main()
