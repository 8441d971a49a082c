#!/usr/bin/python3
"""Speed, start-up, idle wake-ups and memory of the Features object.

Run by hand, as root, after a release build (it is not part of CTest):

    /usr/bin/python3 bench/features.py [--build build/release] [--packages 2000]
                                       [--calls 2000] [--rounds 21] [--starts 20] [--idle 10]

Everything runs on a private system bus of its own, with systemd mocked, and
the daemon reads a real RPM database of --packages tiny packages (ready time is
also shown with an empty one, and bench/packagelookup compares the
certification probe with a walk over the whole database). Throughput is
measured for getCpuModel and getRamFreeSize against bench/echoservice (a
minimal Qt D-Bus service answering a constant string) on the same bus with the
same client, one call at a time and with 64 calls in flight, and printed as a
ratio to the echo service measured in the same run. Slow figures are reported,
never failed.
"""

import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, '..', 'tests', 'harness'))

import dbus  # noqa: E402
import dbus.mainloop.glib  # noqa: E402
import dbusmock  # noqa: E402
from gi.repository import GLib  # noqa: E402

import plinthtest  # noqa: E402
import rpmdb  # noqa: E402

ECHO = ('org.norvu.plinth.bench.Echo', '/org/norvu/plinth/bench/Echo', 'org.norvu.plinth.bench.Echo', 'echo')
CPU_MODEL = (plinthtest.BUS_NAME, plinthtest.FEATURES_PATH, plinthtest.FEATURES_IFACE, 'getCpuModel')
RAM_FREE = (plinthtest.BUS_NAME, plinthtest.FEATURES_PATH, plinthtest.FEATURES_IFACE, 'getRamFreeSize')
IN_FLIGHT = 64


def sequential_rate(bus, target, calls):
    name, path, iface, method = target
    bus.call_blocking(name, path, iface, method, '', [])
    start = time.perf_counter()
    for _ in range(calls):
        bus.call_blocking(name, path, iface, method, '', [])
    return calls / (time.perf_counter() - start)


def in_flight_rate(bus, target, calls, depth=IN_FLIGHT):
    """Keeps DEPTH calls outstanding until CALLS replies have come back."""
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


def quartiles(values):
    cuts = statistics.quantiles(values, n=4) if len(values) > 1 else [values[0]] * 3
    return cuts[0], cuts[2]


def context_switches(pid):
    """Voluntary and involuntary switches of every thread of PID."""
    total = 0
    for task in os.listdir('/proc/%d/task' % pid):
        with open('/proc/%d/task/%s/status' % (pid, task)) as f:
            for line in f:
                if line.startswith(('voluntary_ctxt_switches', 'nonvoluntary_ctxt_switches')):
                    total += int(line.split()[1])
    return total


def pss_kib(pid):
    with open('/proc/%d/smaps_rollup' % pid) as f:
        for line in f:
            if line.startswith('Pss:'):
                return int(line.split()[1])
    return 0


def wait_for_name(bus, name, process, timeout=30):
    deadline = time.monotonic() + timeout
    while not bus.name_has_owner(name):
        if process.poll() is not None or time.monotonic() > deadline:
            raise RuntimeError('%s did not appear' % name)
        time.sleep(0.001)


def ready_time(plinthd, env, bus):
    """Seconds from exec until all three objects answer Introspect."""
    start = time.perf_counter()
    process = subprocess.Popen([plinthd], env=env, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        pending = [path for path, _ in plinthtest.OBJECTS]
        while pending:
            if process.poll() is not None:
                raise RuntimeError('plinthd exited with %d' % process.returncode)
            try:
                bus.call_blocking(plinthtest.BUS_NAME, pending[0], 'org.freedesktop.DBus.Introspectable',
                                  'Introspect', '', [], timeout=5)
                pending.pop(0)
            except dbus.exceptions.DBusException:
                time.sleep(0.0005)
        return time.perf_counter() - start
    finally:
        process.terminate()
        process.wait()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split('\n\n')[0])
    parser.add_argument('--build', default=os.path.join(HERE, '..', 'build', 'release'))
    parser.add_argument('--packages', type=int, default=2000)
    parser.add_argument('--calls', type=int, default=2000)
    parser.add_argument('--rounds', type=int, default=21)
    parser.add_argument('--starts', type=int, default=20)
    parser.add_argument('--idle', type=float, default=10.0)
    args = parser.parse_args()
    plinthd = os.path.join(args.build, 'daemon', 'plinthd')
    echoservice = os.path.join(args.build, 'bench', 'echoservice')

    workdir = tempfile.mkdtemp(prefix='plinthbench.')
    system_bus = plinthtest.PrivateSystemBus(workdir)
    processes = []
    try:
        address = system_bus.start()
        print('building an RPM database of %d packages...' % args.packages, flush=True)
        db = rpmdb.RpmDatabase(workdir)
        db.install({'bench-package-%05d' % i: 1 for i in range(args.packages)})
        env = dict(os.environ, **db.env())

        systemd, manager = dbusmock.DBusTestCase.spawn_server_template(
            'systemd', {}, stdout=subprocess.DEVNULL, system_bus=True)
        processes.append(systemd)
        manager.AddProperty('org.freedesktop.systemd1.Manager', 'Virtualization', '',
                            dbus_interface=dbusmock.MOCK_IFACE)

        bus = dbus.bus.BusConnection(address, mainloop=dbus.mainloop.glib.DBusGMainLoop())

        empty = rpmdb.RpmDatabase(workdir, name='empty-rpm')
        empty_env = dict(os.environ, **empty.env())
        big, small = [], []
        for _ in range(args.starts):
            big.append(ready_time(plinthd, env, bus))
            small.append(ready_time(plinthd, empty_env, bus))
        print('ready time (exec until the three objects answer), median of %d starts:' % args.starts)
        print('  %5d packages: %.1f ms (min %.1f, max %.1f)'
              % (args.packages, 1000 * statistics.median(big), 1000 * min(big), 1000 * max(big)))
        print('      0 packages: %.1f ms (min %.1f, max %.1f); ratio %.2f'
              % (1000 * statistics.median(small), 1000 * min(small), 1000 * max(small),
                 statistics.median(big) / statistics.median(small)))
        subprocess.run([os.path.join(args.build, 'bench', 'packagelookup')], env=env, check=False)

        echo = subprocess.Popen([echoservice], env=env, stdin=subprocess.DEVNULL)
        processes.append(echo)
        daemon = subprocess.Popen([plinthd], env=env, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        processes.append(daemon)
        wait_for_name(bus, ECHO[0], echo)
        wait_for_name(bus, plinthtest.BUS_NAME, daemon)

        # Short measurements alternate between the services, in a rotating
        # order, and each ratio is taken within its round: drifts of a shared
        # machine (other load, frequency) then reach both sides of a ratio
        # alike. Medians over the rounds are shown.
        print('calls per second, %d rounds of %d calls each; median ratio to the echo service within a round:'
              % (args.rounds, args.calls))
        targets = (('echo', ECHO), ('getCpuModel', CPU_MODEL), ('getRamFreeSize', RAM_FREE))
        for mode, measure in (('sequential', sequential_rate), ('%d in flight' % IN_FLIGHT, in_flight_rate)):
            rates = {label: [] for label, _ in targets}
            for round_index in range(args.rounds):
                shift = round_index % len(targets)
                for label, target in targets[shift:] + targets[:shift]:
                    rates[label].append(measure(bus, target, args.calls))
            for label, _ in targets[1:]:
                ratios = [mine / echo for mine, echo in zip(rates[label], rates['echo'])]
                print('  %-14s %-12s %8.0f /s   echo %8.0f /s   ratio %.2f (quartiles %.2f-%.2f)'
                      % (label, mode, statistics.median(rates[label]), statistics.median(rates['echo']),
                         statistics.median(ratios), *quartiles(ratios)))

        print('idle for %.0f s...' % args.idle, flush=True)
        before = {p.pid: context_switches(p.pid) for p in (daemon, echo)}
        time.sleep(args.idle)
        after = {p.pid: context_switches(p.pid) for p in (daemon, echo)}
        print('idle wake-ups (context switches of all threads) over %.0f s: plinthd %d, echo service %d'
              % (args.idle, after[daemon.pid] - before[daemon.pid], after[echo.pid] - before[echo.pid]))
        print('proportional memory (PSS): plinthd %d KiB, echo service %d KiB'
              % (pss_kib(daemon.pid), pss_kib(echo.pid)))
    finally:
        for process in reversed(processes):
            process.terminate()
            process.wait()
        system_bus.stop()
        shutil.rmtree(workdir, ignore_errors=True)


if __name__ == '__main__':
    main()
