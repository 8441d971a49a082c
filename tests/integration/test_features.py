#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The Features object of the real daemon on a fake device.

Each test lays out a fake device (tests/harness/fakedevice.py: /proc, /sys,
/etc, /usr/lib/os-release, lscpu) mounted in the daemon's private mount
namespace, starts the daemon on the test's private system bus and checks the
answers, their exact D-Bus types and the daemon's warnings.
"""

import contextlib
import os
import re

import dbus

import fakedevice
import plinthtest
import rpmdb
from fakedevice import DIRECTORY, UNREADABLE, Link
from plinthtest import FEATURES_PATH, FEATURES_IFACE

SYSTEMD_MANAGER = 'org.freedesktop.systemd1.Manager'
CERT = 'content-configuration-cert'
SANITIZER_REPORT = re.compile(r'ERROR: (Address|Leak)Sanitizer|runtime error:')


class FeaturesTestCase(plinthtest.DaemonTestCase):

    def setUp(self):
        super().setUp()
        self.device = fakedevice.FakeDevice(self.workdir)
        self._running = []

    def start(self, **kwargs):
        """The daemon on self.device; at the end it must stop cleanly on SIGTERM."""
        daemon = self.start_daemon(**self.device.daemon_kwargs(**kwargs))
        self._running.append(daemon)
        self.addCleanup(self.stop, daemon)
        return daemon

    def stop(self, daemon):
        if daemon not in self._running:
            return
        self._running.remove(daemon)
        status = daemon.terminate()
        output = daemon.output()
        self.assertEqual(status, 0, output)
        self.assertIsNone(SANITIZER_REPORT.search(output), output)

    @contextlib.contextmanager
    def fresh_device(self):
        """One case of a table: its own device, its daemon stopped at the end."""
        self.device = fakedevice.FakeDevice(self.workdir)
        try:
            yield self.device
        finally:
            for daemon in list(self._running):
                self.stop(daemon)

    def call(self, method):
        return getattr(self.features(), method)()

    def assertWarned(self, daemon, text, count=1):
        found = [line for line in daemon.output().splitlines() if line.endswith(text)]
        self.assertEqual(len(found), count, daemon.output())

    def assertNotWarned(self, daemon, text):
        self.assertNotIn(text, daemon.output())

    def assertTyped(self, value, dbus_type, expected):
        self.assertIsInstance(value, dbus_type)
        self.assertEqual(value, expected)


class ProcessorTest(FeaturesTestCase):

    def test_lscpu_facts(self):
        self.start()
        self.assertTyped(self.call('getNumberCpuCores'), dbus.UInt32, 8)
        self.assertTyped(self.call('getMaxCpuClockSpeed'), dbus.UInt32, 2208)

    def test_current_clock_without_maximum(self):
        self.device.lscpu = 'CPU(s):    4\nModel name:  Virtual CPU\nCPU MHz:   1995.312\nBogoMIPS: 3990.62\n'
        self.start()
        self.assertTyped(self.call('getMaxCpuClockSpeed'), dbus.UInt32, 1995)
        self.assertTyped(self.call('getNumberCpuCores'), dbus.UInt32, 4)

    def test_lscpu_is_run_once(self):
        counter = os.path.join(self.workdir, 'lscpu.runs')
        output = self.device.path('lscpu.out')
        script = '#!/bin/sh\necho run >> %s\nexec cat %s\n' % (counter, output)
        self.start(fake_bin={'lscpu': script})
        for _ in range(3):
            self.call('getNumberCpuCores')
            self.call('getMaxCpuClockSpeed')
        with open(counter) as f:
            self.assertEqual(f.read(), 'run\n')

    def test_per_core_clocks_are_variants_of_uint32(self):
        self.device.sys['devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq'] = b'1804800\n'
        self.device.sys['devices/system/cpu/cpu1/cpufreq/cpuinfo_max_freq'] = b'2208000\n'
        self.start()
        speeds = self.call('getMaxCpuCoresClockSpeed')
        self.assertIsInstance(speeds, dbus.Array)
        self.assertEqual(speeds.signature, 'v')
        self.assertEqual(speeds, [1804, 2208])
        for speed in speeds:
            self.assertIsInstance(speed, dbus.UInt32)
            self.assertEqual(speed.variant_level, 1)

    def test_per_core_clocks_in_name_order(self):
        for cpu, khz in ((0, 1000000), (1, 1100000), (2, 2000000), (10, 3000000)):
            self.device.sys['devices/system/cpu/cpu%d/cpufreq/cpuinfo_max_freq' % cpu] = b'%d\n' % khz
        self.device.sys['devices/system/cpu/cpu3'] = DIRECTORY  # no cpufreq: not listed
        self.start()
        self.assertEqual(self.call('getMaxCpuCoresClockSpeed'), [1000, 1100, 3000, 2000])

    def test_reused_clock_is_divided_again(self):
        self.device.sys['devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq'] = b'1800000\n'
        self.device.sys['devices/system/cpu/cpu1/cpufreq/cpuinfo_max_freq'] = b'-\n'
        self.start()
        self.assertEqual(self.call('getMaxCpuCoresClockSpeed'), [1800, 1])

    def test_no_cpufreq(self):
        self.start()
        speeds = self.call('getMaxCpuCoresClockSpeed')
        self.assertEqual(speeds, [])
        self.assertEqual(speeds.signature, 'v')

    def test_model_from_cpuinfo_hardware_line(self):
        self.device.proc['cpuinfo'] = (fakedevice.DEFAULT_CPUINFO
                                       + b'Hardware\t: Qualcomm Technologies, Inc SDM660\nRevision\t: 0000\n')
        self.device.sys['firmware/devicetree/base/compatible'] = b'acme,phone\0acme,xyz100\0'
        daemon = self.start()
        self.assertTyped(self.call('getCpuModel'), dbus.String, 'Qualcomm Technologies, Inc SDM660')
        self.assertNotWarned(daemon, "Can't read file /proc/device-tree/compatible")

    def test_model_from_device_tree(self):
        self.device.sys['firmware/devicetree/base/compatible'] = b'acme,phone\0acme,xyz100\0'
        daemon = self.start()
        self.assertTyped(self.call('getCpuModel'), dbus.String, 'XYZ100')
        self.assertNotWarned(daemon, "Can't read file compatible")

    def test_no_model_anywhere(self):
        daemon = self.start()
        self.assertTyped(self.call('getCpuModel'), dbus.String, '')
        self.assertWarned(daemon, "Can't read file /proc/device-tree/compatible")

    def test_bad_compatible_files(self):
        for name, content, model in (('empty', b'', ''), ('blank', b' \n', ''), ('commas', b',,,', ''),
                                     ('nul piece', b'acme,\0', ''), ('binary', bytes(range(256)) * 64, None),
                                     ('huge', b'acme,' + b'x' * (1 << 22), 'X' * (1 << 22))):
            with self.subTest(name), self.fresh_device():
                self.device.sys['firmware/devicetree/base/compatible'] = content
                daemon = self.start()
                answer = self.call('getCpuModel')
                if model is not None:
                    self.assertEqual(answer, model)
                self.assertNotWarned(daemon, "Can't read file compatible")

    def test_tools_missing(self):
        # Neither lscpu nor bash on PATH: every probe that needs them is unknown.
        self.device.lscpu = None
        self.device.sys['devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq'] = b'1804800\n'
        self.device.proc['cpuinfo'] = b'Hardware\t: SoC\n'
        empty = os.path.join(self.workdir, 'empty-bin')
        os.mkdir(empty)
        # Set last in the namespace, after the mounts, for the daemon alone.
        daemon = self.start(setup=['PATH=%s; export PATH' % empty])
        self.assertEqual(self.call('getNumberCpuCores'), 0)
        self.assertEqual(self.call('getMaxCpuClockSpeed'), 0)
        self.assertEqual(self.call('getMaxCpuCoresClockSpeed'), [])
        self.assertEqual(self.call('getCpuModel'), '')
        self.assertWarned(daemon, "Can't read file /proc/device-tree/compatible")
        self.assertEqual(self.call('getRamTotalSize'), 3809096 * 1024)

    def test_failing_lscpu(self):
        script = '#!/bin/sh\nprintf "CPU(s): \\0377\\0001\\n" \nhead -c 100000 /dev/urandom\nexit 3\n'
        self.start(fake_bin={'lscpu': script})
        self.assertEqual(self.call('getNumberCpuCores'), 0)
        self.assertEqual(self.call('getMaxCpuClockSpeed'), 0)

    def test_bad_lscpu_output(self):
        self.device.lscpu = 'x' * (1 << 22) + '\nCPU(s): 6\n' + '9' * (1 << 20) + '\n'
        self.start()
        self.assertEqual(self.call('getNumberCpuCores'), 6)
        self.assertEqual(self.call('getMaxCpuClockSpeed'), 0)

    def test_bad_cpufreq_and_cpuinfo(self):
        self.device.sys['devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq'] = b'\xff\xfe\0\x01'
        self.device.sys['devices/system/cpu/cpu1/cpufreq/cpuinfo_max_freq'] = b'9' * 100000
        self.device.sys['devices/system/cpu/cpu2/cpufreq/cpuinfo_max_freq'] = b''
        self.device.proc['cpuinfo'] = bytes(range(256)) * 1000 + b'\nHardware\t:\n'
        self.start()
        # cat joins the files; the NUL of the first one ends the text.
        self.assertEqual(self.call('getMaxCpuCoresClockSpeed'), [0])
        self.assertEqual(self.call('getCpuModel'), '')


class MemoryTest(FeaturesTestCase):

    def test_total_in_bytes(self):
        self.start()
        self.assertTyped(self.call('getRamTotalSize'), dbus.UInt64, 3900514304)

    def test_free_is_memfree_not_memavailable(self):
        self.start()
        self.assertTyped(self.call('getRamFreeSize'), dbus.UInt64, 812345 * 1024)

    def test_free_is_read_on_every_call(self):
        self.start()
        self.assertEqual(self.call('getRamFreeSize'), 812345 * 1024)
        self.device.rewrite('proc', 'meminfo', b'MemTotal: 100 kB\nMemFree: 7 kB\n')
        self.assertEqual(self.call('getRamFreeSize'), 7 * 1024)

    def test_free_refreshes_what_total_reads(self):
        self.start()
        self.device.rewrite('proc', 'meminfo', b'MemTotal: 100 kB\nMemFree: 7 kB\n')
        self.assertEqual(self.call('getRamTotalSize'), 3900514304)
        self.call('getRamFreeSize')
        self.assertEqual(self.call('getRamTotalSize'), 100 * 1024)

    def test_unreadable_meminfo(self):
        for name, value in (('missing', None), ('directory', DIRECTORY)):
            with self.subTest(name), self.fresh_device():
                self.device.proc['meminfo'] = value
                daemon = self.start()
                self.assertTyped(self.call('getRamTotalSize'), dbus.UInt64, 0)
                self.assertTyped(self.call('getRamFreeSize'), dbus.UInt64, 0)
                # Once at start-up, once for the call.
                self.assertWarned(daemon, "Can't read file /proc/meminfo", 2)

    def test_meminfo_vanishing_later_gives_zero(self):
        self.start()
        self.device.rewrite('proc', 'meminfo', b'')
        self.assertEqual(self.call('getRamFreeSize'), 0)
        self.assertEqual(self.call('getRamTotalSize'), 0)

    def test_bad_meminfo(self):
        for name, content in (('empty', b''), ('binary', bytes(range(256)) * 512),
                              ('truncated', b'MemTotal:'), ('no numbers', b'MemTotal: lots kB\nMemFree: some\n'),
                              ('huge line', b'MemTotal: ' + b'1' * (1 << 22) + b' kB\n'),
                              ('nul first', b'\0MemTotal: 5 kB\n')):
            with self.subTest(name), self.fresh_device():
                self.device.proc['meminfo'] = content
                daemon = self.start()
                self.assertEqual(self.call('getRamTotalSize'), 0)
                self.assertEqual(self.call('getRamFreeSize'), 0)
                self.assertNotWarned(daemon, "Can't read file /proc/meminfo")


class ScreenTest(FeaturesTestCase):
    FB = 'class/graphics/fb0/modes'
    DRM = 'class/drm/card0/card0-DSI-1/modes'

    def test_framebuffer_modes(self):
        self.device.sys[self.FB] = b'U:720x1440p-0\n'
        self.start()
        self.assertTyped(self.call('getScreenResolution'), dbus.String, '720x1440')

    def test_only_framebuffer_read_when_both_exist(self):
        self.device.sys[self.FB] = b'U:720x1440p-0\n'
        self.device.sys[self.DRM] = b'1080x2160\n'
        daemon = self.start()
        self.assertEqual(self.call('getScreenResolution'), '720x1440')
        self.assertNotWarned(daemon, "Can't read file /sys/class/")

    def test_first_line_with_a_mode_decides(self):
        self.device.sys[self.FB] = b'none\nD:1080x2160p-60\nU:720x1440p-0\n'
        self.start()
        self.assertEqual(self.call('getScreenResolution'), '1080x2160')

    def test_drm_modes_without_framebuffer(self):
        self.device.sys[self.DRM] = b'1080x2340\n720x1560\n'
        daemon = self.start()
        self.assertEqual(self.call('getScreenResolution'), '1080x2340')
        self.assertWarned(daemon, "Can't read file /sys/class/graphics/fb0/modes")

    def test_unreadable_framebuffer_falls_back_to_drm(self):
        self.device.sys[self.FB] = UNREADABLE
        self.device.sys[self.DRM] = b'1080x2340\n'
        daemon = self.start(wrapper=fakedevice.NO_FILE_OVERRIDE)
        self.assertEqual(self.call('getScreenResolution'), '1080x2340')
        self.assertWarned(daemon, "Can't read file /sys/class/graphics/fb0/modes")
        self.assertNotWarned(daemon, "Can't read file /sys/class/drm")

    def test_empty_framebuffer_file_still_wins(self):
        self.device.sys[self.FB] = b''
        self.device.sys[self.DRM] = b'1080x2340\n'
        daemon = self.start()
        self.assertTyped(self.call('getScreenResolution'), dbus.String, '')
        self.assertNotWarned(daemon, "Can't read file /sys/class/")

    def test_no_modes_file(self):
        daemon = self.start()
        self.assertTyped(self.call('getScreenResolution'), dbus.String, '')
        self.assertWarned(daemon, "Can't read file /sys/class/graphics/fb0/modes")
        self.assertWarned(daemon, "Can't read file /sys/class/drm/card0/card0-DSI-1/modes")

    def test_modes_without_a_resolution(self):
        for name, content in (('text', b'U:auto\n'), ('binary', bytes(range(256)) * 100),
                              ('huge', b'9' * (1 << 22)), ('truncated', b'U:720x')):
            with self.subTest(name), self.fresh_device():
                self.device.sys[self.FB] = content
                daemon = self.start()
                self.assertEqual(self.call('getScreenResolution'), '')
                self.assertNotWarned(daemon, "Can't read file /sys/class/")

    def test_modes_are_read_once(self):
        self.device.sys[self.FB] = b'U:720x1440p-0\n'
        self.start()
        self.device.rewrite('sys', self.FB, b'U:1080x2160p-0\n')
        self.assertEqual(self.call('getScreenResolution'), '720x1440')


class BatteryAndRadiosTest(FeaturesTestCase):

    def supply(self, name, kind, capacity=None):
        self.device.sys['class/power_supply/%s/type' % name] = kind
        if capacity is not None:
            self.device.sys['class/power_supply/%s/capacity' % name] = capacity

    def test_battery_charge(self):
        self.supply('AC', b'Mains\n')
        self.supply('BAT1', b'Battery\n', b'40\n')
        self.supply('BAT0', b'Battery\n', b'75\n')
        self.start()
        self.assertTyped(self.call('getBatteryChargePercentage'), dbus.UInt32, 75)

    def test_battery_is_read_on_every_call(self):
        self.supply('battery', b'Battery\n', b'50\n')
        self.start()
        self.assertEqual(self.call('getBatteryChargePercentage'), 50)
        self.device.rewrite('sys', 'class/power_supply/battery/capacity', b'49\n')
        self.assertEqual(self.call('getBatteryChargePercentage'), 49)

    def test_no_battery(self):
        self.supply('AC', b'Mains\n')
        self.supply('BAT0', b'Battery\n')
        self.start()
        self.assertTyped(self.call('getBatteryChargePercentage'), dbus.UInt32, 0)

    def test_bad_battery_files(self):
        self.supply('BAT0', bytes(range(256)), b'50\n')
        self.supply('BAT1', b'Battery\n', b'\xff' * 100000)
        self.start()
        self.assertEqual(self.call('getBatteryChargePercentage'), 0)

    def test_radios(self):
        self.device.sys['class/bluetooth/hci0/name'] = b'hci0\n'
        self.device.sys['class/ieee80211/phy0'] = Link('../../devices/pci0000:00/phy0')
        self.device.sys['class/gnss'] = DIRECTORY
        daemon = self.start()
        self.assertTyped(self.call('hasBluetooth'), dbus.Boolean, True)
        self.assertTyped(self.call('hasWlan'), dbus.Boolean, True)
        self.assertTyped(self.call('hasGNSS'), dbus.Boolean, False)
        self.assertTyped(self.call('hasNFC'), dbus.Boolean, False)
        self.assertNotWarned(daemon, 'class/nfc')

    def test_radios_are_read_on_every_call(self):
        self.device.sys['class/gnss'] = DIRECTORY
        self.start()
        self.assertFalse(self.call('hasGNSS'))
        self.assertFalse(self.call('hasNFC'))
        os.mkdir(self.device.sys_path('class/gnss/gnss0'))
        os.makedirs(self.device.sys_path('class/nfc/nfc0'))
        self.assertTrue(self.call('hasGNSS'))
        self.assertTrue(self.call('hasNFC'))


class IdentityTest(FeaturesTestCase):

    def test_os_version_from_etc(self):
        self.start()
        self.assertTyped(self.call('getOsVersion'), dbus.String, 'Vireo 4.6.0.15')

    def test_os_version_from_vendor_file(self):
        self.device.etc['os-release'] = None
        self.start()
        self.assertEqual(self.call('getOsVersion'), 'Vireo 4.0')

    def test_os_version_quoting(self):
        self.device.etc['os-release'] = b"# comment\nVERSION_ID='5.0 beta'\nNAME=Vireo\n"
        self.start()
        self.assertEqual(self.call('getOsVersion'), 'Vireo 5.0 beta')

    def test_empty_version_keeps_the_blank(self):
        for name, content in (('empty', b'VERSION_ID=""\n'), ('absent', b'NAME=Vireo\n'),
                              ('binary', bytes(range(256)) * 100), ('huge', b'VERSION_ID="' + b'1' * (1 << 22)),
                              ('empty file', b'')):
            with self.subTest(name), self.fresh_device():
                self.device.etc['os-release'] = content
                self.start()
                self.assertTyped(self.call('getOsVersion'), dbus.String, 'Vireo ')

    def test_no_os_release_at_all(self):
        self.device.etc['os-release'] = None
        self.device.usr_lib['os-release'] = None
        self.start()
        self.assertEqual(self.call('getOsVersion'), 'Vireo ')

    def test_os_version_is_read_on_every_call(self):
        self.device.etc['os-release'] = Link(os.path.join(self.workdir, 'os-release'))
        with open(os.path.join(self.workdir, 'os-release'), 'w') as f:
            f.write('VERSION_ID=1\n')
        self.start()
        self.assertEqual(self.call('getOsVersion'), 'Vireo 1')
        with open(os.path.join(self.workdir, 'os-release'), 'w') as f:
            f.write('VERSION_ID=2\n')
        self.assertEqual(self.call('getOsVersion'), 'Vireo 2')

    def test_model_and_serial_from_device_tree(self):
        self.device.sys['firmware/devicetree/base/model'] = b'Acme Phone X\0'
        self.device.sys['firmware/devicetree/base/serial-number'] = b'a1b2c3d4\0'
        self.device.sys['class/dmi/id/sys_vendor'] = b'QEMU\n'
        self.device.sys['class/dmi/id/product_serial'] = b'DMI-1\n'
        self.start()
        self.assertTyped(self.call('getDeviceModel'), dbus.String, 'Acme Phone X')
        self.assertTyped(self.call('getSerialNumber'), dbus.String, 'a1b2c3d4')

    def test_model_and_serial_from_dmi(self):
        self.device.sys['class/dmi/id/sys_vendor'] = b'QEMU\n'
        self.device.sys['class/dmi/id/product_name'] = b'Standard PC (Q35 + ICH9, 2009)\n'
        self.device.sys['class/dmi/id/product_serial'] = b'  DMI-1 \n'
        self.start()
        self.assertEqual(self.call('getDeviceModel'), 'QEMU Standard PC (Q35 + ICH9, 2009)')
        self.assertEqual(self.call('getSerialNumber'), 'DMI-1')

    def test_model_with_a_missing_dmi_part(self):
        self.device.sys['class/dmi/id/product_name'] = b'Box 1\n'
        self.start()
        self.assertEqual(self.call('getDeviceModel'), 'Box 1')

    def test_no_model_no_serial(self):
        self.start()
        self.assertTyped(self.call('getDeviceModel'), dbus.String, '')
        self.assertTyped(self.call('getSerialNumber'), dbus.String, '')

    def test_bad_identity_files(self):
        self.device.sys['firmware/devicetree/base/model'] = b'\0' + bytes(range(256))
        self.device.sys['firmware/devicetree/base/serial-number'] = b'\xff\xfe' * 100000
        self.device.sys['class/dmi/id/sys_vendor'] = b'V\n'
        self.start()
        self.assertEqual(self.call('getDeviceModel'), 'V')
        self.assertEqual(len(self.call('getSerialNumber')), 200000)


class PropertiesTest(FeaturesTestCase):

    def properties(self):
        return self.proxy(FEATURES_PATH, 'org.freedesktop.DBus.Properties')

    def test_types_and_values(self):
        self.start()
        props = self.properties()
        self.assertTyped(props.Get(FEATURES_IFACE, 'osType'), dbus.UInt32, 64)
        self.assertTyped(props.Get(FEATURES_IFACE, 'isOsCertified'), dbus.Boolean, False)
        self.assertTyped(props.Get(FEATURES_IFACE, 'isOsEmulated'), dbus.Boolean, False)
        self.assertEqual(props.GetAll(FEATURES_IFACE),
                         {'osType': 64, 'isOsCertified': False, 'isOsEmulated': False})

    def test_set_is_refused(self):
        self.start()
        props = self.properties()
        for name, value in (('osType', dbus.UInt32(1)), ('isOsCertified', dbus.Boolean(True)),
                            ('isOsEmulated', dbus.Boolean(True))):
            with self.subTest(name):
                with self.assertRaises(dbus.exceptions.DBusException):
                    props.Set(FEATURES_IFACE, name, value)
        self.assertEqual(props.Get(FEATURES_IFACE, 'osType'), 64)
        self.assertFalse(props.Get(FEATURES_IFACE, 'isOsCertified'))


class CertificationTest(FeaturesTestCase):

    def certified(self, packages):
        db = rpmdb.RpmDatabase(self.workdir)
        db.install(packages)
        self.start(env=db.env())
        return self.properties_get('isOsCertified'), db

    def properties_get(self, name):
        return self.proxy(FEATURES_PATH, 'org.freedesktop.DBus.Properties').Get(FEATURES_IFACE, name)

    def test_exact_name_counts(self):
        certified, _ = self.certified({'tarn-maps': 10, CERT: 10, 'zlib': 10})
        self.assertTyped(certified, dbus.Boolean, True)

    def test_a_name_that_contains_it_does_not(self):
        certified, _ = self.certified({CERT + '-extra': 10, 'old-' + CERT: 10,
                                       'Content-Configuration-Cert': 10})
        self.assertTyped(certified, dbus.Boolean, False)

    def test_empty_database(self):
        certified, _ = self.certified({})
        self.assertTyped(certified, dbus.Boolean, False)

    def test_installing_later_needs_a_restart(self):
        certified, db = self.certified({'tarn-maps': 10})
        self.assertFalse(certified)
        db.install({CERT: 10})
        self.assertFalse(self.properties_get('isOsCertified'))
        for daemon in list(self._running):
            self.stop(daemon)
        self.start(env=db.env())
        self.assertTrue(self.properties_get('isOsCertified'))

    def test_no_database(self):
        home = os.path.join(self.workdir, 'home')
        os.mkdir(home)
        with open(os.path.join(home, '.rpmmacros'), 'w') as f:
            f.write('%%_dbpath %s\n' % os.path.join(self.workdir, 'no-such-db'))
        self.start(env={'HOME': home})
        self.assertFalse(self.properties_get('isOsCertified'))


class VirtualizationTest(FeaturesTestCase):

    def systemd_says(self, virtualization):
        _, manager = self.start_mock_template('systemd')
        manager.AddProperty(SYSTEMD_MANAGER, 'Virtualization', virtualization,
                            dbus_interface='org.freedesktop.DBus.Mock')
        daemon = self.start()
        emulated = self.proxy(FEATURES_PATH, 'org.freedesktop.DBus.Properties').Get(FEATURES_IFACE, 'isOsEmulated')
        self.assertIsInstance(emulated, dbus.Boolean)
        return emulated, daemon

    def test_bare_hardware(self):
        emulated, daemon = self.systemd_says('')
        self.assertFalse(emulated)
        self.assertNotWarned(daemon, 'Virtualization')

    def test_container(self):
        emulated, _ = self.systemd_says('docker')
        self.assertTrue(emulated)

    def test_virtual_machine(self):
        emulated, _ = self.systemd_says('kvm')
        self.assertTrue(emulated)

    def test_no_systemd(self):
        daemon = self.start()
        self.assertFalse(self.proxy(FEATURES_PATH, 'org.freedesktop.DBus.Properties')
                         .Get(FEATURES_IFACE, 'isOsEmulated'))
        self.assertWarned(daemon, "Invalid result from 'Virtualization' DBus property")

    def test_systemd_without_the_property(self):
        self.start_mock_template('systemd')
        daemon = self.start()
        self.assertFalse(self.proxy(FEATURES_PATH, 'org.freedesktop.DBus.Properties')
                         .Get(FEATURES_IFACE, 'isOsEmulated'))
        self.assertWarned(daemon, "Invalid result from 'Virtualization' DBus property")


class TimeZoneTest(FeaturesTestCase):

    def set_zone(self, name):
        """Switch the system zone as the time tools do: both files replaced whole."""
        link = os.path.join(self.workdir, 'localtime.new')
        os.symlink('/usr/share/zoneinfo/' + name, link)
        os.replace(link, os.path.join(self.workdir, 'localtime'))
        with open(os.path.join(self.workdir, 'timezone.new'), 'w') as f:
            f.write(name + '\n')
        os.replace(os.path.join(self.workdir, 'timezone.new'), os.path.join(self.workdir, 'timezone'))

    def start_in_zone(self):
        self.device.etc['localtime'] = Link(os.path.join(self.workdir, 'localtime'))
        self.device.etc['timezone'] = Link(os.path.join(self.workdir, 'timezone'))
        return self.start(env={'TZ': ''})

    # The text itself comes from the platform's zone data (it may be an
    # abbreviation or an offset); what matters is that a running daemon gives
    # what a freshly started one gives.
    def test_follows_the_system_zone_without_restart(self):
        self.set_zone('Asia/Tokyo')
        daemon = self.start_in_zone()
        tokyo = self.call('getTimeZone')
        self.assertIsInstance(tokyo, dbus.String)
        self.set_zone('America/New_York')
        new_york = self.call('getTimeZone')
        self.assertNotEqual(new_york, tokyo)
        self.stop(daemon)

        self.start_in_zone()
        self.assertEqual(self.call('getTimeZone'), new_york)


class RobustnessTest(FeaturesTestCase):

    def test_everything_missing_or_hostile_at_once(self):
        noise = bytes(range(256)) * 4096
        self.device.proc['meminfo'] = noise
        self.device.proc['cpuinfo'] = noise
        self.device.lscpu = noise.decode('latin-1')
        self.device.sys['firmware/devicetree/base/compatible'] = noise
        self.device.sys['firmware/devicetree/base/model'] = noise
        self.device.sys['class/graphics/fb0/modes'] = noise
        self.device.sys['class/power_supply/x/type'] = noise
        self.device.etc['os-release'] = noise
        self.start()
        for method in ('hasGNSS', 'hasNFC', 'hasBluetooth', 'hasWlan', 'getMaxCpuClockSpeed',
                       'getNumberCpuCores', 'getCpuModel', 'getMaxCpuCoresClockSpeed',
                       'getBatteryChargePercentage', 'getMainCameraResolution',
                       'getFrontalCameraResolution', 'getRamTotalSize', 'getRamFreeSize',
                       'getScreenResolution', 'getOsVersion', 'getDeviceModel', 'getSerialNumber',
                       'getTimeZone'):
            with self.subTest(method):
                self.call(method)
        self.assertEqual(self.call('getRamTotalSize'), 0)
        self.assertEqual(self.call('getOsVersion'), 'Vireo ')

    def test_cameras_unmeasured(self):
        self.start()
        self.assertTyped(self.call('getMainCameraResolution'), dbus.Double, 0.0)
        self.assertTyped(self.call('getFrontalCameraResolution'), dbus.Double, 0.0)


if __name__ == '__main__':
    plinthtest.main()
