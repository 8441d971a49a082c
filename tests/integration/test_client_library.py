#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The client library as an application developer gets it.

The library is installed with `cmake --install` into a scratch folder; a
program (libraryclient/readall.cpp) is compiled against it with nothing but
the flags `pkg-config --cflags --libs plinth-qt5` gives, and run against a
stand-in with known answers and against the real daemon. It reads every value
of the three objects through the library's typed classes; each one must be
what the bus carried, read as the interface reference says.
"""

import glob
import os
import shutil
import subprocess
import tempfile
import unittest

import dbus

import plinthtest
import standin
from plinthtest import FEATURES_IFACE, FEATURES_PATH

BUILD_DIR = os.environ.get('PLINTHD_BUILD_DIR', '')
SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'libraryclient', 'readall.cpp')
INT64_MAX = 2 ** 63 - 1
# The program has to be built as the library was.
SANITIZER_FLAGS = {'': [], 'address': ['-fsanitize=address,undefined'], 'thread': ['-fsanitize=thread']}
# Qt's own leaks at exit, as for plinthctl (see the file).
CLIENT_ENV = plinthtest.CLIENT_SANITIZER_ENV

STORAGE_METHODS = {'internal': 'getInternalStorageInfo', 'user': 'getInternalUserPartitionInfo',
                   'system': 'getSystemStorageInfo', 'external': 'getExternalStorageInfo'}
FOLDERS = ('Pictures', 'Videos', 'Music', 'Documents', 'Downloads')
CATEGORIES = ('Apps', 'DebugInfo', 'SDK', 'CoreDumps', 'SystemLogs')


def text(value):
    if isinstance(value, (bool, dbus.Boolean)):
        return 'true' if value else 'false'
    if isinstance(value, (list, dbus.Array)):
        return ','.join(text(v) for v in value)
    return str(value)


def unsigned_size(answer, key):
    """A size as the library reads it unsigned: a negative signed one is 0."""
    return max(int(answer.get(key, 0)), 0)


def signed_size(answer, key):
    return min(int(answer.get(key, 0)), INT64_MAX)


def expected(bus):
    """What the program must print, from the answers a plain D-Bus client gets."""
    def proxy(path, iface):
        return dbus.Interface(bus.get_object(plinthtest.BUS_NAME, path, introspect=False), iface)
    lines = {}
    features = proxy(FEATURES_PATH, FEATURES_IFACE)
    methods, properties = standin.published(FEATURES_IFACE)
    for method in methods:
        lines['features.' + method] = getattr(features, method)()
    all_properties = proxy(FEATURES_PATH, 'org.freedesktop.DBus.Properties').GetAll(FEATURES_IFACE)
    for name in properties:
        lines['features.' + name] = all_properties[name]

    cards = proxy(plinthtest.SIM_PATH, plinthtest.SIM_IFACE).getSimCardsInfo()
    lines['sim.count'] = len(cards)
    for i, card in enumerate(cards):
        lines.update({'sim.%d.name' % i: card.get('simName', ''), 'sim.%d.operatorName' % i: card.get('operatorName', ''),
                      'sim.%d.enabled' % i: bool(card.get('enabled', False)),
                      'sim.%d.preferredForData' % i: bool(card.get('preferredDataTransfer', False)),
                      'sim.%d.preferredForVoice' % i: bool(card.get('preferredVoiceCall', False))})

    storages = proxy(plinthtest.STORAGES_PATH, plinthtest.STORAGES_IFACE)
    answers = {part: getattr(storages, method)(timeout=300) for part, method in STORAGE_METHODS.items()}
    for part, answer in answers.items():
        for key in ('bytesTotal', 'bytesUsed', 'bytesAvailable'):
            lines['%s.%s' % (part, key)] = unsigned_size(answer, key)
    for part in ('internal', 'user', 'external'):
        lines[part + '.deviceLabel'] = answers[part].get('deviceLabel', '')
    for part in ('internal', 'user'):
        lines[part + '.filesystemType'] = answers[part].get('filesystemType', '')
    user = answers['user']
    lines['user.hasBreakdown'] = 'bytesUsedPictures' in user
    for folder in FOLDERS:
        lines['user.' + folder] = unsigned_size(user, 'bytesUsed' + folder)
    lines['user.other'] = unsigned_size(user, 'bytesUsedOther')
    lines['user.hasOtherUsers'] = 'bytesUsedOtherUsers' in user
    lines['user.otherUsers'] = unsigned_size(user, 'bytesUsedOtherUsers')
    system = answers['system']
    for category in CATEGORIES:
        lines['system.' + category] = unsigned_size(system, 'bytesUsed' + category)
    # Wrapped around: the categories add up to more than the used space.
    wrapped = int(system.get('bytesUsedOther', 0)) > INT64_MAX
    lines['system.categoriesExceedUsed'] = wrapped
    lines['system.other'] = 0 if wrapped else unsigned_size(system, 'bytesUsedOther')
    external = answers['external']
    lines['external.mounted'] = bool(external.get('mounted', False))
    lines['external.countMountedPartitions'] = int(external.get('countMountedPartitions', 0))

    drives = storages.getExternalStorageDrivesInfo()
    lines['drives.count'] = len(drives)
    for i, drive in enumerate(drives):
        prefix = 'drives.%d.' % i
        partitions = drive.get('partitionsInfo', [])
        lines.update({prefix + 'name': drive.get('driveName', ''), prefix + 'connection': drive.get('driveType', ''),
                      prefix + 'knownConnection': drive.get('driveType', '') in ('SD', 'USB', 'IEEE1394'),
                      prefix + 'partitions': len(partitions)})
        for j, partition in enumerate(partitions):
            inner = prefix + '%d.' % j
            lines.update({inner + 'name': partition.get('partitionName', ''),
                          inner + 'mountPoint': partition.get('mountPoint', ''),
                          inner + 'mounted': bool(partition.get('mountPoint', '')),
                          inner + 'partitionLabel': partition.get('partitionLabel', ''),
                          inner + 'driveName': partition.get('driveName', '')})
            for key in ('bytesTotal', 'bytesUsed', 'bytesAvailable'):
                lines[inner + key] = signed_size(partition, key)

    quotas = storages.getUsersQuotaInfo(timeout=300)
    lines['quota.users'] = sorted(quotas)
    for uid, quota in quotas.items():
        lines.update({'quota.%s.isSet' % uid: bool(quota.get('quotaIsSet', False)),
                      'quota.%s.limit' % uid: unsigned_size(quota, 'quotaLimit'),
                      'quota.%s.available' % uid: unsigned_size(quota, 'quotaAvailable')})
    return {name: text(value) for name, value in lines.items()}


class InstalledLibraryTest(plinthtest.DaemonTestCase):

    @classmethod
    def setUpClass(cls):
        compiler = shutil.which('c++')
        if not compiler:
            raise unittest.SkipTest('needs a C++ compiler')
        cls.workdir_class = tempfile.mkdtemp(prefix='plinthclient.')
        destdir = os.path.join(cls.workdir_class, 'root')
        subprocess.run(['cmake', '--install', BUILD_DIR], env=dict(os.environ, DESTDIR=destdir),
                       stdout=subprocess.DEVNULL, check=True)
        found = glob.glob(os.path.join(destdir, '**', 'pkgconfig', 'plinth-qt5.pc'), recursive=True)
        if len(found) != 1:
            raise AssertionError('the install has %d plinth-qt5.pc' % len(found))
        env = dict(os.environ, PKG_CONFIG_PATH=os.path.dirname(found[0]))

        def pkg_config(*args):
            return subprocess.run(['pkg-config'] + list(args) + ['plinth-qt5'], env=env, stdout=subprocess.PIPE,
                                  universal_newlines=True, check=True).stdout.split()
        cls.flags = pkg_config('--cflags', '--libs')
        cls.libdir = pkg_config('--variable=libdir')[0]
        cls.prefix = pkg_config('--variable=prefix')[0]
        cls.program = os.path.join(cls.workdir_class, 'readall')
        cls.sanitizer_flags = SANITIZER_FLAGS[os.environ.get('PLINTHD_SANITIZE', '')]
        # Qt wants position-independent code from the programs that use it.
        subprocess.run([compiler, '-std=c++17', '-fPIC', SOURCE, '-o', cls.program] + cls.sanitizer_flags + cls.flags,
                       check=True)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.workdir_class, ignore_errors=True)

    def run_program(self):
        result = subprocess.run([self.program], env=dict(os.environ, LD_LIBRARY_PATH=self.libdir, **CLIENT_ENV),
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                universal_newlines=True, timeout=300)
        self.assertEqual(result.returncode, 0, result.stderr)
        printed = dict(line.split('\t', 1) for line in result.stdout.splitlines())
        self.assertEqual(len(printed), len(result.stdout.splitlines()), 'a value printed twice')
        return printed

    def compare(self, printed, wanted, live=()):
        self.assertEqual(sorted(printed), sorted(wanted))
        for name in wanted:
            if name in live:
                # Read again by the daemon on every call: a number, not the same one.
                self.assertRegex(printed[name], r'^\d+$', name)
            elif name.endswith('CameraResolution'):
                self.assertEqual(float(printed[name]), float(wanted[name]), name)
            else:
                self.assertEqual(printed[name], wanted[name], name)

    def test_flags_are_pkg_config_s(self):
        self.assertIn('-lplinth-qt5', self.flags)
        self.assertTrue(os.path.exists(os.path.join(self.libdir, 'libplinth-qt5.so.1')))
        self.assertTrue(os.path.realpath(self.libdir).startswith(os.path.realpath(self.workdir_class)))

    def test_every_value_of_a_stand_in(self):
        standin.start(self)
        printed = self.run_program()
        self.compare(printed, expected(self.bus))
        # The stand-in's answers that the typed reading decides on.
        self.assertEqual(printed['system.other'], '0')
        self.assertEqual(printed['system.categoriesExceedUsed'], 'true')
        self.assertEqual(printed['system.SDK'], str(standin.BEYOND_DOUBLE))
        self.assertEqual(printed['user.otherUsers'], '0')
        self.assertEqual(printed['internal.bytesTotal'], str(standin.MAX_T))
        self.assertEqual(printed['drives.0.0.name'], 'CARD')
        self.assertEqual(printed['drives.0.0.bytesTotal'], '2048')
        self.assertEqual(printed['sim.0.operatorName'], 'Tele One')
        self.assertEqual(printed['quota.100000.limit'], str(standin.MAX_T))
        self.assertEqual(printed['features.getMaxCpuCoresClockSpeed'], '1804,2016')
        self.assertEqual(printed['features.osType'], '2')

    def test_installed_examples_build_with_the_cmake_package(self):
        # The C++ examples as installed, built on their own: find_package(PlinthQt5).
        examples = glob.glob(os.path.join(self.prefix, 'share', 'doc', 'plinthd', 'examples', 'cpp'))
        self.assertEqual(len(examples), 1)
        build = os.path.join(self.workdir, 'examples')
        configured = subprocess.run(['cmake', '-S', examples[0], '-B', build, '-DCMAKE_PREFIX_PATH=' + self.prefix,
                                     '-DCMAKE_CXX_FLAGS=' + ' '.join(self.sanitizer_flags)],
                                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT, universal_newlines=True)
        self.assertEqual(configured.returncode, 0, configured.stdout)
        built = subprocess.run(['cmake', '--build', build, '--target', 'plinth-example-features'],
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, universal_newlines=True)
        self.assertEqual(built.returncode, 0, built.stdout)
        standin.start(self)
        result = subprocess.run([os.path.join(build, 'plinth-example-features')], stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True,
                                env=dict(os.environ, LD_LIBRARY_PATH=self.libdir, **CLIENT_ENV), timeout=60)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout.splitlines()[0], 'Processor: Test CPU, 8 cores, up to 2016 MHz')
        self.assertIn('  SIM1: Tele One, data', result.stdout.splitlines())

    def test_every_value_of_the_daemon(self):
        self.start_daemon()
        printed = self.run_program()
        live = {name for name in printed
                if name == 'features.getRamFreeSize' or name.split('.')[-1] in ('bytesUsed', 'bytesAvailable', 'other')
                or name.startswith('system.') and name != 'system.categoriesExceedUsed'}
        self.compare(printed, expected(self.bus), live)


if __name__ == '__main__':
    plinthtest.main()
