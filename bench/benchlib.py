# SPDX-License-Identifier: BSD-3-Clause
"""Measuring tools shared by the benchmarks, and the table they all print into.

Every figure is taken side by side with a reference measured in the same run,
on the same machine and bus, and printed as a ratio beside both raw medians:
a shared, busy machine shifts both sides of a ratio alike, so the ratio is the
figure worth comparing between runs, not the raw numbers.

Run as root with Debian's interpreter (/usr/bin/python3); nothing here fails on
a slow figure.
"""

import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE_DIR = os.path.dirname(HERE)
sys.path.insert(0, os.path.join(SOURCE_DIR, 'tests', 'harness'))

import dbus  # noqa: E402
import dbus.mainloop.glib  # noqa: E402
from gi.repository import GLib  # noqa: E402

import dbusmock  # noqa: E402
import loadclients  # noqa: E402
import plinthtest  # noqa: E402
import rpmdb  # noqa: E402

IN_FLIGHT = 64

ECHO_NAME = 'org.norvu.plinth.bench.Echo'
ECHO = (ECHO_NAME, '/org/norvu/plinth/bench/Echo', 'org.norvu.plinth.bench.Echo', 'echo')


def features_call(method):
    """A call target (bus name, path, interface, method) on the Features object."""
    return (plinthtest.BUS_NAME, plinthtest.FEATURES_PATH, plinthtest.FEATURES_IFACE, method)


def glib_connection(address):
    """A client connection whose replies and signals come through a GLib main loop."""
    return dbus.bus.BusConnection(address, mainloop=dbus.mainloop.glib.DBusGMainLoop())


# --- calls -------------------------------------------------------------------

def sequential_latencies(bus, target, calls):
    """Seconds taken by each of CALLS blocking calls made one after another.

    One call before the clock starts, so that a first call's lazy set-up on
    either side is not counted.
    """
    name, path, iface, method = target
    bus.call_blocking(name, path, iface, method, '', [])
    clock = time.perf_counter
    latencies = []
    for _ in range(calls):
        start = clock()
        bus.call_blocking(name, path, iface, method, '', [])
        latencies.append(clock() - start)
    return latencies


def in_flight_rate(bus, target, calls, depth=IN_FLIGHT):
    """Calls per second with DEPTH calls outstanding until CALLS replies came back."""
    name, path, iface, method = target
    loop = GLib.MainLoop()
    state = {'sent': 0, 'done': 0, 'error': None}

    def send():
        state['sent'] += 1
        bus.call_async(name, path, iface, method, '', [], reply_handler=replied, error_handler=failed)

    def replied(*_):
        state['done'] += 1
        if state['sent'] < calls:
            send()
        elif state['done'] == calls:
            loop.quit()

    def failed(error):
        state['error'] = error
        loop.quit()

    start = time.perf_counter()
    for _ in range(min(depth, calls)):
        send()
    loop.run()
    elapsed = time.perf_counter() - start
    if state['error']:
        raise state['error']
    return calls / elapsed


def alternating_rounds(labels, rounds, measure):
    """MEASURE(label) for every label in every round, the order rotating.

    Short measurements that alternate between the sides, with each ratio taken
    within its round: drifts of a shared machine (other load, clock speed)
    then reach both sides of a ratio alike. Returns {label: [one result per
    round]}.
    """
    results = {label: [] for label in labels}
    for index in range(rounds):
        shift = index % len(labels)
        for label in labels[shift:] + labels[:shift]:
            results[label].append(measure(label))
    return results


# --- statistics --------------------------------------------------------------

def percentile(values, fraction):
    """The value below which FRACTION of VALUES lie (nearest rank)."""
    ordered = sorted(values)
    rank = max(0, min(len(ordered) - 1, int(round(fraction * len(ordered) + 0.5)) - 1))
    return ordered[rank]


def quartiles(values):
    if len(values) < 2:
        return values[0], values[0]
    cuts = statistics.quantiles(values, n=4)
    return cuts[0], cuts[2]


def round_ratios(mine, reference):
    """Median and quartiles of the ratios of two lists of per-round results."""
    ratios = [a / b for a, b in zip(mine, reference) if b]
    return statistics.median(ratios), quartiles(ratios)


# --- processes ---------------------------------------------------------------

def voluntary_switches(pid):
    """Voluntary context switches of every thread of PID: each is one wake-up."""
    total = 0
    for task in os.listdir('/proc/%d/task' % pid):
        with open('/proc/%d/task/%s/status' % (pid, task)) as f:
            for line in f:
                if line.startswith('voluntary_ctxt_switches:'):
                    total += int(line.split()[1])
    return total


vm_rss_kib = loadclients.vm_rss_kib


def pss_kib(pid):
    with open('/proc/%d/smaps_rollup' % pid) as f:
        for line in f:
            if line.startswith('Pss:'):
                return int(line.split()[1])
    return 0


def stop(process, timeout=30):
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(timeout)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


def wait_for_name(bus, name, process, timeout=30):
    deadline = time.monotonic() + timeout
    while not bus.name_has_owner(name):
        if process.poll() is not None:
            raise RuntimeError('%s exited with %d before owning %s' % (process.args[0], process.returncode, name))
        if time.monotonic() > deadline:
            raise RuntimeError('%s did not appear within %d s' % (name, timeout))
        time.sleep(0.001)


def wait_for_name_gone(bus, name, timeout=30):
    deadline = time.monotonic() + timeout
    while bus.name_has_owner(name):
        if time.monotonic() > deadline:
            raise RuntimeError('%s is still owned after %d s' % (name, timeout))
        time.sleep(0.001)


def start_times(bus, argv, env, name, paths):
    """Seconds from exec until NAME is owned, and until every object of PATHS answers.

    The bus's NameOwnerChanged signal marks the first moment, so there is no
    polling error in it; the second is polled (Introspect, every 0.5 ms) since
    a service owns its name before its event loop serves. The process is
    stopped again before returning.
    """
    loop = GLib.MainLoop()
    owned = {}

    def owner_changed(_name, _old, new):
        if new and 'at' not in owned:
            owned['at'] = time.perf_counter()
            loop.quit()

    match = bus.add_signal_receiver(owner_changed, 'NameOwnerChanged', 'org.freedesktop.DBus',
                                    'org.freedesktop.DBus', '/org/freedesktop/DBus', arg0=name)
    start = time.perf_counter()
    process = subprocess.Popen(argv, env=env, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        timer = GLib.timeout_add_seconds(30, loop.quit)
        loop.run()
        if 'at' not in owned:
            raise RuntimeError('%s did not own %s within 30 s' % (argv[0], name))
        GLib.source_remove(timer)
        pending = list(paths)
        while pending:
            if process.poll() is not None:
                raise RuntimeError('%s exited with %d' % (argv[0], process.returncode))
            try:
                bus.call_blocking(name, pending[0], 'org.freedesktop.DBus.Introspectable', 'Introspect', '', [],
                                  timeout=5)
                pending.pop(0)
            except dbus.exceptions.DBusException:
                time.sleep(0.0005)
        return owned['at'] - start, time.perf_counter() - start
    finally:
        match.remove()
        stop(process)
        wait_for_name_gone(bus, name)


# --- the table ---------------------------------------------------------------

def _fmt(value, unit):
    if value is None:
        return ''
    if isinstance(value, str):
        return value
    if unit in ('/s', 'KiB', '') or abs(value) >= 100:
        text = '%.0f' % value
    elif abs(value) >= 10:
        text = '%.1f' % value
    else:
        text = '%.2f' % value
    return '%s %s' % (text, unit) if unit else text


class Table:
    """One table of figures: plinthd's median, the reference's, their ratio."""

    HEADER = ('figure', 'plinthd', 'reference', 'ratio', 'reference is / note')

    def __init__(self):
        self.rows = []
        self.failures = []

    def add(self, figure, mine, reference, unit, against, ratio=None, spread=None, note=''):
        """A measured row. RATIO defaults to MINE / REFERENCE; SPREAD is (q1, q3) of it."""
        if ratio is None and isinstance(mine, (int, float)) and reference:
            ratio = mine / reference
        # Two decimals, but two significant digits for the small ratios some
        # goals are set in (a repeated query at 1/100 of the first).
        ratio_text = '' if ratio is None else ('%.2f' if ratio >= 0.1 else '%.2g') % ratio
        if spread:
            ratio_text += ' (%.2f-%.2f)' % spread
        text = against + ('; ' + note if note else '')
        self.rows.append((figure, _fmt(mine, unit), _fmt(reference, unit), ratio_text, text))
        print('  %s: %s vs %s, ratio %s' % (figure, _fmt(mine, unit), _fmt(reference, unit), ratio_text or '-'),
              flush=True)

    def failed(self, figure, error):
        self.rows.append((figure, 'FAILED', '', '', str(error).splitlines()[0] if str(error) else repr(error)))
        self.failures.append((figure, error))

    def print(self, out=sys.stdout):
        widths = [max(len(row[i]) for row in self.rows + [self.HEADER]) for i in range(len(self.HEADER))]
        lines = [self.HEADER, tuple('-' * w for w in widths)] + self.rows
        for row in lines:
            cells = [row[0].ljust(widths[0]), row[1].rjust(widths[1]), row[2].rjust(widths[2]),
                     row[3].ljust(widths[3]), row[4]]
            out.write('  '.join(cells).rstrip() + '\n')
        out.flush()


# --- the set-up --------------------------------------------------------------

def make_tree(root, entries, files_per_folder):
    """Folders of FILES_PER_FOLDER files of known sizes under ROOT, in groups
    of 100 folders, ENTRIES entries in all; the files' paths."""
    files = []
    made = 0
    folder = 0
    while made < entries:
        path = os.path.join(root, 'group%d' % (folder // 100), 'dir%d' % folder)
        os.makedirs(path)
        made += 1
        for i in range(min(files_per_folder, entries - made)):
            name = os.path.join(path, 'f%d' % i)
            fd = os.open(name, os.O_CREAT | os.O_WRONLY, 0o644)
            os.ftruncate(fd, i * 13)
            os.close(fd)
            files.append(name)
            made += 1
        folder += 1
    return files


class Session:
    """A private system bus with systemd mocked and a real RPM database.

    The daemon runs on the machine's own kernel files, as root, and reads an
    installed-package database of PACKAGES tiny packages (a device has
    thousands). Everything started here is stopped on leaving the block.
    """

    def __init__(self, build, packages):
        self.build = os.path.abspath(build)
        self.plinthd = os.path.join(self.build, 'daemon', 'plinthd')
        self.echoservice = os.path.join(self.build, 'bench', 'echoservice')
        self.packages = packages
        self._processes = []

    def __enter__(self):
        for program in (self.plinthd, self.echoservice):
            if not os.access(program, os.X_OK):
                raise RuntimeError('%s is missing: build the release configuration first' % program)
        self.workdir = tempfile.mkdtemp(prefix='plinthbench.')
        self.system_bus = plinthtest.PrivateSystemBus(self.workdir)
        try:
            self._set_up()
        except BaseException:
            self.__exit__()
            raise
        return self

    def _set_up(self):
        self.address = self.system_bus.start()
        print('building an RPM database of %d packages...' % self.packages, flush=True)
        self.rpm = rpmdb.RpmDatabase(self.workdir)
        self.rpm.install({'bench-package-%05d' % i: 1 for i in range(self.packages)})
        self.env = dict(os.environ, **self.rpm.env())
        self.empty_rpm = rpmdb.RpmDatabase(self.workdir, name='empty-rpm')
        self.empty_env = dict(os.environ, **self.empty_rpm.env())

        systemd, manager = dbusmock.DBusTestCase.spawn_server_template(
            'systemd', {}, stdout=subprocess.DEVNULL, system_bus=True)
        self._processes.append(systemd)
        manager.AddProperty('org.freedesktop.systemd1.Manager', 'Virtualization', '',
                            dbus_interface=dbusmock.MOCK_IFACE)
        self.bus = glib_connection(self.address)

    def __exit__(self, *_):
        for process in reversed(self._processes):
            stop(process)
        self.system_bus.stop()
        shutil.rmtree(self.workdir, ignore_errors=True)

    def keep(self, process):
        """Stops PROCESS with the session."""
        self._processes.append(process)

    def spawn(self, argv, env=None):
        """A process stopped with the session (or earlier, by stop())."""
        process = subprocess.Popen(argv, env=env or self.env, stdin=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        self._processes.append(process)
        return process
