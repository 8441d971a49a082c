# SPDX-License-Identifier: BSD-3-Clause
"""Cameras, the policy manager and the device description file for tests of plinthd.

CameraRig prepares what start_daemon() needs so that the daemon's Qt Multimedia
sees exactly the cameras a test names (the test media service plugin, built in
tests/cameraplugin), and so that "/etc/plinth" is a folder of the test's own:

    rig = cameras.CameraRig(self.workdir, 'back:4032x3024,front:640x480',
                            device_file='{"phone": {}}')
    daemon = self.start_daemon(**rig.daemon_kwargs())
    rig.events()        # ['load back-0', 'resolutions back-0', ...]
    rig.file_json()     # the description file as the daemon left it

Qt always searches its own plugin folder besides QT_PLUGIN_PATH, so when the
system's camera backend is installed it would add whatever cameras the machine
has. The rig hides that folder's media services inside the daemon's mount
namespace; the test cameras are then the only ones, on any machine.

SignalRecorder collects a D-Bus signal with dbus-python on a connection of its
own, driven by a GLib main loop only while a test waits.
"""

import json
import os
import shlex
import tempfile
import time

import dbus
import dbus.mainloop.glib
from gi.repository import GLib

POLICY_NAME = 'org.norvu.PolicyManager'
POLICY_PATH = '/org/norvu/PolicyManager'
POLICY_IFACE = 'org.norvu.PolicyManager'
POLICY_SIGNAL = 'CameraAccessChanged'

PLINTH_DIR = '/etc/plinth'
FILE_NAME = 'specification.json'


def plugin_config():
    """Where the test camera plugin is and which folder Qt searches besides."""
    path = os.path.join(os.environ['PLINTHD_BUILD_DIR'], 'tests', 'cameraplugin', 'cameraplugin.json')
    with open(path) as f:
        return json.load(f)


class CameraRig:
    """The daemon's cameras, its camera event log and its /etc/plinth.

    cameras:     PLINTHD_TEST_CAMERAS, e.g. 'back:4032x3024,front:640x480' ('' for none).
    device_file: content of /etc/plinth/specification.json (str or bytes), or None
                 for a folder without the file.
    file_mode:   mode of that file.
    file_owner:  (uid, gid) of that file, or None to leave it to the test's user.
    read_only:   mount the folder read-only for the daemon.
    delay_ms:    how long each camera takes to load and unload.
    """

    def __init__(self, workdir, cameras='', device_file=None, file_mode=0o644, file_owner=None,
                 read_only=False, delay_ms=0):
        self.workdir = workdir
        self.cameras = cameras
        self.read_only = read_only
        self.delay_ms = delay_ms
        # A folder of its own, so that several rigs can share a test's workdir.
        self.root = tempfile.mkdtemp(prefix='cameras.', dir=workdir)
        self.plinth_dir = os.path.join(self.root, 'etc-plinth')
        self.file_path = os.path.join(self.plinth_dir, FILE_NAME)
        self.event_log = os.path.join(self.root, 'camera-events.log')
        os.mkdir(self.plinth_dir)
        if device_file is not None:
            with open(self.file_path, 'wb') as f:
                f.write(device_file.encode() if isinstance(device_file, str) else device_file)
            os.chmod(self.file_path, file_mode)
            if file_owner is not None:
                os.chown(self.file_path, *file_owner)

    def env(self):
        config = plugin_config()
        return {
            'QT_PLUGIN_PATH': config['plugin_path'],
            'PLINTHD_TEST_CAMERAS': self.cameras,
            'PLINTHD_TEST_CAMERA_LOG': self.event_log,
            'PLINTHD_TEST_CAMERA_DELAY_MS': str(self.delay_ms),
        }

    def setup(self):
        """Shell lines for the daemon's mount namespace."""
        system_services = os.path.join(plugin_config()['qt_plugin_dir'], 'mediaservice')
        overlay = tempfile.mkdtemp(prefix='etc-overlay.', dir=self.root)
        os.mkdir(os.path.join(overlay, 'upper'))
        os.mkdir(os.path.join(overlay, 'work'))
        q = shlex.quote
        lines = [
            'if [ -d %s ]; then mount -t tmpfs -o ro,mode=755 plinthd-no-cameras %s; fi'
            % (q(system_services), q(system_services)),
            # /etc/plinth may not exist on the test machine; an overlay over /etc
            # makes the mount point without touching the machine's /etc.
            'if [ ! -d %s ]; then mount -t overlay overlay -o lowerdir=/etc,upperdir=%s,workdir=%s /etc;'
            ' mkdir %s; fi' % (PLINTH_DIR, q(os.path.join(overlay, 'upper')), q(os.path.join(overlay, 'work')),
                               PLINTH_DIR),
            'mount --bind %s %s' % (q(self.plinth_dir), PLINTH_DIR),
        ]
        if self.read_only:
            lines.append('mount -o remount,bind,ro %s' % PLINTH_DIR)
        return lines

    def daemon_kwargs(self, env=None, setup=None, **kwargs):
        merged_env = self.env()
        merged_env.update(env or {})
        return dict(env=merged_env, setup=self.setup() + list(setup or []), **kwargs)

    def events(self):
        """What the cameras went through, one 'event device' string each."""
        try:
            with open(self.event_log) as f:
                return f.read().splitlines()
        except FileNotFoundError:
            return []

    def file_bytes(self):
        with open(self.file_path, 'rb') as f:
            return f.read()

    def file_json(self):
        return json.loads(self.file_bytes())


class SignalRecorder:
    """Collects one D-Bus signal on a dbus-python connection of its own."""

    def __init__(self, address, member, interface, path=None, sender=None):
        self.received = []
        self.context = GLib.MainContext.default()
        self.connection = dbus.bus.BusConnection(
            address, mainloop=dbus.mainloop.glib.DBusGMainLoop())
        self.match = self.connection.add_signal_receiver(
            self._record, signal_name=member, dbus_interface=interface, path=path,
            bus_name=sender, byte_arrays=True)
        # A round trip makes sure the bus has the match before the test goes on.
        self.connection.get_unique_name()
        self.connection.list_names()

    def _record(self, *args):
        self.received.append(args)

    def pump(self, seconds=0.0):
        """Dispatch what has arrived, for at least the given time."""
        deadline = time.monotonic() + seconds
        while True:
            while self.context.pending():
                self.context.iteration(False)
            if time.monotonic() >= deadline:
                return
            time.sleep(0.01)

    def wait_for(self, count, timeout=10.0):
        deadline = time.monotonic() + timeout
        while len(self.received) < count:
            if time.monotonic() > deadline:
                raise AssertionError('timed out waiting for %d signals, got %d: %r'
                                     % (count, len(self.received), self.received))
            self.pump(0.02)
        return self.received

    def close(self):
        self.match.remove()
        self.connection.close()
