# SPDX-License-Identifier: BSD-3-Clause
"""A stand-in for plinthd with known answers, for tests of its clients.

A python-dbusmock peer owns the daemon's name and serves its three objects,
answering with values chosen to exercise a client: 64-bit sizes beyond what a
double holds, a signed size, a wrapped-around figure, SIM cards, drives and
quotas. start() returns the mock interfaces, by object path, that emit
signals:

    mocks = standin.start(self)     # in a plinthtest.DaemonTestCase
    mocks[FEATURES_PATH].EmitSignal(FEATURES_IFACE, 'cameraEnabledChanged', 'b', [True])
"""

import os
import xml.etree.ElementTree as ET

import dbus
import dbusmock

from plinthtest import BUS_NAME, FEATURES_IFACE, FEATURES_PATH, SIM_IFACE, SIM_PATH, STORAGES_IFACE, STORAGES_PATH

MAX_T = 2 ** 64 - 1
BEYOND_DOUBLE = 2 ** 53 + 1
# 4096 less than nothing, as an unsigned 64-bit figure.
WRAPPED = 2 ** 64 - 4096

# The answers: D-Bus signature and the Python expression it returns.
FEATURE_ANSWERS = {
    'hasGNSS': ('b', 'True'),
    'hasNFC': ('b', 'False'),
    'hasBluetooth': ('b', 'True'),
    'hasWlan': ('b', 'True'),
    'getMaxCpuClockSpeed': ('u', 'dbus.UInt32(2016)'),
    'getNumberCpuCores': ('u', 'dbus.UInt32(8)'),
    'getCpuModel': ('s', '"Test CPU"'),
    'getMaxCpuCoresClockSpeed': ('av', '[dbus.UInt32(1804, variant_level=1), dbus.UInt32(2016, variant_level=1)]'),
    'getBatteryChargePercentage': ('u', 'dbus.UInt32(87)'),
    'getMainCameraResolution': ('d', '12.2'),
    'getFrontalCameraResolution': ('d', '0.0'),
    'getRamTotalSize': ('t', 'dbus.UInt64(4 * 1024 ** 3)'),
    'getRamFreeSize': ('t', 'dbus.UInt64(%d)' % BEYOND_DOUBLE),
    'getScreenResolution': ('s', '"1080x2400"'),
    'getOsVersion': ('s', '"5.1.0.2"'),
    'getDeviceModel': ('s', '"Model X"'),
    'getSerialNumber': ('s', '""'),
    'getLocale': ('s', '"de_DE.UTF-8"'),
    'getLocales': ('as', '["de_DE.UTF-8", "en_GB.UTF-8"]'),
    'getTimeZone': ('s', '"CET"'),
    'getFontNames': ('as', '["/usr/share/fonts/a.ttf", "/usr/share/fonts/b.ttf", "/usr/share/fonts/c.ttf"]'),
    'getFontFamilyNames': ('as', '["Alpha", "Beta"]'),
}
SIM_CARDS = ('[{"enabled": True, "operatorName": "Tele One", "preferredDataTransfer": True, '
             '"preferredVoiceCall": False, "simName": "SIM1"}]')
STORAGE_ANSWERS = {
    'getInternalStorageInfo': ('a{sv}', '{"bytesTotal": dbus.UInt64(%d), "bytesUsed": dbus.UInt64(0), '
                                        '"bytesAvailable": dbus.UInt64(3 * 1024 ** 3), "filesystemType": "ext4", '
                                        '"deviceLabel": "Internal storage"}' % MAX_T),
    'getInternalUserPartitionInfo': ('a{sv}', '{"bytesUsedOtherUsers": dbus.Int64(-1024), '
                                              '"bytesUsedPictures": dbus.UInt64(1536)}'),
    'getSystemStorageInfo': ('a{sv}', '{"bytesUsedSDK": dbus.UInt64(%d), "bytesUsedOther": dbus.UInt64(%d)}'
                                      % (BEYOND_DOUBLE, WRAPPED)),
    'getExternalStorageInfo': ('a{sv}', '{"deviceLabel": "external storage", "mounted": False, '
                                        '"countMountedPartitions": dbus.UInt32(0)}'),
    'getExternalStorageDrivesInfo': ('aa{sv}', '[{"driveName": "Acme Card", "driveType": "SD", "partitionsInfo": '
                                               'dbus.Array([dbus.Dictionary({"partitionName": "CARD", '
                                               '"bytesTotal": dbus.Int64(2048)}, signature="sv")], '
                                               'signature="a{sv}")}]'),
    'getUsersQuotaInfo': ('a{sa{sv}}', '{"100000": {"quotaIsSet": True, "quotaLimit": dbus.UInt64(%d), '
                                       '"quotaAvailable": dbus.UInt64(0)}}' % MAX_T),
}


def published(iface):
    """The methods and properties of a published interface description."""
    path = os.path.join(os.environ['PLINTHD_SOURCE_DIR'], 'dbus', iface + '.xml')
    root = ET.parse(path).getroot()
    element = [i for i in root.findall('interface') if i.get('name') == iface][0]
    methods = {m.get('name'): m.find('arg').get('name') for m in element.findall('method')}
    properties = [p.get('name') for p in element.findall('property')]
    return methods, properties


PROPERTIES = {'osType': dbus.UInt32(2), 'isOsCertified': True, 'isOsEmulated': False}


def start(test):
    """Starts the stand-in for a plinthtest.DaemonTestCase; the mocks by path."""
    _, features = test.start_mock(BUS_NAME, FEATURES_PATH, FEATURES_IFACE)
    methods, _ = published(FEATURES_IFACE)
    test.assertEqual(sorted(methods), sorted(FEATURE_ANSWERS))
    for name, (sig, code) in FEATURE_ANSWERS.items():
        features.AddMethod(FEATURES_IFACE, name, '', sig, 'ret = ' + code)
    features.AddProperties(FEATURES_IFACE, PROPERTIES)
    features.AddObject(SIM_PATH, SIM_IFACE, {}, [('getSimCardsInfo', '', 'aa{sv}', 'ret = ' + SIM_CARDS)])
    features.AddObject(STORAGES_PATH, STORAGES_IFACE, {},
                       [(name, '', sig, 'ret = ' + code) for name, (sig, code) in STORAGE_ANSWERS.items()])
    return {path: dbus.Interface(test.bus.get_object(BUS_NAME, path), dbusmock.MOCK_IFACE)
            for path in (FEATURES_PATH, SIM_PATH, STORAGES_PATH)}
