#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""What a storage query costs the first time and when it is asked again.

Makes two trees of about ENTRIES entries each (folders of 100 files): one is
bind-mounted over /var/log, the other holds two users' homes (so the user
partition's breakdown walks all of /home too). Starts the real daemon on a
private bus in a private mount namespace (needs root), with a python-dbusmock
user manager, and times getSystemStorageInfo and
getInternalUserPartitionInfo: the first query, the same query repeated on the
unchanged trees, and one query after 100 files were written to. Each time is
the daemon's CPU time (every thread's, from /proc/PID/task/*/schedstat) and
the caller's wall time. The memory that keeping the folders costs is the
daemon's private memory after the queries, less that of a daemon that keeps
nothing (PLINTHD_MAX_FOLDER_WATCHES=0) after the same queries; the watches are
counted in the inotify descriptor's fdinfo.

    bench/bench_repeated_queries.py [--entries 200000] [--repeats 30] [--binary PLINTHD]

Prints the figures; never fails on one.
"""

import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import dbus
import dbusmock

import benchlib
import plinthtest

FILES_PER_FOLDER = 100
CHANGED_FILES = 100
USER_MANAGER = 'org.brisaos.usermanager'
USERS = ((100000, 'alice'), (100001, 'bob'))
FOLDERS = ('Pictures', 'Videos', 'Music', 'Documents', 'Downloads')


def make_folders(root, entries, owner=0):
    """benchlib.make_tree's folders, given to OWNER; the files' paths."""
    files = benchlib.make_tree(root, entries, FILES_PER_FOLDER)
    if owner:
        subprocess.run(['chown', '-R', '%d:%d' % (owner, owner), root], check=True)
    return files


def cpu_seconds(pid):
    """CPU time of every thread PID has now, in seconds."""
    total = 0
    for task in os.listdir('/proc/%d/task' % pid):
        try:
            with open('/proc/%d/task/%s/schedstat' % (pid, task)) as f:
                total += int(f.read().split()[0])
        except OSError:
            pass
    return total / 1e9


def private_kib(pid):
    with open('/proc/%d/smaps_rollup' % pid) as f:
        for line in f:
            if line.startswith(('Private_Dirty:', 'Private_Clean:')):
                yield int(line.split()[1])


def inotify_watches(pid):
    count = 0
    for fd in os.listdir('/proc/%d/fdinfo' % pid):
        try:
            with open('/proc/%d/fdinfo/%s' % (pid, fd)) as f:
                count += sum(1 for line in f if line.startswith('inotify wd:'))
        except OSError:
            pass
    return count


class Bench:
    def __init__(self, workdir, binary, entries):
        self.workdir = workdir
        self.binary = binary
        self.log = os.path.join(workdir, 'log')
        self.home = os.path.join(workdir, 'home')
        started = time.monotonic()
        self.log_files = make_folders(self.log, entries)
        self.home_files = []
        share = entries // (2 * (len(FOLDERS) + 1))
        for uid, name in USERS:
            for folder in FOLDERS + ('',):
                self.home_files += make_folders(os.path.join(self.home, name, folder or 'other'), share, uid)
            os.chown(os.path.join(self.home, name), uid, uid)
        self.entries = entries + share * 2 * (len(FOLDERS) + 1)
        print('trees: %d entries (made in %.1f s)' % (self.entries, time.monotonic() - started), flush=True)
        self.passwd = os.path.join(workdir, 'passwd')
        with open(self.passwd, 'w') as f:
            f.write('root:x:0:0:root:/root:/bin/sh\n')
            for uid, name in USERS:
                f.write('%s:x:%d:%d::/home/%s:/bin/sh\n' % (name, uid, uid, name))

    def start(self, env):
        os.environ['PLINTHD_BINARY'] = self.binary
        daemon = plinthtest.Daemon(self.workdir, env=env, binds={'/var/log': self.log, '/home': self.home,
                                                                  '/etc/passwd': self.passwd})
        return daemon.start().wait_ready()

    def timed(self, storages, daemon, method):
        """(daemon CPU seconds, wall seconds) of one query."""
        cpu = cpu_seconds(daemon.process.pid)
        started = time.perf_counter()
        getattr(storages, method)(timeout=600)
        wall = time.perf_counter() - started
        return cpu_seconds(daemon.process.pid) - cpu, wall

    def touch_files(self, files):
        step = max(1, len(files) // CHANGED_FILES)
        for path in files[::step][:CHANGED_FILES]:
            with open(path, 'ab') as f:
                f.write(b'x')


def median_pair(pairs):
    return statistics.median(p[0] for p in pairs), statistics.median(p[1] for p in pairs)


def measure(entries=200000, repeats=30, binary=None):
    """The figures as a dict: per method, 'first', 'repeated' and 'changed'
    as (cpu s, wall s); 'kept_kib' (memory kept), 'watches', 'entries'."""
    binary = binary or os.path.join(benchlib.SOURCE_DIR, 'build', 'release', 'daemon', 'plinthd')
    parent = '/dev/shm' if os.access('/dev/shm', os.W_OK) else None
    workdir = tempfile.mkdtemp(prefix='bench_repeat.', dir=parent)
    bus = None
    processes = []
    try:
        bench = Bench(workdir, binary, entries)
        bus = plinthtest.PrivateSystemBus(workdir)
        bus.start()
        manager, mock = dbusmock.DBusTestCase.spawn_server(USER_MANAGER, '/', USER_MANAGER, system_bus=True,
                                                            stdout=subprocess.DEVNULL), None
        processes.append(manager)
        connection = dbus.bus.BusConnection(bus.address)
        benchlib.wait_for_name(connection, USER_MANAGER, manager)
        mock = dbus.Interface(connection.get_object(USER_MANAGER, '/'), dbusmock.MOCK_IFACE)
        mock.AddMethod('', 'currentUser', '', 'u', 'ret = dbus.UInt32(%d)' % USERS[0][0])

        figures = {'entries': bench.entries}
        private = {}
        for label, env in (('kept', {}), ('walked', {'PLINTHD_MAX_FOLDER_WATCHES': '0'})):
            daemon = bench.start(env)
            processes.append(daemon)
            storages = dbus.Interface(connection.get_object(plinthtest.BUS_NAME, plinthtest.STORAGES_PATH,
                                                            introspect=False), plinthtest.STORAGES_IFACE)
            for method, files in (('getSystemStorageInfo', bench.log_files),
                                  ('getInternalUserPartitionInfo', bench.home_files)):
                first = bench.timed(storages, daemon, method)
                repeated = [bench.timed(storages, daemon, method) for _ in range(repeats if label == 'kept' else 3)]
                changed = []
                for _ in range(5 if label == 'kept' else 1):
                    bench.touch_files(files)
                    changed.append(bench.timed(storages, daemon, method))
                figures.setdefault(label, {})[method] = {'first': first, 'repeated': median_pair(repeated),
                                                         'changed': median_pair(changed)}
            private[label] = sum(private_kib(daemon.process.pid))
            if label == 'kept':
                figures['watches'] = inotify_watches(daemon.process.pid)
            daemon.close()
            processes.remove(daemon)
        figures['kept_kib'] = private['kept'] - private['walked']
        return figures
    finally:
        for process in processes:
            if isinstance(process, plinthtest.Daemon):
                process.close()
            else:
                benchlib.stop(process)
        if bus:
            bus.stop()
        shutil.rmtree(workdir, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split('\n\n')[0])
    parser.add_argument('--entries', type=int, default=200000)
    parser.add_argument('--repeats', type=int, default=30)
    parser.add_argument('--binary', help='the plinthd to measure (default: build/release of this checkout)')
    args = parser.parse_args()
    if os.geteuid() != 0:
        print('needs root for the mount namespace')
        return 1
    figures = measure(args.entries, args.repeats, args.binary)
    for label in ('kept', 'walked'):
        for method, times in figures[label].items():
            first = times['first']
            for name in ('first', 'repeated', 'changed'):
                cpu, wall = times[name]
                print('%-6s %-29s %-8s cpu %9.3f ms  wall %9.3f ms  cpu ratio to the first %.4f'
                      % (label, method, name, cpu * 1000, wall * 1000, cpu / first[0] if first[0] else 0))
    print('memory kept: %d KiB for %d entries (%.0f KiB per 100,000); %d inotify watches'
          % (figures['kept_kib'], figures['entries'], figures['kept_kib'] * 100000 / figures['entries'],
             figures['watches']))
    return 0


if __name__ == '__main__':
    sys.exit(main())
