#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Camera resolutions, camera access changes and the device description file,
through the daemon on a private bus.

The daemon's Qt Multimedia sees only the cameras of the test media service
plugin (tests/cameraplugin); its /etc/plinth is a folder of the test's own; the
policy manager is a python-dbusmock peer."""

import json
import os

import dbus

import cameras
import plinthtest
from cameras import POLICY_IFACE, POLICY_NAME, POLICY_PATH, POLICY_SIGNAL
from plinthtest import FEATURES_IFACE, FEATURES_PATH

BACK_12 = 'back:4032x3024'
FRONT_0 = 'front:640x480'
FRONT_2 = 'front:1920x1080'
WARNINGS = ('No cameras found.', 'Back face cameras is missing', 'Front face cameras is missing')
NOBODY = 65534


class CamerasTest(plinthtest.DaemonTestCase):

    def start(self, rig, **kwargs):
        return self.start_daemon(**rig.daemon_kwargs(**kwargs))

    def recorder(self):
        recorder = cameras.SignalRecorder(self.system_bus.address, 'cameraEnabledChanged',
                                          FEATURES_IFACE, path=FEATURES_PATH)
        self.addCleanup(recorder.close)
        return recorder

    def resolutions(self):
        main = self.features().getMainCameraResolution()
        frontal = self.features().getFrontalCameraResolution()
        self.assertIsInstance(main, dbus.Double)
        self.assertIsInstance(frontal, dbus.Double)
        return float(main), float(frontal)

    def wait_measured(self, rig, *devices, times=1):
        """Until each device has been asked for its resolutions and unloaded again."""
        def done():
            events = rig.events()
            return all(events.count('resolutions ' + d) >= times and events.count('unload ' + d) >= times
                       for d in devices)
        plinthtest.wait_until(done, what='measurement of %s' % ', '.join(devices))
        return rig.events()

    def start_manager(self):
        process, mock = self.start_mock(POLICY_NAME, POLICY_PATH, POLICY_IFACE)
        return process, mock

    def stop_manager(self, process):
        process.terminate()
        process.wait(5)
        plinthtest.wait_until(lambda: not self.bus.name_has_owner(POLICY_NAME), what='the manager to go')

    def announce(self, mock):
        mock.EmitSignal(POLICY_IFACE, POLICY_SIGNAL, '', [])

    def assertSignals(self, recorder, count):
        """Exactly count signals, each carrying true."""
        recorder.wait_for(count)
        recorder.pump(0.3)
        self.assertEqual(len(recorder.received), count, recorder.received)
        for args in recorder.received:
            self.assertEqual(len(args), 1)
            self.assertIsInstance(args[0], dbus.Boolean)
            self.assertIs(bool(args[0]), True)

    def assertCleanExit(self, daemon):
        # A clean exit also lets the AddressSanitizer build check for leaks.
        self.assertEqual(daemon.terminate(), 0, daemon.output())

    def warnings_in(self, daemon):
        out = daemon.output()
        return [w for w in WARNINGS if w in out]

    # Resolutions and warnings

    def test_back_and_front_measured(self):
        rig = cameras.CameraRig(self.workdir, BACK_12 + ',' + FRONT_0,
                                device_file='{"phone": {"name": "Vireo One"}}')
        recorder = self.recorder()
        daemon = self.start(rig)
        events = self.wait_measured(rig, 'back-0', 'front-1')

        self.assertEqual(self.resolutions(), (12.0, 0.0))
        for device in ('back-0', 'front-1'):
            self.assertEqual([e for e in events if e.endswith(' ' + device)],
                             ['load ' + device, 'resolutions ' + device, 'unload ' + device])
        self.assertEqual(self.warnings_in(daemon), [])
        # One notice per measurement, the one at 0 megapixels included.
        self.assertSignals(recorder, 2)
        self.assertEqual(rig.file_json(), {'phone': {'name': 'Vireo One', 'camera': {
            'backResolutions': [12], 'frontResolutions': [0]}}})
        self.assertCleanExit(daemon)

    def test_no_cameras(self):
        for description in ('', 'unspecified:4032x3024'):
            with self.subTest(cameras=description):
                rig = cameras.CameraRig(self.workdir, description, device_file='{"phone": {}}')
                daemon = self.start(rig)
                self.assertEqual(self.resolutions(), (0.0, 0.0))
                self.assertEqual(self.warnings_in(daemon), ['No cameras found.'])
                self.assertEqual(rig.events(), [])
                self.assertEqual(rig.file_json(), {'phone': {}})
                self.assertCleanExit(daemon)

    def test_back_only(self):
        rig = cameras.CameraRig(self.workdir, BACK_12)
        daemon = self.start(rig)
        self.wait_measured(rig, 'back-0')
        self.assertEqual(self.resolutions(), (12.0, 0.0))
        self.assertEqual(self.warnings_in(daemon), ['Front face cameras is missing'])
        self.assertCleanExit(daemon)

    def test_front_only(self):
        rig = cameras.CameraRig(self.workdir, FRONT_2)
        daemon = self.start(rig)
        self.wait_measured(rig, 'front-0')
        self.assertEqual(self.resolutions(), (0.0, 2.0))
        self.assertEqual(self.warnings_in(daemon), ['Back face cameras is missing'])
        self.assertCleanExit(daemon)

    def test_first_camera_of_each_side_and_its_largest_size(self):
        rig = cameras.CameraRig(self.workdir, 'back:640x480,front:320x240+2592x1944+1280x720,back:4032x3024')
        daemon = self.start(rig)
        events = self.wait_measured(rig, 'back-0', 'front-1')
        self.assertEqual(self.resolutions(), (0.0, 5.0))
        self.assertNotIn('load back-2', events)
        self.assertCleanExit(daemon)

    def test_answers_zero_until_measured(self):
        rig = cameras.CameraRig(self.workdir, BACK_12 + ',' + FRONT_2, delay_ms=2000)
        daemon = self.start(rig)
        self.assertEqual(self.resolutions(), (0.0, 0.0))
        self.assertEqual(rig.events(), ['load back-0', 'load front-1'])
        self.wait_measured(rig, 'back-0', 'front-1')
        self.assertEqual(self.resolutions(), (12.0, 2.0))
        self.assertCleanExit(daemon)

    def test_only_the_test_cameras_are_seen(self):
        # With Qt's plugin diagnostics on, the media service loader names every
        # camera backend it loaded: the system's own must not be among them.
        rig = cameras.CameraRig(self.workdir, BACK_12)
        daemon = self.start(rig, env={'QT_DEBUG_PLUGINS': '1'})
        self.wait_measured(rig, 'back-0')
        self.assertCleanExit(daemon)
        loaded = [line for line in daemon.output().splitlines()
                  if 'loaded plugins for key "org.qt-project.qt.camera"' in line]
        self.assertTrue(loaded, daemon.output()[-2000:])
        for line in loaded:
            self.assertTrue(line.endswith(': ("plinthtestcamera")'), line)

    # The policy manager

    def test_policy_change_measures_a_camera_still_at_zero_again(self):
        rig = cameras.CameraRig(self.workdir, BACK_12 + ',' + FRONT_0, device_file='{"phone": {}}')
        process, mock = self.start_manager()
        daemon = self.start(rig)
        before = self.wait_measured(rig, 'back-0', 'front-1')
        first_write = os.stat(rig.file_path)
        recorder = self.recorder()

        self.announce(mock)

        events = self.wait_measured(rig, 'front-1', times=2)[len(before):]
        # Both cameras are made and loaded again; only the one at 0.0 is measured
        # and unloaded, the other stays loaded.
        self.assertEqual(sorted(events), sorted(['load back-0', 'load front-1', 'resolutions front-1',
                                                 'unload front-1']))
        # The relayed change, and the new measurement.
        self.assertSignals(recorder, 2)
        self.assertEqual(self.resolutions(), (12.0, 0.0))
        self.assertNotEqual(os.stat(rig.file_path).st_ino, first_write.st_ino)
        self.assertEqual(rig.file_json(), {'phone': {'camera': {'backResolutions': [12],
                                                                'frontResolutions': [0]}}})
        self.assertCleanExit(daemon)

    def test_policy_change_with_both_known_loads_nothing(self):
        rig = cameras.CameraRig(self.workdir, BACK_12 + ',' + FRONT_2)
        process, mock = self.start_manager()
        daemon = self.start(rig)
        before = self.wait_measured(rig, 'back-0', 'front-1')
        recorder = self.recorder()

        self.announce(mock)
        self.assertSignals(recorder, 1)
        self.announce(mock)
        self.assertSignals(recorder, 2)

        self.assertEqual(rig.events(), before)
        self.assertEqual(self.resolutions(), (12.0, 2.0))
        self.assertCleanExit(daemon)

    def test_manager_present_at_start_and_restarted(self):
        # Present at start: connected once, and the watch is dropped, so coming
        # back later adds nothing.
        rig = cameras.CameraRig(self.workdir, BACK_12 + ',' + FRONT_2)
        process, mock = self.start_manager()
        daemon = self.start(rig)
        self.wait_measured(rig, 'back-0', 'front-1')
        self.stop_manager(process)
        process, mock = self.start_manager()
        recorder = self.recorder()

        self.announce(mock)
        self.assertSignals(recorder, 1)
        self.assertCleanExit(daemon)

    def test_manager_appearing_later(self):
        rig = cameras.CameraRig(self.workdir, BACK_12 + ',' + FRONT_2)
        daemon = self.start(rig)
        self.wait_measured(rig, 'back-0', 'front-1')
        recorder = self.recorder()
        process, mock = self.start_manager()

        self.announce(mock)
        self.assertSignals(recorder, 1)
        self.assertCleanExit(daemon)

    def test_manager_appearing_twice_counts_each_change_twice(self):
        rig = cameras.CameraRig(self.workdir, BACK_12 + ',' + FRONT_2)
        daemon = self.start(rig)
        before = self.wait_measured(rig, 'back-0', 'front-1')
        process, mock = self.start_manager()
        self.stop_manager(process)
        process, mock = self.start_manager()
        recorder = self.recorder()

        self.announce(mock)
        self.assertSignals(recorder, 2)
        self.announce(mock)
        self.assertSignals(recorder, 4)
        self.assertEqual(rig.events(), before)
        self.assertCleanExit(daemon)

    def test_manager_absent(self):
        # Without the manager nothing is connected, and a process that does not
        # own the manager's name cannot pass for it.
        rig = cameras.CameraRig(self.workdir, BACK_12 + ',' + FRONT_0)
        daemon = self.start(rig)
        before = self.wait_measured(rig, 'back-0', 'front-1')
        recorder = self.recorder()
        process, impostor = self.start_mock('org.norvu.Impostor', POLICY_PATH, POLICY_IFACE)

        self.announce(impostor)
        recorder.pump(0.5)
        self.assertEqual(recorder.received, [])
        self.assertEqual(rig.events(), before)
        self.assertEqual(self.resolutions(), (12.0, 0.0))
        self.assertCleanExit(daemon)

    # The device description file

    def test_description_file_absent_is_not_created(self):
        rig = cameras.CameraRig(self.workdir, BACK_12 + ',' + FRONT_0)
        daemon = self.start(rig)
        self.wait_measured(rig, 'back-0', 'front-1')
        self.assertEqual(os.listdir(rig.plinth_dir), [])
        self.assertCleanExit(daemon)

    def test_description_file_left_untouched(self):
        cases = {
            'no keys': ('{}', False),
            'malformed': ('{"phone": {"camera": ', False),
            'array': ('[{"phone": {}}]', False),
            'read-only': ('{"phone": {}}', True),
        }
        for name, (content, read_only) in cases.items():
            with self.subTest(name):
                rig = cameras.CameraRig(self.workdir, BACK_12 + ',' + FRONT_0, device_file=content,
                                        read_only=read_only)
                before = os.stat(rig.file_path)
                daemon = self.start(rig)
                self.wait_measured(rig, 'back-0', 'front-1')
                self.assertCleanExit(daemon)
                self.assertEqual(rig.file_bytes(), content.encode())
                after = os.stat(rig.file_path)
                self.assertEqual((after.st_ino, after.st_mtime_ns), (before.st_ino, before.st_mtime_ns))
                self.assertEqual(sorted(os.listdir(rig.plinth_dir)), ['specification.json'])
                # Nothing is logged about the file.
                self.assertNotIn('specification', daemon.output())
                self.assertEqual(self.warnings_in(daemon), [])

    def test_description_file_first_key_only(self):
        device_file = {'zeta': {'camera': {'backResolutions': [1]}},
                'alpha': {'camera': {'backResolutions': [48, 12], 'flash': True}, 'ram': 4}}
        rig = cameras.CameraRig(self.workdir, BACK_12 + ',' + FRONT_0, device_file=json.dumps(device_file))
        daemon = self.start(rig)
        self.wait_measured(rig, 'back-0', 'front-1')
        self.assertEqual(rig.file_json(), {
            'zeta': {'camera': {'backResolutions': [1]}},
            'alpha': {'camera': {'backResolutions': [12], 'frontResolutions': [0], 'flash': True}, 'ram': 4}})
        # Written in indented form, keys in Qt's order.
        self.assertTrue(rig.file_bytes().startswith(b'{\n    "alpha": {\n        "camera": {\n'), rig.file_bytes())
        self.assertCleanExit(daemon)

    def test_description_file_keeps_mode_and_owner(self):
        rig = cameras.CameraRig(self.workdir, BACK_12 + ',' + FRONT_0, device_file='{"phone": {}}', file_mode=0o640,
                                file_owner=(NOBODY, NOBODY))
        daemon = self.start(rig)
        self.wait_measured(rig, 'back-0', 'front-1')
        info = os.stat(rig.file_path)
        self.assertEqual(info.st_mode & 0o7777, 0o640)
        self.assertEqual((info.st_uid, info.st_gid), (NOBODY, NOBODY))
        self.assertEqual(rig.file_json(), {'phone': {'camera': {'backResolutions': [12], 'frontResolutions': [0]}}})
        self.assertCleanExit(daemon)


if __name__ == '__main__':
    plinthtest.main()
