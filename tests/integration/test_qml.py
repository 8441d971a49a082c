#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The QML module org.norvu.plinth against the real daemon.

Each class runs one file of Qt Quick tests (tests/qml/tst_*.qml) with the
suite's runner (tests/qml/tst_qml), offscreen, and is one CTest test (named
on the command line). While the runner runs, this script serves on the
test's private bus the harness those tests call (tests/qml/testharness.h):
plugging and pulling recorded drives, mounting them, changing the SIM cards
of a mocked oFono, writing files on the user partition, holding the daemon's
directory walks, stopping and starting the daemon.

The device is userdevice.py's (alice's files on a 16 MiB user partition),
with the drives of storagebench.py and one modem with its card (SIM1); the
daemon's walks go on while the file PLINTHD_TEST_HOLD_WALKS names exists (a
seam of the test build). The Features test adds cameras of the test camera
plugin and a policy manager whose announcements the daemon passes on
(cameras.py).
"""

import os
import shutil
import subprocess
import sys
import tempfile
import time

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

import cameras
import plinthtest
import simtest
import storagebench
import userdevice

SOURCE_DIR = os.environ.get('PLINTHD_SOURCE_DIR', os.path.join(os.path.dirname(__file__), '..', '..'))
BUILD_DIR = os.environ.get('PLINTHD_BUILD_DIR', '')
RUNNER = os.path.join(BUILD_DIR, 'tests', 'qml', 'tst_qml')
QML_TESTS = os.path.join(SOURCE_DIR, 'tests', 'qml')
HARNESS = 'org.norvu.plinth.test.Harness'
TIME_FACTOR = int(os.environ.get('PLINTHD_TEST_TIME_FACTOR', '1'))
RUNNER_SECONDS = 120 * TIME_FACTOR


def features_answers(bus):
    """Every Features answer as the QML singleton names it."""
    features = dbus.Interface(bus.get_object(plinthtest.BUS_NAME, plinthtest.FEATURES_PATH, introspect=False),
                              plinthtest.FEATURES_IFACE)
    answers = {}
    for method in ('hasGNSS', 'hasNFC', 'hasBluetooth', 'hasWlan'):
        answers[method] = features.get_dbus_method(method)()
    for method in ('MaxCpuClockSpeed', 'NumberCpuCores', 'CpuModel', 'BatteryChargePercentage',
                   'MainCameraResolution', 'FrontalCameraResolution', 'RamTotalSize', 'RamFreeSize',
                   'ScreenResolution', 'OsVersion', 'DeviceModel', 'SerialNumber', 'Locale', 'TimeZone'):
        answers[method[0].lower() + method[1:]] = features.get_dbus_method('get' + method)()
    for method in ('Locales', 'FontNames', 'FontFamilyNames'):
        answers[method[0].lower() + method[1:]] = dbus.Array(features.get_dbus_method('get' + method)(),
                                                             signature='s')
    speeds = features.getMaxCpuCoresClockSpeed()
    answers['maxCpuCoresClockSpeed'] = dbus.Array([dbus.UInt32(s) for s in speeds], signature='u')
    properties = dbus.Interface(bus.get_object(plinthtest.BUS_NAME, plinthtest.FEATURES_PATH, introspect=False),
                                dbus.PROPERTIES_IFACE).GetAll(plinthtest.FEATURES_IFACE)
    answers.update(osType=properties['osType'], osCertified=properties['isOsCertified'],
                   osEmulated=properties['isOsEmulated'])
    return dbus.Dictionary(answers, signature='sv')


class Harness(dbus.service.Object):
    """What the QML tests ask of the world, served on the test's bus."""

    # python-dbusmock, loaded by the bench, replaces dbus-python's method
    # lookup with one that reads these first; empty, it falls back to
    # dbus-python's own for this object.
    methods = {}
    interface = HARNESS

    def __init__(self, test):
        self.test = test
        self.bus = dbus.bus.BusConnection(test.system_bus.address, mainloop=dbus.mainloop.glib.DBusGMainLoop())
        super().__init__(self.bus, '/')
        self.name = dbus.service.BusName(HARNESS, self.bus, do_not_queue=True)

    def close(self):
        self.remove_from_connection()
        del self.name
        self.bus.close()

    @dbus.service.method(HARNESS, out_signature='a{sv}')
    def FeaturesAnswers(self):
        return features_answers(self.test.bus)

    @dbus.service.method(HARNESS, out_signature='a{sv}')
    def UserPartition(self):
        return self.test.storages().getInternalUserPartitionInfo(timeout=60 * TIME_FACTOR)

    @dbus.service.method(HARNESS, out_signature='b')
    def DaemonRunning(self):
        return self.test.bus.name_has_owner(plinthtest.BUS_NAME)

    @dbus.service.method(HARNESS, out_signature='s')
    def DaemonOwner(self):
        return self.test.bus.get_name_owner(plinthtest.BUS_NAME)

    @dbus.service.method(HARNESS)
    def PlugDrive(self, name):
        self.test.plug(str(name))

    @dbus.service.method(HARNESS)
    def UnplugDrive(self, name):
        self.test.unplug(str(name))

    @dbus.service.method(HARNESS, out_signature='s')
    def Mount(self, device, size_bytes):
        return self.test.mount(str(device), int(size_bytes))

    @dbus.service.method(HARNESS)
    def AddPicture(self, name, size_bytes):
        path = '/home/alice/Pictures/' + str(name)
        self.test.in_namespace('sh', '-c', 'head -c %d /dev/zero > %s && chown %d:%d %s'
                               % (int(size_bytes), path, userdevice.ALICE, userdevice.ALICE, path))

    @dbus.service.method(HARNESS, out_signature='s')
    def AddModem(self, name):
        return self.test.ofono.add_modem(str(name))

    @dbus.service.method(HARNESS)
    def PullCard(self, modem):
        self.test.ofono.pull_card(str(modem))

    @dbus.service.method(HARNESS)
    def SetOperatorName(self, modem, name):
        self.test.ofono.set_operator_name(str(modem), str(name))

    @dbus.service.method(HARNESS)
    def AnnounceCameraPolicy(self):
        """The policy manager announces a change of the camera policy, until
        the daemon passes it on as cameraEnabledChanged (at its start it may
        still be setting up its watch)."""
        recorder = cameras.SignalRecorder(self.test.system_bus.address, 'cameraEnabledChanged',
                                          plinthtest.FEATURES_IFACE)
        try:
            for _ in range(40):
                self.test.policy.EmitSignal(cameras.POLICY_IFACE, cameras.POLICY_SIGNAL, '', [])
                try:
                    recorder.wait_for(1, timeout=0.5 * TIME_FACTOR)
                    return
                except AssertionError:
                    pass
            raise AssertionError('the daemon never announced cameraEnabledChanged')
        finally:
            recorder.close()

    @dbus.service.method(HARNESS)
    def HoldWalks(self):
        os.unlink(self.test.walks_go)

    @dbus.service.method(HARNESS)
    def ReleaseWalks(self):
        open(self.test.walks_go, 'w').close()

    @dbus.service.method(HARNESS)
    def StopDaemon(self):
        self.test.stop_storage_daemon()

    @dbus.service.method(HARNESS)
    def StartDaemon(self):
        self.test.start_storage_daemon_again()


def run_qml(test, name):
    """Runs tests/qml/tst_NAME.qml while serving the harness; fails with the
    runner's output when a test function failed."""
    if not os.access(RUNNER, os.X_OK):
        test.fail('%s is not built' % RUNNER)
    harness = Harness(test)
    test.addCleanup(harness.close)
    runtime = tempfile.mkdtemp(prefix='runtime.', dir=test.workdir)
    env = dict(os.environ, **plinthtest.CLIENT_SANITIZER_ENV)
    # The runner is no client of the recorded devices.
    env.pop('LD_PRELOAD', None)
    env.update(QML2_IMPORT_PATH=os.path.join(BUILD_DIR, 'qml'), QT_QPA_PLATFORM='offscreen',
               QT_QUICK_BACKEND='software', QSG_RENDER_LOOP='basic', XDG_RUNTIME_DIR=runtime,
               PLINTHD_TEST_TIME_FACTOR=str(TIME_FACTOR))
    log_path = os.path.join(test.workdir, 'tst_%s.log' % name)
    with open(log_path, 'w') as log:
        process = subprocess.Popen([RUNNER, '-input', os.path.join(QML_TESTS, 'tst_%s.qml' % name)],
                                   stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT, env=env)
    test.addCleanup(process.kill)
    # The harness answers from this loop while the runner waits for it.
    context = GLib.MainContext.default()
    deadline = time.monotonic() + RUNNER_SECONDS
    while process.poll() is None and time.monotonic() < deadline:
        context.iteration(False)
        time.sleep(0.005)
    if process.poll() is None:
        process.kill()
    status = process.wait()
    with open(log_path, errors='replace') as f:
        output = f.read()
    sys.stdout.write(output)
    test.assertEqual(status, 0, 'tst_%s.qml failed (output above)' % name)
    test.assertNotIn('FAIL!', output)
    test.assertRegex(output, r'Totals: [1-9]\d* passed, 0 failed, 0 skipped')


class QmlTestCase(storagebench.StorageTestCase, simtest.SimTestCase):

    # The daemon's cameras (cameras.CameraRig), with a policy manager on the bus.
    cameras = None

    def setUp(self):
        super().setUp()
        self.walks_go = os.path.join(self.workdir, 'walks-go')
        open(self.walks_go, 'w').close()
        self.ofono = self.start_ofono()
        self.first_modem = self.ofono.add_modem('ril_0')
        device = userdevice.prepare(self)
        env = dict(device.pop('env'), DCONF_PROFILE=simtest.DATABASE, PLINTHD_TEST_HOLD_WALKS=self.walks_go)
        device['binds']['/etc/dconf'] = self.dconf
        if self.cameras is not None:
            _, self.policy = self.start_mock(cameras.POLICY_NAME, cameras.POLICY_PATH, cameras.POLICY_IFACE)
            rig = cameras.CameraRig(self.workdir, self.cameras)
            env.update(rig.env())
            device['setup'] = rig.setup() + device['setup']
        self.start_storage_daemon(env=env, **device)

    def run_qml(self, name):
        run_qml(self, name)


class FeaturesTest(QmlTestCase):
    cameras = 'back:4032x3024,front:1920x1080'

    def test_features(self):
        self.run_qml('features')


class SimCardsTest(QmlTestCase):
    def test_sim_cards(self):
        self.run_qml('simcards')


class DrivesTest(QmlTestCase):
    def test_drives(self):
        self.run_qml('drives')


class StorageTest(QmlTestCase):
    def test_storage(self):
        self.run_qml('storage')


class RestartTest(QmlTestCase):
    def test_restart(self):
        self.run_qml('restart')


class DocPagesTest(QmlTestCase):
    def test_doc_pages(self):
        self.run_qml('docpages')


class SceneTest(QmlTestCase):
    """The example pages of docs/examples/qml run with qmlscene, as the docs
    say, against the daemon: they load, and show its answers without a
    single warning."""

    SECONDS = 1.5 * TIME_FACTOR

    def test_pages_run_with_qmlscene(self):
        qmlscene = shutil.which('qmlscene', path='/usr/lib/qt5/bin')
        if not qmlscene:
            self.skipTest('needs qmlscene (Debian: qmlscene)')
        runtime = tempfile.mkdtemp(prefix='runtime.', dir=self.workdir)
        env = dict(os.environ, QML2_IMPORT_PATH=os.path.join(BUILD_DIR, 'qml'), QT_QPA_PLATFORM='offscreen',
                   QT_QUICK_BACKEND='software', QSG_RENDER_LOOP='basic', XDG_RUNTIME_DIR=runtime)
        env.pop('LD_PRELOAD', None)
        for page in ('summary.qml', 'storage.qml'):
            with self.subTest(page=page):
                # Without a GL context shared between windows, which the offscreen
                # platform of GLES builds of Qt (armhf) cannot make, and says so.
                process = subprocess.Popen([qmlscene, '--disable-context-sharing',
                                            os.path.join(SOURCE_DIR, 'docs', 'examples', 'qml', page)],
                                           stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                           stderr=subprocess.STDOUT, universal_newlines=True, env=env)
                self.addCleanup(process.kill)
                # Long enough for every answer to be shown: a warning of a
                # binding would come then.
                try:
                    output = process.communicate(timeout=self.SECONDS)[0]
                    self.fail('qmlscene ended with %d:\n%s' % (process.returncode, output))
                except subprocess.TimeoutExpired:
                    process.terminate()
                    output = process.communicate(timeout=30)[0]
                self.assertEqual(output, '')


class ActivationTest(plinthtest.ActivationTestCase):
    """No daemon runs: the bus starts it for the module's first call, as a
    system bus does."""

    def setUp(self):
        # This script runs under umockdev's preload library (storagebench's
        # main), which the bus would hand down to the daemon it starts; there
        # it has no testbed, and in the AddressSanitizer build it would come
        # before the sanitizer's runtime, which refuses to start then.
        preload = os.environ.pop('LD_PRELOAD', None)
        if preload is not None:
            self.addCleanup(os.environ.__setitem__, 'LD_PRELOAD', preload)
        super().setUp()

    def test_activation(self):
        self.assertFalse(self.bus.name_has_owner(plinthtest.BUS_NAME))
        run_qml(self, 'activation')
        self.assertTrue(self.daemon_pid())


if __name__ == '__main__':
    storagebench.main()
