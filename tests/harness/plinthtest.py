# SPDX-License-Identifier: BSD-3-Clause
"""Test bench for plinthd: a private system bus, mocked peers, the real daemon.

Everything a test starts here is torn down by the test's cleanups, so no
process outlives it. Run with Debian's interpreter (/usr/bin/python3): it needs
python3-dbus and python3-dbusmock.

    class MyTest(plinthtest.DaemonTestCase):
        def test_something(self):
            self.start_mock_template('systemd')
            daemon = self.start_daemon()
            self.assertEqual(self.features().getCpuModel(), '')
"""

import os
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import dbus
import dbusmock

BUS_NAME = 'org.norvu.plinth'
# For short-lived clients of the bus (plinthctl, the examples) in the
# AddressSanitizer build: QtDBus's own exit-time reports are suppressed, with
# the reason in the file itself; elsewhere these settings do nothing.
CLIENT_SANITIZER_ENV = {
    'ASAN_OPTIONS': 'fast_unwind_on_malloc=0',
    'LSAN_OPTIONS': 'suppressions=%s:print_suppressions=0' % os.path.join(
        os.environ.get('PLINTHD_SOURCE_DIR', ''), 'tests', 'sanitizers', 'lsan-qtdbus.supp'),
}
FEATURES_PATH = '/org/norvu/plinth/Features'
SIM_PATH = '/org/norvu/plinth/SIM'
STORAGES_PATH = '/org/norvu/plinth/Storages'
FEATURES_IFACE = 'org.norvu.plinth.Features'
SIM_IFACE = 'org.norvu.plinth.SIM'
STORAGES_IFACE = 'org.norvu.plinth.Storages'
OBJECTS = ((FEATURES_PATH, FEATURES_IFACE), (SIM_PATH, SIM_IFACE), (STORAGES_PATH, STORAGES_IFACE))

# The exit status of a test that could not run here (not root, no namespaces,
# a program missing): CTest's SKIP_RETURN_CODE for every test of the suite, so
# such a run shows as skipped, never as passed.
SKIP_STATUS = 77

# Set in the environment of everything that runs inside the namespaces
# tests/harness/run-test made for a whole test, to the mount namespace it was
# started in ("mnt:[inode]"): a test that mounts over system paths checks that
# it is somewhere else.
NAMESPACE_MARK = 'PLINTHD_TEST_NAMESPACE'


# Private namespaces, the one way every test gets them: a whole test through
# tests/harness/run-test (CTest's MOUNT_NAMESPACE and NETWORK_NAMESPACE), one
# daemon through Daemon below. Both use this command, and both skip for the
# reason namespace_unavailable() gives.
def namespace_command(network=False, propagation='private'):
    """The command prefix that runs a program in private namespaces of its own.

    With propagation 'slave' the mounts copied into the new namespace still
    receive the mounts and unmounts made later beneath shared mounts of the
    caller's namespace (mount --make-shared), and their bind mounts with them.
    """
    command = ['unshare', '--mount', '--propagation', propagation]
    if network:
        command.append('--net')
    return command + ['--']


_namespace_verdicts = {}


def namespace_unavailable(network=False):
    """Why private namespaces cannot be had here, or None when they can."""
    if network not in _namespace_verdicts:
        what = 'a private mount and network namespace' if network else 'a private mount namespace'
        if os.geteuid() != 0:
            reason = 'needs root for %s' % what
        elif not shutil.which('unshare'):
            reason = 'needs unshare (util-linux) for %s' % what
        else:
            probe = subprocess.run(namespace_command(network) + ['true'], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, universal_newlines=True)
            reason = None if probe.returncode == 0 else \
                'cannot make %s here: %s' % (what, probe.stderr.strip() or 'unshare failed')
        _namespace_verdicts[network] = reason
    return _namespace_verdicts[network]


def in_test_namespace():
    """Whether this process runs in the namespaces run-test made, not where it came from."""
    outside = os.environ.get(NAMESPACE_MARK)
    return bool(outside) and outside != os.readlink('/proc/self/ns/mnt')


def namespace_environment(environment):
    """The environment for a whole test entering its namespaces from this process's."""
    return dict(environment, **{NAMESPACE_MARK: os.readlink('/proc/self/ns/mnt')})


def plinthd_binary():
    path = os.environ.get('PLINTHD_BINARY')
    if not path:
        raise unittest.SkipTest('PLINTHD_BINARY is not set (run the tests through ctest)')
    return path


def wait_until(predicate, timeout=10.0, interval=0.02, what='condition'):
    deadline = time.monotonic() + timeout
    while True:
        result = predicate()
        if result:
            return result
        if time.monotonic() > deadline:
            raise AssertionError('timed out after %.1f s waiting for %s' % (timeout, what))
        time.sleep(interval)


BUS_CONFIG = '''<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <keep_umask/>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow eavesdrop="true"/>
  </policy>
  <limit name="max_replies_per_connection">50000</limit>
  <limit name="max_connections_per_user">2048</limit>
  <limit name="max_pending_service_starts">1024</limit>
</busconfig>
'''

# The same with dbus-daemon's default limits, among them the 128 calls one
# connection may have outstanding, as on a real system bus.
DEFAULT_LIMITS_BUS_CONFIG = BUS_CONFIG.replace(
    '  <limit name="max_replies_per_connection">50000</limit>\n', '')


def activation_bus_config(services_dir):
    """BUS_CONFIG with an activation file for the daemon in services_dir: the
    bus starts the daemon on the first call to its name, as a system bus does."""
    # The bus hands what it starts its own address as DBUS_STARTER_ADDRESS;
    # the daemon looks for the system bus's.
    starter = os.path.join(services_dir, 'start-plinthd')
    with open(starter, 'w') as f:
        f.write('#!/bin/sh\nDBUS_SYSTEM_BUS_ADDRESS="$DBUS_STARTER_ADDRESS" exec %s\n'
                % shlex.quote(plinthd_binary()))
    os.chmod(starter, 0o755)
    with open(os.path.join(services_dir, BUS_NAME + '.service'), 'w') as f:
        f.write('[D-BUS Service]\nName=%s\nExec=%s\n' % (BUS_NAME, starter))
    return BUS_CONFIG.replace('</busconfig>', '  <servicedir>%s</servicedir>\n</busconfig>' % services_dir)


class PrivateSystemBus:
    """A dbus-daemon of its own, configured like a system bus but open to all.

    start() points DBUS_SYSTEM_BUS_ADDRESS at it, so both this process's
    dbus-python and every child (the daemon, dbusmock peers) use it.
    """

    def __init__(self, workdir, config_template=BUS_CONFIG):
        self.workdir = workdir
        self.config_template = config_template
        self.process = None
        self.address = None
        self._saved_address = None

    def start(self):
        socket = os.path.join(self.workdir, 'system_bus_socket')
        config = os.path.join(self.workdir, 'system-bus.conf')
        with open(config, 'w') as f:
            f.write(self.config_template.format(socket=socket))
        # The bus's own complaints (it may not raise its fd limit here) go to a
        # log beside the socket instead of the test output.
        with open(os.path.join(self.workdir, 'dbus-daemon.log'), 'w') as log:
            self.process = subprocess.Popen(
                ['dbus-daemon', '--nofork', '--config-file=' + config, '--print-address=1'],
                stdout=subprocess.PIPE, stdin=subprocess.DEVNULL, stderr=log, universal_newlines=True)
        self.address = self.process.stdout.readline().strip()
        if not self.address:
            raise RuntimeError('dbus-daemon did not start')
        self._saved_address = os.environ.get('DBUS_SYSTEM_BUS_ADDRESS')
        os.environ['DBUS_SYSTEM_BUS_ADDRESS'] = self.address
        return self.address

    def stop(self):
        if self.process:
            self.process.terminate()
            try:
                self.process.wait(5)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
            self.process.stdout.close()
            self.process = None
        if self._saved_address is None:
            os.environ.pop('DBUS_SYSTEM_BUS_ADDRESS', None)
        else:
            os.environ['DBUS_SYSTEM_BUS_ADDRESS'] = self._saved_address


class Daemon:
    """The real plinthd binary, optionally in a private mount namespace.

    binds:     {path the daemon reads: fake file or directory}, bind-mounted in
               the namespace before the daemon starts.
    setup:     extra shell commands run in the namespace before the binds
               (for example mounting a tmpfs over a directory).
    fake_bin:  {program name: script text}; written to a directory put first
               on PATH, for the child processes the daemon starts.
    propagation: 'slave' to see the mounts the test makes later beneath its
               own shared mounts (see namespace_command()).
    journal_stream: the log is announced in JOURNAL_STREAM, as systemd
               announces the journal's stream it connects a service to.
    """

    def __init__(self, workdir, env=None, binds=None, setup=None, fake_bin=None,
                 namespace=None, binary=None, wrapper=None, propagation='private', journal_stream=False):
        self.workdir = workdir
        self.env = dict(os.environ)
        self.env.update(env or {})
        self.binds = dict(binds or {})
        self.setup = list(setup or [])
        self.fake_bin = dict(fake_bin or {})
        self.namespace = bool(self.binds or self.setup) if namespace is None else namespace
        self.binary = binary or plinthd_binary()
        self.wrapper = list(wrapper or [])
        self.propagation = propagation
        self.journal_stream = journal_stream
        self.process = None
        self.log_path = None
        self._log = None

    def command(self):
        cmd = self.wrapper + [self.binary]
        if not self.namespace:
            return cmd
        lines = ['set -e']
        lines += self.setup
        for target, source in self.binds.items():
            lines.append('mount --bind %s %s' % (shlex.quote(source), shlex.quote(target)))
        lines.append('exec "$@"')
        return namespace_command(propagation=self.propagation) + ['/bin/sh', '-c', '\n'.join(lines),
                                                                 'plinthd-namespace'] + cmd

    def start(self):
        if self.namespace:
            reason = namespace_unavailable()
            if reason:
                raise unittest.SkipTest(reason)
        if self.fake_bin:
            bindir = tempfile.mkdtemp(prefix='bin.', dir=self.workdir)
            for name, text in self.fake_bin.items():
                path = os.path.join(bindir, name)
                with open(path, 'w') as f:
                    f.write(text)
                os.chmod(path, 0o755)
            self.env['PATH'] = bindir + os.pathsep + self.env.get('PATH', '')
        fd, self.log_path = tempfile.mkstemp(prefix='plinthd.', suffix='.log', dir=self.workdir)
        self._log = os.fdopen(fd, 'w')
        if self.journal_stream:
            status = os.fstat(fd)
            self.env['JOURNAL_STREAM'] = '%d:%d' % (status.st_dev, status.st_ino)
        self.process = subprocess.Popen(self.command(), env=self.env, stdin=subprocess.DEVNULL,
                                        stdout=self._log, stderr=subprocess.STDOUT)
        return self

    def wait_ready(self, timeout=30.0):
        """Wait until all three objects answer on the bus."""
        # libdbus remembers the first system bus address it saw, so connect by
        # address: every test has a bus of its own.
        bus = dbus.bus.BusConnection(self.env['DBUS_SYSTEM_BUS_ADDRESS'])
        try:
            def ready():
                if self.process.poll() is not None:
                    raise AssertionError('plinthd exited with %d before it was ready:\n%s'
                                         % (self.process.returncode, self.output()))
                if not bus.name_has_owner(BUS_NAME):
                    return False
                try:
                    for path, iface in OBJECTS:
                        xml = bus.get_object(BUS_NAME, path, introspect=False).Introspect(
                            dbus_interface='org.freedesktop.DBus.Introspectable', timeout=5)
                        if iface not in xml:
                            return False
                except dbus.exceptions.DBusException:
                    return False
                return True
            wait_until(ready, timeout, what='plinthd to serve its three objects')
        finally:
            bus.close()
        return self

    def wait(self, timeout=30.0):
        return self.process.wait(timeout)

    def terminate(self, timeout=30.0):
        """SIGTERM, then the exit status."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        return self.process.wait(timeout)

    def kill(self):
        if self.process and self.process.poll() is None:
            self.process.kill()
            self.process.wait()

    def output(self):
        if self._log:
            self._log.flush()
        with open(self.log_path, errors='replace') as f:
            return f.read()

    def close(self):
        self.kill()
        if self._log:
            self._log.close()
            self._log = None


class DaemonTestCase(unittest.TestCase):
    """Each test gets a fresh private system bus and a scratch directory."""

    bus_config = BUS_CONFIG

    def setUp(self):
        if not shutil.which('dbus-daemon'):
            self.skipTest('needs dbus-daemon for a private system bus')
        self.workdir = tempfile.mkdtemp(prefix='plinthtest.')
        self.addCleanup(shutil.rmtree, self.workdir, ignore_errors=True)
        self.system_bus = PrivateSystemBus(self.workdir, self.bus_config)
        self.system_bus.start()
        self.addCleanup(self.system_bus.stop)
        self._bus = None

    @property
    def bus(self):
        """A dbus-python client connection of the test's own."""
        if self._bus is None:
            self._bus = dbus.bus.BusConnection(self.system_bus.address)
            self.addCleanup(self._bus.close)
        return self._bus

    def start_daemon(self, wait=True, **kwargs):
        daemon = Daemon(self.workdir, **kwargs)
        self.addCleanup(daemon.close)
        daemon.start()
        if wait:
            daemon.wait_ready()
        return daemon

    def _keep_mock(self, process):
        def stop():
            process.terminate()
            try:
                process.wait(5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        self.addCleanup(stop)

    def start_mock_template(self, template, parameters=None):
        """A python-dbusmock template (systemd, ofono, ...) on the private bus."""
        process, obj = dbusmock.DBusTestCase.spawn_server_template(
            template, parameters or {}, stdout=subprocess.DEVNULL, system_bus=True)
        self._keep_mock(process)
        return process, obj

    def start_mock(self, name, path, interface):
        """A plain python-dbusmock object; add methods with its AddMethod."""
        process = dbusmock.DBusTestCase.spawn_server(name, path, interface, system_bus=True,
                                                     stdout=subprocess.DEVNULL)
        self._keep_mock(process)
        obj = self.bus.get_object(name, path)
        return process, dbus.Interface(obj, dbusmock.MOCK_IFACE)

    def proxy(self, path, interface):
        return dbus.Interface(self.bus.get_object(BUS_NAME, path, introspect=False), interface)

    def features(self):
        return self.proxy(FEATURES_PATH, FEATURES_IFACE)

    def sim(self):
        return self.proxy(SIM_PATH, SIM_IFACE)

    def storages(self):
        return self.proxy(STORAGES_PATH, STORAGES_IFACE)



class ActivationTestCase(DaemonTestCase):
    """Each test's bus starts the daemon on the first call to its name
    (activation_bus_config), as a system bus does; no daemon runs before."""

    def setUp(self):
        services = tempfile.mkdtemp(prefix='plinthservices.')
        self.addCleanup(shutil.rmtree, services, ignore_errors=True)
        self.bus_config = activation_bus_config(services)
        super().setUp()
        # Whatever the bus started last goes with the test (before the bus).
        self.addCleanup(self._end_owner)

    def _end_owner(self):
        # On a connection of its own: the test's may be closed by now.
        bus = dbus.bus.BusConnection(self.system_bus.address)
        try:
            self._end(self._owner_pid(bus))
        except dbus.exceptions.DBusException:
            # No owner (any more): a daemon killed before is leaving, or none
            # was started.
            pass
        finally:
            bus.close()

    @staticmethod
    def _owner_pid(bus):
        return int(bus.get_object('org.freedesktop.DBus', '/org/freedesktop/DBus').GetConnectionUnixProcessID(
            BUS_NAME, dbus_interface='org.freedesktop.DBus'))

    def daemon_pid(self):
        """The daemon the bus started; killed, if it still runs, when the test ends."""
        pid = self._owner_pid(self.bus)
        self.addCleanup(self._end, pid)
        return pid

    @staticmethod
    def _end(pid):
        try:
            os.kill(pid, signal.SIGKILL)
        except ProcessLookupError:
            pass

def main():
    """Runs the tests of the calling script; ends with SKIP_STATUS when any could not run here.

    A test that was skipped did not show anything, so the whole run is
    reported as skipped (with the reasons above) unless something failed.
    """
    result = unittest.main(verbosity=2, exit=False).result
    if not result.wasSuccessful():
        sys.exit(1)
    if result.skipped:
        print('SKIP: %d test(s) could not run here' % len(result.skipped), flush=True)
        sys.exit(SKIP_STATUS)
    if result.testsRun == 0:
        print('no test ran', flush=True)
        sys.exit(1)
    sys.exit(0)
