#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The daemon's life on the bus: name, objects, interfaces, exit paths, logging."""

import os
import re
import signal
import subprocess
import xml.etree.ElementTree as ET

import dbus

import plinthtest
from plinthtest import BUS_NAME, FEATURES_PATH, SIM_PATH, STORAGES_PATH

TYPE_NAME = 'org.qtproject.QtDBus.QtTypeName.Out0'
DEPRECATED = ('org.freedesktop.DBus.Deprecated', 'true')


def method(name, sig, arg, annotations=()):
    return ('method', name, ((arg, sig, 'out'),), tuple(annotations))


def signal_(name, sig, arg, annotations=()):
    return ('signal', name, ((arg, sig, 'out'),), tuple(annotations))


def prop(name, sig):
    return ('property', name, sig, 'read')


# Written out member by member, in the published order, independently of the
# interface files the adaptors are generated from.
EXPECTED = {
    'org.norvu.plinth.Features': [
        signal_('cameraEnabledChanged', 'b', 'cameraEnabled'),
        method('hasGNSS', 'b', 'hasGnss'),
        method('hasNFC', 'b', 'hasNfc'),
        method('hasBluetooth', 'b', 'hasBluetooth'),
        method('hasWlan', 'b', 'hasWlan'),
        method('getMaxCpuClockSpeed', 'u', 'maxClockSpeed'),
        method('getNumberCpuCores', 'u', 'numCores'),
        method('getCpuModel', 's', 'cpuModel'),
        method('getMaxCpuCoresClockSpeed', 'av', 'maxCoresClockSpeed'),
        method('getBatteryChargePercentage', 'u', 'batteryPercentage'),
        method('getMainCameraResolution', 'd', 'mainCamRes'),
        method('getFrontalCameraResolution', 'd', 'frontalCamRes'),
        method('getRamTotalSize', 't', 'ramTotal'),
        method('getRamFreeSize', 't', 'ramFree'),
        method('getScreenResolution', 's', 'screenResolution'),
        method('getOsVersion', 's', 'osVersion'),
        method('getDeviceModel', 's', 'deviceModel'),
        method('getSerialNumber', 's', 'serialNumber'),
        method('getLocale', 's', 'locale'),
        method('getLocales', 'as', 'locales'),
        method('getTimeZone', 's', 'timeZone'),
        method('getFontNames', 'as', 'fontNames'),
        method('getFontFamilyNames', 'as', 'fontFamilyNames'),
        prop('osType', 'u'),
        prop('isOsCertified', 'b'),
        prop('isOsEmulated', 'b'),
    ],
    'org.norvu.plinth.SIM': [
        signal_('preferredDataTransferSimChanged', 'aa{sv}', 'updatedSimCards',
                [(TYPE_NAME, 'QVariantMapList')]),
        signal_('preferredVoiceCallSimChanged', 'aa{sv}', 'updatedSimCards',
                [(TYPE_NAME, 'QVariantMapList')]),
        signal_('simCardsEnabledChanged', 'aa{sv}', 'updatedSimCards',
                [(TYPE_NAME, 'QVariantMapList')]),
        method('getSimCardsInfo', 'aa{sv}', 'simCardsInfo', [(TYPE_NAME, 'QVariantMapList')]),
    ],
    'org.norvu.plinth.Storages': [
        signal_('externalStorageChanged', 'a{sv}', 'updatedStorage',
                [(TYPE_NAME, 'QVariantMap'), DEPRECATED]),
        signal_('externalDriveChanged', 'a{sv}', 'externalDriveInfo', [(TYPE_NAME, 'QVariantMap')]),
        method('getExternalStorageInfo', 'a{sv}', 'externalStorageInfo',
               [(TYPE_NAME, 'QVariantMap'), DEPRECATED]),
        method('getInternalStorageInfo', 'a{sv}', 'storageInfo', [(TYPE_NAME, 'QVariantMap')]),
        method('getInternalUserPartitionInfo', 'a{sv}', 'userPartitionInfo',
               [(TYPE_NAME, 'QVariantMap')]),
        method('getExternalStorageDrivesInfo', 'aa{sv}', 'externalDrivesInfo',
               [(TYPE_NAME, 'QVariantMapList')]),
        method('getSystemStorageInfo', 'a{sv}', 'systemStorageInfo', [(TYPE_NAME, 'QVariantMap')]),
        method('getUsersQuotaInfo', 'a{sa{sv}}', 'usersQuota', [(TYPE_NAME, 'QuotaInfoMap')]),
    ],
}


def parse_interface(xml, name):
    """The members of one interface element, in document order."""
    root = ET.fromstring(xml)
    found = [i for i in root.findall('interface') if i.get('name') == name]
    if len(found) != 1:
        raise AssertionError('interface %s appears %d times' % (name, len(found)))
    members = []
    for element in found[0]:
        if element.tag == 'property':
            members.append(('property', element.get('name'), element.get('type'), element.get('access')))
            continue
        args = tuple((a.get('name'), a.get('type'), a.get('direction', 'in' if element.tag == 'method' else 'out'))
                     for a in element.findall('arg'))
        annotations = tuple((a.get('name'), a.get('value')) for a in element.findall('annotation'))
        members.append((element.tag, element.get('name'), args, annotations))
    return members


class SpineTest(plinthtest.DaemonTestCase):

    def introspect(self, path):
        obj = self.bus.get_object(BUS_NAME, path, introspect=False)
        return obj.Introspect(dbus_interface='org.freedesktop.DBus.Introspectable')

    def test_name_owned_and_interfaces_exact(self):
        self.start_daemon()
        self.assertTrue(self.bus.name_has_owner(BUS_NAME))
        for path, iface in plinthtest.OBJECTS:
            with self.subTest(interface=iface):
                self.assertEqual(parse_interface(self.introspect(path), iface), EXPECTED[iface])

    def test_base_path_lists_the_three_objects(self):
        self.start_daemon()
        root = ET.fromstring(self.introspect('/org/norvu/plinth'))
        self.assertEqual(sorted(n.get('name') for n in root.findall('node')), ['Features', 'SIM', 'Storages'])

    def test_properties_are_read_only(self):
        self.start_daemon()
        props = self.proxy(FEATURES_PATH, 'org.freedesktop.DBus.Properties')
        value = props.Get('org.norvu.plinth.Features', 'osType')
        self.assertIsInstance(value, dbus.UInt32)
        for name in ('isOsCertified', 'isOsEmulated'):
            self.assertIsInstance(props.Get('org.norvu.plinth.Features', name), dbus.Boolean)
        with self.assertRaises(dbus.exceptions.DBusException):
            props.Set('org.norvu.plinth.Features', 'osType', dbus.UInt32(1))
        self.assertEqual(props.Get('org.norvu.plinth.Features', 'osType'), value)

    def test_second_daemon_exits_with_status_1(self):
        first = self.start_daemon()
        second = self.start_daemon(wait=False)
        self.assertEqual(second.wait(30), 1)
        self.assertIn('FeaturesService registration failed (already running or DBus not found), exiting',
                      second.output())
        # The first one is untouched and still serves.
        self.assertIsNone(first.process.poll())
        self.assertEqual(self.features().getTimeZone(), self.features().getTimeZone())

    def test_no_bus_exits_with_status_1(self):
        daemon = self.start_daemon(wait=False, env={
            'DBUS_SYSTEM_BUS_ADDRESS': 'unix:path=' + os.path.join(self.workdir, 'no-such-socket')})
        self.assertEqual(daemon.wait(30), 1)
        out = daemon.output()
        self.assertIn('ERROR: No DBus system bus found!', out)
        self.assertIn('FeaturesService registration failed (already running or DBus not found), exiting', out)

    def test_sigterm_exits_0_and_releases_everything(self):
        daemon = self.start_daemon()
        watcher = self.bus.get_object('org.freedesktop.DBus', '/org/freedesktop/DBus')
        owner = watcher.GetNameOwner(BUS_NAME, dbus_interface='org.freedesktop.DBus')
        self.assertEqual(daemon.terminate(), 0)
        self.assertFalse(self.bus.name_has_owner(BUS_NAME))
        self.assertFalse(self.bus.name_has_owner(owner))

    def test_debug_switch(self):
        # Only emptiness counts: "0" switches debug output on.
        for value, debug in ((None, False), ('', False), ('0', True), ('1', True)):
            with self.subTest(PLINTHD_DEBUG=value):
                daemon = plinthtest.Daemon(self.workdir)
                daemon.env.pop('PLINTHD_DEBUG', None)
                daemon.env.pop('QT_LOGGING_RULES', None)
                if value is not None:
                    daemon.env['PLINTHD_DEBUG'] = value
                self.addCleanup(daemon.close)
                daemon.start().wait_ready()
                self.assertEqual(daemon.terminate(), 0)
                out = daemon.output()
                self.assertEqual('Plinth daemon application created' in out, debug, out)
                self.assertEqual('plinthd: exit' in out, debug, out)

    def test_qt_rules_still_apply_without_the_switch(self):
        daemon = plinthtest.Daemon(self.workdir)
        daemon.env.pop('PLINTHD_DEBUG', None)
        daemon.env['QT_LOGGING_RULES'] = 'plinthd.debug=true'
        self.addCleanup(daemon.close)
        daemon.start().wait_ready()
        self.assertEqual(daemon.terminate(), 0)
        self.assertIn('Plinth daemon application created', daemon.output())

    def test_journal_gets_each_line_with_its_priority(self):
        daemon = self.start_daemon(env={'PLINTHD_DEBUG': '1'}, journal_stream=True)
        second = self.start_daemon(wait=False, journal_stream=True)
        self.assertEqual(second.wait(30), 1)
        self.assertEqual(daemon.terminate(), 0)
        lines = daemon.output().splitlines()
        self.assertIn('<7>plinthd: Plinth daemon application created', lines)
        self.assertIn('<7>plinthd: exit', lines)
        for line in lines + second.output().splitlines():
            self.assertRegex(line, r'^<[2-7]>')
        self.assertIn('<3>FeaturesService registration failed (already running or DBus not found), exiting',
                      second.output().splitlines())

    def test_without_the_journal_lines_are_as_qt_writes_them(self):
        # A stream systemd named for another process (the variable is
        # inherited) is not this one's standard error.
        daemon = self.start_daemon(env={'PLINTHD_DEBUG': '1', 'JOURNAL_STREAM': '1:1'})
        self.assertEqual(daemon.terminate(), 0)
        self.assertIn('plinthd: Plinth daemon application created\n', daemon.output())
        self.assertNotRegex(daemon.output(), re.compile(r'^<\d>', re.M))

    def test_help_and_version_answer_without_serving(self):
        # The bus named here does not exist: a daemon that went on to serve
        # would fail with status 1.
        env = dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS='unix:path=' + os.path.join(self.workdir, 'no-such-socket'))
        for args, first_line in ((['--help'], 'Usage: plinthd [--help | --version]'),
                                 (['-h'], 'Usage: plinthd [--help | --version]'),
                                 (['--version'], 'plinthd ')):
            with self.subTest(args=args):
                done = subprocess.run([plinthtest.plinthd_binary()] + args, stdout=subprocess.PIPE,
                                      stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, universal_newlines=True,
                                      env=env, timeout=30)
                self.assertEqual((done.returncode, done.stderr), (0, ''))
                self.assertTrue(done.stdout.startswith(first_line), done.stdout)
        self.assertFalse(self.bus.name_has_owner(BUS_NAME))

    def test_sigterm_during_start_up_is_not_lost(self):
        # The name is owned as soon as the first object registers; a SIGTERM
        # from then on waits in the socket pair until the event loop reads it.
        daemon = self.start_daemon(wait=False)
        plinthtest.wait_until(lambda: self.bus.name_has_owner(BUS_NAME) or daemon.process.poll() is not None,
                              what='the name to be owned')
        daemon.process.send_signal(signal.SIGTERM)
        self.assertEqual(daemon.wait(30), 0)


if __name__ == '__main__':
    plinthtest.main()
