#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The partition rows of bench/run: the system calls one getInternalStorageInfo
and one getExternalStorageInfo cost the daemon on an unchanged device, with 8
and with 32 unmounted loop devices attached (tests/harness/loopdevices.py),
counted with strace over every thread of the daemon. The reference of each
row is the same query with 8 devices: a ratio of 1.00 means that devices that
did not change cost nothing.

Run alone against any build (for example one of an older commit):

    /usr/bin/python3 bench/partitions.py [--build build/release]
"""

import argparse
import os
import shutil
import statistics
import sys
import tempfile

import benchlib

import dbus  # noqa: E402
import loopdevices  # noqa: E402
import plinthtest  # noqa: E402
import syscallcount  # noqa: E402

QUESTIONS = ('getInternalStorageInfo', 'getExternalStorageInfo')
FEW, MANY = 8, 32
ROUNDS = 5
LOOP_BYTES = 4 * 1024 * 1024


def _block_devices():
    return len(os.listdir('/sys/class/block'))


def _costs(pid, storages):
    """The median count of each question, after one call that absorbs any
    change announced before."""
    costs = {}
    for question in QUESTIONS:
        call = getattr(storages, question)
        call()
        costs[question] = statistics.median(syscallcount.count(pid, call).total for _ in range(ROUNDS))
    return costs


def measure_query_costs(build, table):
    reason = loopdevices.unavailable() or syscallcount.unavailable() or plinthtest.namespace_unavailable()
    if reason:
        raise RuntimeError(reason)
    workdir = tempfile.mkdtemp(prefix='plinthbench.')
    bus = plinthtest.PrivateSystemBus(workdir)
    loops = loopdevices.LoopDevices(workdir)
    daemon = None
    try:
        address = bus.start()
        reason = loops.cannot_attach()
        if reason:
            raise RuntimeError(reason)
        for _ in range(FEW):
            loops.attach(LOOP_BYTES, filesystems=False)
        daemon = plinthtest.Daemon(workdir, binary=os.path.join(build, 'daemon', 'plinthd'), namespace=True)
        daemon.start()
        daemon.wait_ready()
        connection = dbus.bus.BusConnection(address)
        storages = dbus.Interface(connection.get_object(plinthtest.BUS_NAME, plinthtest.STORAGES_PATH,
                                                        introspect=False), plinthtest.STORAGES_IFACE)
        few_devices = _block_devices()
        few = _costs(daemon.process.pid, storages)
        for _ in range(MANY - FEW):
            loops.attach(LOOP_BYTES, filesystems=False)
        many_devices = _block_devices()
        many = _costs(daemon.process.pid, storages)
        connection.close()
        for question in QUESTIONS:
            table.add('system calls per %s, %d unmounted loop devices' % (question, MANY), many[question],
                      few[question], '', 'the same with %d' % FEW,
                      note='%d and %d block devices in all' % (many_devices, few_devices))
    finally:
        if daemon:
            daemon.close()
        try:
            loops.close()
        finally:
            bus.stop()
            shutil.rmtree(workdir, ignore_errors=True)


def measure(build, table):
    """The rows, into TABLE; a failed one is a FAILED row."""
    print('system calls per query...', flush=True)
    try:
        measure_query_costs(build, table)
    except Exception as error:  # reported in the table; ./bench then exits with 1
        table.failed('system calls per query', error)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split('\n\n')[0])
    parser.add_argument('--build', default=os.path.join(benchlib.SOURCE_DIR, 'build', 'release'))
    args = parser.parse_args()
    table = benchlib.Table()
    measure(os.path.abspath(args.build), table)
    print()
    table.print()
    return 1 if table.failures else 0


if __name__ == '__main__':
    sys.exit(main())
