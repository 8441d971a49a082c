#!/usr/bin/python3
"""getCpuModel latency while system-storage queries walk a big tree.

Makes a tree of about 1,000,000 entries, starts the real daemon on a private
bus with that tree bind-mounted over /var/log (private mount namespace, needs
root), keeps two getSystemStorageInfo queries running at all times, and times
getCpuModel calls meanwhile: the main thread must never wait for a walk.
Prints p50 and p99 latencies, idle and under load; never fails on a figure.

    bench/bench_cpumodel_latency.py [entries]       (run from the build tree's
    PLINTHD_BINARY, else build/release/daemon/plinthd of this checkout)
"""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

SOURCE_DIR = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(SOURCE_DIR, 'tests', 'harness'))

import dbus  # noqa: E402
import plinthtest  # noqa: E402

FILES_PER_DIRECTORY = 1000


def make_tree(root, entries):
    made = 0
    directory = 0
    while made < entries:
        path = os.path.join(root, 'group%d' % (directory // 100), 'dir%d' % directory)
        os.makedirs(path)
        made += 1
        for i in range(min(FILES_PER_DIRECTORY, entries - made)):
            fd = os.open(os.path.join(path, 'f%d' % i), os.O_CREAT | os.O_WRONLY, 0o644)
            os.ftruncate(fd, i * 13)
            os.close(fd)
            made += 1
        directory += 1
    return made


def percentile(values, fraction):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(len(ordered) * fraction))]


def time_calls(features, count):
    latencies = []
    for _ in range(count):
        start = time.perf_counter()
        features.getCpuModel(timeout=30)
        latencies.append((time.perf_counter() - start) * 1000.0)
        time.sleep(0.002)
    return latencies


def main():
    entries = int(sys.argv[1]) if len(sys.argv) > 1 else 1000000
    if os.geteuid() != 0:
        print('needs root for the mount namespace')
        return 1
    os.environ.setdefault('PLINTHD_BINARY', os.path.join(SOURCE_DIR, 'build', 'release', 'daemon', 'plinthd'))
    parent = '/dev/shm' if os.access('/dev/shm', os.W_OK) else None
    workdir = tempfile.mkdtemp(prefix='bench_cpumodel.', dir=parent)
    bus = None
    daemon = None
    walkers = []
    try:
        tree = os.path.join(workdir, 'tree')
        started = time.monotonic()
        made = make_tree(tree, entries)
        print('tree: %d entries (made in %.1f s)' % (made, time.monotonic() - started))

        bus = plinthtest.PrivateSystemBus(workdir)
        bus.start()
        daemon = plinthtest.Daemon(workdir, binds={'/var/log': tree}).start().wait_ready()
        connection = dbus.bus.BusConnection(bus.address)
        features = dbus.Interface(connection.get_object(plinthtest.BUS_NAME, plinthtest.FEATURES_PATH,
                                                        introspect=False), plinthtest.FEATURES_IFACE)

        idle = time_calls(features, 500)

        query = ['dbus-send', '--system', '--print-reply', '--reply-timeout=600000',
                 '--dest=' + plinthtest.BUS_NAME, plinthtest.STORAGES_PATH,
                 plinthtest.STORAGES_IFACE + '.getSystemStorageInfo']
        loop = 'while :; do %s >/dev/null || exit 1; done' % ' '.join(query)
        started = time.monotonic()
        subprocess.run(query, check=True, stdout=subprocess.DEVNULL)
        one_query = time.monotonic() - started
        for _ in range(2):
            walkers.append(subprocess.Popen(['sh', '-c', loop], start_new_session=True))
        time.sleep(0.2)
        loaded = time_calls(features, 1500)

        print('one getSystemStorageInfo over the tree: %.0f ms' % (one_query * 1000.0))
        print('getCpuModel idle:               p50 %.2f ms  p99 %.2f ms' %
              (percentile(idle, 0.5), percentile(idle, 0.99)))
        print('getCpuModel during two walks:   p50 %.2f ms  p99 %.2f ms  (target: p99 under 5 ms)' %
              (percentile(loaded, 0.5), percentile(loaded, 0.99)))
        return 0
    finally:
        for walker in walkers:
            os.killpg(walker.pid, signal.SIGKILL)
            walker.wait()
        if daemon:
            daemon.close()
        if bus:
            bus.stop()
        shutil.rmtree(workdir, ignore_errors=True)


if __name__ == '__main__':
    sys.exit(main())
