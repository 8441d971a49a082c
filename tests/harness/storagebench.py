# SPDX-License-Identifier: BSD-3-Clause
"""Drives that come and go, for the storage tests.

Block devices come from umockdev: device descriptions in the umockdev record
format (tests/data/storages/*.umockdev) are added to a testbed, and udev
events for them reach the daemon's udev monitor. Mounts are real: the daemon
runs in a private mount namespace, and the test mounts a tmpfs of a chosen size
there whose source names the recorded device node (tmpfs takes any source), so
the kernel's mount table, libmount's monitor and statvfs() are all real.

The test process itself must run under umockdev's preload library for the
testbed to work; call storagebench.main() instead of plinthtest.main() and it
re-executes the script under umockdev-wrapper when needed.
"""

import os
import shutil
import subprocess
import sys
import time

import dbus
import dbus.mainloop.glib
import gi

gi.require_version('UMockdev', '1.0')
from gi.repository import GLib, UMockdev  # noqa: E402

import plinthtest  # noqa: E402
from loadclients import sv  # noqa: E402

DATA_DIR = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), 'data', 'storages')
SECTOR = 512
# The partitions of the recorded SD card (sdcard.umockdev), in sectors.
SD_P1_SECTORS = 20480000
SD_P2_SECTORS = 10633216


def sd_card_answers(plugged=True, mounted_at=None, mounted_bytes=0):
    """(summary, drives): what getExternalStorageInfo and
    getExternalStorageDrivesInfo answer for the recorded SD card, unplugged, or
    plugged with its first partition unmounted or mounted at MOUNTED_AT (a
    tmpfs of MOUNTED_BYTES, all free)."""
    mounted = plugged and mounted_at is not None
    total = dbus.UInt64(mounted_bytes if mounted else 0)
    summary = sv(deviceLabel=dbus.String('external storage'), mounted=dbus.Boolean(mounted),
                 countMountedPartitions=dbus.UInt32(1 if mounted else 0), bytesTotal=total,
                 bytesAvailable=total, bytesUsed=dbus.UInt64(0))
    if not plugged:
        return summary, dbus.Array([], signature='a{sv}')

    def partition(name, mount_point, size, free):
        return sv(partitionName=dbus.String(name), mountPoint=dbus.String(mount_point),
                  partitionLabel=dbus.String(''), driveName=dbus.String('SD16G'),
                  bytesTotal=dbus.Int64(size), bytesUsed=dbus.Int64(size - free), bytesAvailable=dbus.Int64(free))
    # A partition that is not mounted is all used: nothing of it is free.
    if mounted:
        first = partition('PHOTOS 2024', mounted_at, mounted_bytes, mounted_bytes)
    else:
        first = partition('PHOTOS 2024', '', SD_P1_SECTORS * SECTOR, 0)
    second = partition('backup', '', SD_P2_SECTORS * SECTOR, 0)
    drives = dbus.Array([sv(driveName=dbus.String('SD16G'), driveType=dbus.String('SD'),
                            partitionsInfo=dbus.Array([first, second], signature='a{sv}'))], signature='a{sv}')
    return summary, drives


def device_paths(name):
    """The sysfs paths of a description file, in file order."""
    paths = []
    with open(os.path.join(DATA_DIR, name + '.umockdev')) as f:
        for line in f:
            if line.startswith('P: '):
                paths.append('/sys' + line[3:].strip())
    return paths


def block_devices(name):
    return [p for p in device_paths(name) if '/block/' in p]


def sanitizer_preload():
    """AddressSanitizer must come first among the preloaded libraries."""
    if os.environ.get('PLINTHD_SANITIZE') != 'address':
        return []
    path = subprocess.run(['gcc', '-print-file-name=libasan.so'], capture_output=True,
                          universal_newlines=True).stdout.strip()
    return [os.path.realpath(path)] if path else []


class SignalRecorder:
    """Storages signals as a client sees them, in arrival order."""

    def __init__(self, address):
        self.bus = dbus.bus.BusConnection(address, mainloop=dbus.mainloop.glib.DBusGMainLoop())
        self.signals = []
        self._match = self.bus.add_signal_receiver(
            self._record, dbus_interface=plinthtest.STORAGES_IFACE, path=plinthtest.STORAGES_PATH,
            member_keyword='member')
        # The match rule must be in force on the bus before anything happens.
        self.bus.call_blocking('org.freedesktop.DBus', '/org/freedesktop/DBus',
                               'org.freedesktop.DBus', 'GetId', '', [])

    def _record(self, *args, member=None):
        self.signals.append((member, args[0] if args else None))

    def pump(self, seconds):
        context = GLib.MainContext.default()
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            while context.iteration(False):
                pass
            time.sleep(0.01)

    def wait_for(self, count, timeout=10.0):
        """Waits until `count` signals have arrived since the last take()."""
        context = GLib.MainContext.default()
        deadline = time.monotonic() + timeout
        while len(self.signals) < count:
            if time.monotonic() > deadline:
                raise AssertionError('expected %d signals, got %d: %r' % (count, len(self.signals), self.signals))
            context.iteration(False)
            time.sleep(0.005)
        return self.take()

    def take(self):
        taken, self.signals = self.signals, []
        return taken

    def close(self):
        self._match.remove()
        self.bus.close()


class StorageTestCase(plinthtest.DaemonTestCase):

    def setUp(self):
        super().setUp()
        self.testbed = UMockdev.Testbed.new()
        self.media = os.path.join(self.workdir, 'media')
        os.mkdir(self.media)
        self.daemon = None

    def add_description(self, name):
        """Makes the devices of a description exist."""
        self.assertTrue(self.testbed.add_from_file(os.path.join(DATA_DIR, name + '.umockdev')))

    def plug(self, name):
        """A drive arrives: umockdev announces each device it adds with an "add" event."""
        self.add_description(name)

    def unplug(self, name):
        """A drive leaves: its block devices are announced gone, then removed."""
        paths = device_paths(name)
        for path in reversed(block_devices(name)):
            self.testbed.uevent(path, 'remove')
        # Children first: each removal takes the device's own class link
        # along, and a link left behind would stop the drive from coming back.
        for path in reversed(paths):
            self.testbed.remove_device(path)
        self._drop_dangling_links()
        # The last event after the removal makes sure the daemon rescans a
        # sysfs without the drive.
        self.testbed.uevent(self.anchor_device, 'change')

    def _drop_dangling_links(self):
        """The testbed leaves the /sys/dev/block/MAJOR:MINOR links of removed
        devices behind; the kernel would not, and they stop a device of the
        same number from being added again."""
        sys_dir = os.path.join(self.testbed.get_root_dir(), 'sys')
        for folder, _, files in os.walk(sys_dir):
            for name in files:
                path = os.path.join(folder, name)
                if os.path.islink(path) and not os.path.exists(path):
                    os.unlink(path)

    def start_storage_daemon(self, devices=('emmc',), **kwargs):
        for name in devices:
            self.add_description(name)
        # udev events need a device that stays; the internal eMMC is one.
        self.anchor_device = block_devices('emmc')[0]
        if 'emmc' not in devices:
            self.add_description('emmc')
        env = dict(kwargs.pop('env', {}))
        env['UMOCKDEV_DIR'] = self.testbed.get_root_dir()
        preload = sanitizer_preload() + [p for p in os.environ.get('LD_PRELOAD', '').split() if p]
        env['LD_PRELOAD'] = ' '.join(preload)
        self._daemon_arguments = dict(kwargs, env=env, namespace=True)
        return self.start_storage_daemon_again()

    def stop_storage_daemon(self):
        """SIGTERM: the daemon leaves the bus, its mount namespace and what
        was mounted there go with it; the recorded devices stay."""
        self._check_clean_exit(self.daemon)

    def start_storage_daemon_again(self):
        """A new daemon, as start_storage_daemon() made the first, on the
        devices as they are now."""
        self.daemon = self.start_daemon(**self._daemon_arguments)
        self.addCleanup(self._check_clean_exit, self.daemon)
        return self.daemon

    def _check_clean_exit(self, daemon):
        """Every test ends with SIGTERM: status 0, and no sanitizer report on the way."""
        status = daemon.terminate()
        output = daemon.output()
        for marker in ('ThreadSanitizer', 'AddressSanitizer', 'LeakSanitizer', 'runtime error:'):
            self.assertNotIn(marker, output)
        self.assertEqual(status, 0, output[-4000:])

    def in_namespace(self, *command):
        subprocess.run(['nsenter', '-t', str(self.daemon.process.pid), '-m', '--'] + list(command),
                       check=True, stdin=subprocess.DEVNULL)

    def mount(self, device, size_bytes, where=None):
        """Mounts a tmpfs of the given size as /dev/DEVICE in the daemon's namespace."""
        target = where or os.path.join(self.media, device)
        os.makedirs(target, exist_ok=True)
        self.in_namespace('mount', '-t', 'tmpfs', '-o', 'size=%d' % size_bytes, '/dev/' + device, target)
        return target

    def umount(self, device, where=None):
        self.in_namespace('umount', where or os.path.join(self.media, device))

    def recorder(self):
        recorder = SignalRecorder(self.system_bus.address)
        self.addCleanup(recorder.close)
        return recorder


def main():
    # in_mock_environment() only turns true once a testbed exists; the
    # preload library is what the testbed needs in this process.
    if 'libumockdev-preload' not in os.environ.get('LD_PRELOAD', ''):
        if not shutil.which('umockdev-wrapper'):
            print('SKIP: needs umockdev-wrapper for the recorded devices', flush=True)
            sys.exit(plinthtest.SKIP_STATUS)
        os.execvp('umockdev-wrapper', ['umockdev-wrapper', sys.executable] + sys.argv)
    plinthtest.main()
