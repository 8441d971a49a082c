#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The shipped bus policy, on a bus configured exactly like the machine's.

The test process runs in a mount and network namespace of its own and
starts a dbus-daemon with Debian's own /usr/share/dbus-1/system.conf. The
policy folders and /run/dbus are replaced by private tmpfs mounts holding only
the build tree's policy (and activation file), so the machine's own bus and
configuration are neither used nor touched. plinthd runs as root; the
unprivileged caller is "nobody".
"""

import json
import os
import shutil
import subprocess
import tempfile
import unittest

import plinthtest
from plinthtest import BUS_NAME

SYSTEM_CONF = '/usr/share/dbus-1/system.conf'
SOCKET = '/run/dbus/system_bus_socket'
ADDRESS = 'unix:path=' + SOCKET
BUILD_DIR = os.environ.get('PLINTHD_BUILD_DIR', '')
SOURCE_DIR = os.environ.get('PLINTHD_SOURCE_DIR', '')
POLICY = os.path.join(BUILD_DIR, 'data', 'org.norvu.plinth.conf')
ACTIVATION = os.path.join(BUILD_DIR, 'data', 'org.norvu.plinth.service')
PLINTHCTL = os.path.join(BUILD_DIR, 'tools', 'plinthctl')
INTERFACES = ['org.norvu.plinth.Features', 'org.norvu.plinth.SIM', 'org.norvu.plinth.Storages']
AS_NOBODY = ['setpriv', '--reuid=nobody', '--regid=nogroup', '--clear-groups', '--']

# Runs as nobody: every method of the three interfaces, introspection, the
# property reads and Peer.Ping must go through; owning the name, setting a
# property and any other interface must be refused by the bus itself.
CALLER = r'''
import json, sys
import xml.etree.ElementTree as ET
import dbus

bus = dbus.SystemBus()
results = {}

def attempt(key, call):
    try:
        call()
        results[key] = 'ok'
    except dbus.exceptions.DBusException as e:
        results[key] = e.get_dbus_name()

for xml_path in sys.argv[1:]:
    root = ET.parse(xml_path).getroot()
    for iface in root.findall('interface'):
        name = iface.get('name')
        path = '/org/norvu/plinth/' + name.rsplit('.', 1)[1]
        obj = bus.get_object('org.norvu.plinth', path, introspect=False)
        for method in iface.findall('method'):
            attempt(name + '.' + method.get('name'),
                    lambda: obj.get_dbus_method(method.get('name'), name)(timeout=120))
        attempt(path + ' Introspect', lambda: obj.Introspect(dbus_interface='org.freedesktop.DBus.Introspectable'))
        attempt(name + ' GetAll', lambda: obj.GetAll(name, dbus_interface='org.freedesktop.DBus.Properties'))
        for prop in iface.findall('property'):
            attempt(name + ' Get ' + prop.get('name'),
                    lambda: obj.Get(name, prop.get('name'), dbus_interface='org.freedesktop.DBus.Properties'))
            attempt(name + ' Set ' + prop.get('name'),
                    lambda: obj.Set(name, prop.get('name'), dbus.UInt32(1),
                                    dbus_interface='org.freedesktop.DBus.Properties'))

features = bus.get_object('org.norvu.plinth', '/org/norvu/plinth/Features', introspect=False)
attempt('Peer.Ping', lambda: features.Ping(dbus_interface='org.freedesktop.DBus.Peer'))
attempt('other interface', lambda: features.getCpuModel(dbus_interface='org.norvu.plinth.Other'))
attempt('RequestName', lambda: bus.request_name('org.norvu.plinth', dbus.bus.NAME_FLAG_DO_NOT_QUEUE))
print(json.dumps(results))
'''


def setUpModule():
    # CTest runs this script in a mount and network namespace of its own
    # (MOUNT_NAMESPACE, NETWORK_NAMESPACE), where nothing below is seen by the
    # machine; anywhere else it would replace the machine's bus configuration.
    if not plinthtest.in_test_namespace():
        raise unittest.SkipTest('needs the namespaces tests/harness/run-test makes (run it through ctest)')
    for folder in ('/run/dbus', '/usr/share/dbus-1/system.d', '/etc/dbus-1/system.d',
                   '/usr/share/dbus-1/system-services'):
        if os.path.isdir(folder):
            subprocess.check_call(['mount', '-t', 'tmpfs', '-o', 'mode=0755', 'tmpfs', folder])
    shutil.copy(POLICY, '/usr/share/dbus-1/system.d/')
    os.environ['DBUS_SYSTEM_BUS_ADDRESS'] = ADDRESS


class DebianSystemBus:
    def __init__(self):
        # The bus gives up its root rights before it exits and so leaves its
        # pid file behind; a new bus refuses to start beside one.
        for leftover in ('/run/dbus/pid', SOCKET):
            if os.path.exists(leftover):
                os.remove(leftover)
        self.log = tempfile.TemporaryFile()
        self.process = subprocess.Popen(
            ['dbus-daemon', '--config-file=' + SYSTEM_CONF, '--nofork', '--print-address=1'],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=self.log, universal_newlines=True)
        address = self.process.stdout.readline().strip()
        if not address.startswith(ADDRESS):
            self.log.seek(0)
            raise AssertionError('dbus-daemon did not start: %r\n%s' % (address, self.log.read().decode()))

    def stop(self):
        self.process.terminate()
        self.process.wait(10)
        self.process.stdout.close()
        self.log.close()


class SystemBusTestCase(unittest.TestCase):
    """A fresh bus with Debian's configuration for every test."""

    def setUp(self):
        self.workdir = tempfile.mkdtemp(prefix='plinthpolicy.')
        self.addCleanup(shutil.rmtree, self.workdir, ignore_errors=True)
        self.prepare_bus()
        bus = DebianSystemBus()
        self.addCleanup(bus.stop)

    def prepare_bus(self):
        pass

    def start_daemon(self, **kwargs):
        daemon = plinthtest.Daemon(self.workdir, env={'DBUS_SYSTEM_BUS_ADDRESS': ADDRESS}, **kwargs)
        self.addCleanup(daemon.close)
        return daemon.start()

    def as_nobody(self, command, timeout=240):
        # The leak check of the AddressSanitizer build, as for every plinthctl run.
        env = dict(os.environ, ASAN_OPTIONS='fast_unwind_on_malloc=0', LSAN_OPTIONS='suppressions=' + os.path.join(
            SOURCE_DIR, 'tests', 'sanitizers', 'lsan-qtdbus.supp') + ':print_suppressions=0')
        return subprocess.run(AS_NOBODY + command, env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, universal_newlines=True, timeout=timeout)

    def caller_results(self):
        xml = [os.path.join(SOURCE_DIR, 'dbus', name + '.xml') for name in INTERFACES]
        result = self.as_nobody(['/usr/bin/python3', '-c', CALLER] + xml)
        self.assertEqual(result.returncode, 0, result.stderr)
        return json.loads(result.stdout)


class PolicyTest(SystemBusTestCase):

    def test_root_owns_the_name_and_nobody_may_ask_everything(self):
        self.start_daemon().wait_ready()
        results = self.caller_results()
        denied = 'org.freedesktop.DBus.Error.AccessDenied'
        allowed = {k: v for k, v in results.items()
                   if ' Set ' not in k and k not in ('other interface', 'RequestName')}
        # 22 + 1 + 6 methods, three introspections, three GetAll, three Get, one Ping.
        self.assertEqual(len(allowed), 22 + 1 + 6 + 3 + 3 + 3 + 1)
        self.assertEqual({k for k, v in allowed.items() if v != 'ok'}, set(), allowed)
        # Health checks ask whether the daemon is alive without asking it anything.
        self.assertEqual(results['Peer.Ping'], 'ok')
        for name in ('osType', 'isOsCertified', 'isOsEmulated'):
            self.assertEqual(results['org.norvu.plinth.Features Set ' + name], denied)
        self.assertEqual(results['other interface'], denied)
        self.assertEqual(results['RequestName'], denied)

    def test_plinthctl_works_for_nobody(self):
        self.start_daemon().wait_ready()
        result = self.as_nobody([PLINTHCTL, '--json'])
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(sorted(json.loads(result.stdout)), ['features', 'sims', 'storage'])

    def test_nobody_cannot_run_the_daemon(self):
        daemon = plinthtest.Daemon(self.workdir, env={'DBUS_SYSTEM_BUS_ADDRESS': ADDRESS},
                                   wrapper=AS_NOBODY)
        self.addCleanup(daemon.close)
        self.assertEqual(daemon.start().wait(60), 1)
        self.assertIn('FeaturesService registration failed', daemon.output())

class ActivationTest(SystemBusTestCase):
    """The installed activation file, pointed at the build tree's daemon:
    without systemd the bus starts the daemon through its own launch helper."""

    def prepare_bus(self):
        # The bus reads the service folders when it starts.
        target = '/usr/share/dbus-1/system-services/org.norvu.plinth.service'
        with open(ACTIVATION) as f:
            lines = [line if not line.startswith('Exec=') else 'Exec=' + plinthtest.plinthd_binary() + '\n'
                     for line in f]
        with open(target, 'w') as f:
            f.writelines(lines)
        self.addCleanup(os.remove, target)

    def bus_driver(self, method):
        reply = subprocess.run(['dbus-send', '--system', '--print-reply=literal', '--dest=org.freedesktop.DBus',
                                '/org/freedesktop/DBus', 'org.freedesktop.DBus.' + method, 'string:' + BUS_NAME],
                               stdout=subprocess.PIPE, universal_newlines=True, check=True)
        return int(reply.stdout.split()[-1])

    def test_a_call_starts_the_daemon_as_root(self):
        result = self.as_nobody([PLINTHCTL, 'features'], timeout=120)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn('Time zone:', result.stdout)
        self.assertEqual(self.bus_driver('GetConnectionUnixUser'), 0)
        # Started by the bus's helper, not by this test: end it here.
        os.kill(self.bus_driver('GetConnectionUnixProcessID'), 15)

if __name__ == '__main__':
    plinthtest.main()
