#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""getCpuModel latency while system-storage queries walk a big tree.

Makes a tree of about 1,000,000 entries, starts the real daemon on a private
bus with that tree bind-mounted over /var/log (private mount namespace, needs
root) keeping no folders between queries, keeps two getSystemStorageInfo
queries (and so two walks) running at all times, and times getCpuModel calls
meanwhile: the main thread must never wait for a walk.
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

import benchlib
import dbus
import plinthtest

FILES_PER_DIRECTORY = 1000


def time_calls(features, count):
    latencies = []
    for _ in range(count):
        start = time.perf_counter()
        features.getCpuModel(timeout=30)
        latencies.append((time.perf_counter() - start) * 1000.0)
        time.sleep(0.002)
    return latencies


def measure(entries, binary=None):
    """Times getCpuModel idle and during two endless walks of a tree of ENTRIES.

    Returns {'entries', 'one_query_ms', 'du_ms', 'idle', 'loaded'}, the last two
    being lists of call latencies in ms; du_ms is `du -s -b --apparent-size`
    over the same tree, warm, for scale.
    """
    if binary:
        os.environ['PLINTHD_BINARY'] = binary
    os.environ.setdefault('PLINTHD_BINARY', os.path.join(benchlib.SOURCE_DIR, 'build', 'release', 'daemon', 'plinthd'))
    parent = '/dev/shm' if os.access('/dev/shm', os.W_OK) else None
    workdir = tempfile.mkdtemp(prefix='bench_cpumodel.', dir=parent)
    bus = None
    daemon = None
    walkers = []
    try:
        tree = os.path.join(workdir, 'tree')
        started = time.monotonic()
        benchlib.make_tree(tree, entries, FILES_PER_DIRECTORY)
        made = entries
        print('tree: %d entries (made in %.1f s)' % (made, time.monotonic() - started), flush=True)

        bus = plinthtest.PrivateSystemBus(workdir)
        bus.start()
        # Keeping nothing between queries, so that every query walks the tree
        # again: the walks are the load this measures.
        daemon = plinthtest.Daemon(workdir, binds={'/var/log': tree},
                                   env={'PLINTHD_MAX_FOLDER_WATCHES': '0'}).start().wait_ready()
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
        du = ['du', '-s', '-b', '--apparent-size', tree]
        subprocess.run(du, check=True, stdout=subprocess.DEVNULL)
        started = time.monotonic()
        subprocess.run(du, check=True, stdout=subprocess.DEVNULL)
        du_time = time.monotonic() - started
        for _ in range(2):
            walkers.append(subprocess.Popen(['sh', '-c', loop], start_new_session=True))
        time.sleep(0.2)
        loaded = time_calls(features, 1500)
        for walker in walkers:
            if walker.poll() is not None:
                raise RuntimeError('a storage query failed during the measurement')
        return {'entries': made, 'one_query_ms': one_query * 1000.0, 'du_ms': du_time * 1000.0,
                'idle': idle, 'loaded': loaded}
    finally:
        for walker in walkers:
            os.killpg(walker.pid, signal.SIGKILL)
            walker.wait()
        if daemon:
            daemon.close()
        if bus:
            bus.stop()
        shutil.rmtree(workdir, ignore_errors=True)


def main():
    entries = int(sys.argv[1]) if len(sys.argv) > 1 else 1000000
    if os.geteuid() != 0:
        print('needs root for the mount namespace')
        return 1
    figures = measure(entries)
    idle, loaded = figures['idle'], figures['loaded']
    print('one getSystemStorageInfo over the tree: %.0f ms (du: %.0f ms)' % (figures['one_query_ms'],
                                                                            figures['du_ms']))
    print('getCpuModel idle:               p50 %.2f ms  p99 %.2f ms' %
          (benchlib.percentile(idle, 0.5), benchlib.percentile(idle, 0.99)))
    print('getCpuModel during two walks:   p50 %.2f ms  p99 %.2f ms  (target: p99 under 5 ms)' %
          (benchlib.percentile(loaded, 0.5), benchlib.percentile(loaded, 0.99)))
    return 0


if __name__ == '__main__':
    sys.exit(main())
