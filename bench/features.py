#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Speed, start-up, idle wake-ups and memory of the Features object.

Part of ./bench, which prints these rows with every other figure of the
project; run alone (as root, after a release build) it prints only its own:

    /usr/bin/python3 bench/features.py [--build build/release] [--packages 2000]
                                       [--calls 1000] [--rounds 31] [--starts 10] [--idle 10]

The reference is bench/echoservice, a minimal Qt D-Bus service answering a
constant string, on the same private bus and driven by the same client. The
daemon reads a real RPM database of --packages tiny packages, and
bench/packagelookup compares the certification probe with a walk over that
whole database. Slow figures are reported, never failed.
"""

import argparse
import os
import re
import signal
import statistics
import subprocess
import sys
import time

import dbus
import dbusmock

import benchlib
import loadclients
import plinthtest

CPU_MODEL = benchlib.features_call('getCpuModel')
RAM_FREE = benchlib.features_call('getRamFreeSize')
LOCALE = benchlib.features_call('getLocale')
ALL_OBJECTS = [path for path, _ in plinthtest.OBJECTS]
USER_MANAGER = 'org.brisaos.usermanager'
# Calls held by the stopped user manager while getCpuModel is timed: almost
# the 128 a connection may have outstanding on a system bus.
HELD_CALLS = 100
HELD_ANSWER_SECONDS = 30
ECHO_OBJECTS = [benchlib.ECHO[1]]


def add_arguments(parser):
    parser.add_argument('--calls', type=int, default=1000, help='calls in each round of a rate')
    parser.add_argument('--rounds', type=int, default=31, help='alternating rounds of each rate')
    parser.add_argument('--starts', type=int, default=10, help='starts of each program for the start times')
    parser.add_argument('--idle', type=float, default=10.0, help='seconds of idling for the wake-ups')


def measure_start(session, table, starts):
    argv = {'plinthd': ([session.plinthd], session.env, plinthtest.BUS_NAME, ALL_OBJECTS),
            'echo': ([session.echoservice], session.env, benchlib.ECHO_NAME, ECHO_OBJECTS),
            'plinthd, no packages': ([session.plinthd], session.empty_env, plinthtest.BUS_NAME, ALL_OBJECTS)}
    runs = benchlib.alternating_rounds(list(argv), starts,
                                       lambda label: benchlib.start_times(session.bus, *argv[label]))
    owned = {label: statistics.median(t[0] for t in times) * 1000 for label, times in runs.items()}
    ready = {label: statistics.median(t[1] for t in times) * 1000 for label, times in runs.items()}
    table.add('exec to bus name owned', owned['plinthd'], owned['echo'], 'ms', 'echo service')
    table.add('exec to all objects answering', ready['plinthd'], ready['echo'], 'ms', 'echo service',
              note='plinthd probes the device first')
    table.add('exec to all objects answering, %d packages' % session.packages, ready['plinthd'],
              ready['plinthd, no packages'], 'ms', 'plinthd with an empty package database')


def measure_package_lookup(session, table):
    program = os.path.join(session.build, 'bench', 'packagelookup')
    result = subprocess.run([program], env=session.env, stdout=subprocess.PIPE, universal_newlines=True)
    found = re.search(r'name index ([\d.]+) ms, whole-database walk ([\d.]+) ms', result.stdout)
    if result.returncode != 0 or not found:
        raise RuntimeError('packagelookup failed: %s' % result.stdout.strip())
    table.add('certification probe, %d packages' % session.packages, float(found.group(1)),
              float(found.group(2)), 'ms', 'walk over the whole package database')


# Replies to the start's own asynchronous calls (telephony, policy manager)
# still come in during the first moments; the idle window starts after them.
SETTLE_SECONDS = 2.0


def measure_idle(table, daemon, echo, seconds):
    """Wake-ups and memory of two services that have started and answered once."""
    time.sleep(SETTLE_SECONDS)
    before = {p.pid: benchlib.voluntary_switches(p.pid) for p in (daemon, echo)}
    time.sleep(seconds)
    after = {p.pid: benchlib.voluntary_switches(p.pid) for p in (daemon, echo)}
    switches = {p.pid: after[p.pid] - before[p.pid] for p in (daemon, echo)}
    table.add('voluntary context switches, %.0f s idle' % seconds, switches[daemon.pid], switches[echo.pid], '',
              'echo service', note='target 0: nothing polls; from %.0f s after the start' % SETTLE_SECONDS)
    rss = benchlib.vm_rss_kib(daemon.pid)
    table.add('idle memory, VmRSS', rss, benchlib.vm_rss_kib(echo.pid), 'KiB', 'echo service')
    table.add('idle memory, PSS', benchlib.pss_kib(daemon.pid), benchlib.pss_kib(echo.pid), 'KiB', 'echo service')
    return rss


def measure_calls(session, table, daemon, calls, rounds, idle_rss):
    bus = session.bus
    targets = {'echo': benchlib.ECHO, 'getCpuModel': CPU_MODEL, 'getRamFreeSize': RAM_FREE}
    labels = list(targets)

    latencies = benchlib.alternating_rounds(
        labels, rounds, lambda label: benchlib.sequential_latencies(bus, targets[label], calls))
    rates = {label: [len(run) / sum(run) for run in runs] for label, runs in latencies.items()}
    in_flight = benchlib.alternating_rounds(
        labels, rounds, lambda label: benchlib.in_flight_rate(bus, targets[label], calls))

    for label in labels[1:]:
        ratio, spread = benchlib.round_ratios(rates[label], rates['echo'])
        table.add('%s calls/s, sequential' % label, statistics.median(rates[label]),
                  statistics.median(rates['echo']), '/s', 'echo service', ratio=ratio, spread=spread)
        ratio, spread = benchlib.round_ratios(in_flight[label], in_flight['echo'])
        table.add('%s calls/s, %d in flight' % (label, benchlib.IN_FLIGHT), statistics.median(in_flight[label]),
                  statistics.median(in_flight['echo']), '/s', 'echo service', ratio=ratio, spread=spread)
    pooled = {label: [t * 1000 for run in runs for t in run] for label, runs in latencies.items()}
    for name, fraction in (('p50', 0.5), ('p99', 0.99)):
        table.add('getCpuModel latency %s' % name, benchlib.percentile(pooled['getCpuModel'], fraction),
                  benchlib.percentile(pooled['echo'], fraction), 'ms', 'echo service')
    # Two methods of the daemon, each in both modes, every round.
    total = 2 * 2 * rounds * calls
    table.add('VmRSS after %d calls' % total, benchlib.vm_rss_kib(daemon.pid), idle_rss, 'KiB',
              'plinthd idle, before the calls')


def start_user_manager(session):
    process = dbusmock.DBusTestCase.spawn_server(USER_MANAGER, '/', USER_MANAGER, system_bus=True,
                                                 stdout=subprocess.DEVNULL)
    session.keep(process)
    mock = dbus.Interface(session.bus.get_object(USER_MANAGER, '/'), dbusmock.MOCK_IFACE)
    mock.AddMethod('', 'currentUser', '', 'u', 'ret = dbus.UInt32(100000)')
    mock.AddMethod('', 'getUserLocale', 'u', 's', "ret = 'en_US.utf8'")
    return process


def latencies_while_held(session, user_manager, calls):
    """CALLS getCpuModel latencies while the user manager is stopped (SIGSTOP)
    with HELD_CALLS getLocale calls waiting for it; then lets it go on and
    checks that every held call got the user's real locale."""
    holder = benchlib.glib_connection(session.address)
    held = []
    os.kill(user_manager.pid, signal.SIGSTOP)
    try:
        for _ in range(HELD_CALLS):
            holder.call_async(*LOCALE, '', [], reply_handler=held.append, error_handler=held.append, timeout=120)
        loadclients.spin(0.5)
        if held:
            raise RuntimeError('%d getLocale calls were answered with the user manager stopped' % len(held))
        latencies = benchlib.sequential_latencies(session.bus, CPU_MODEL, calls)
    finally:
        os.kill(user_manager.pid, signal.SIGCONT)
    loadclients.spin(HELD_ANSWER_SECONDS, lambda: len(held) == HELD_CALLS)
    holder.close()
    if len(held) != HELD_CALLS or any(value != 'en_US' for value in held):
        raise RuntimeError('held getLocale calls were answered %r' % sorted({str(v) for v in held}))
    return latencies


def measure_stalled_peer(session, table, calls, rounds):
    """getCpuModel latency while the user manager is stopped with calls held,
    beside the same with nothing held, in alternating rounds: the main thread
    must not wait for the peer."""
    user_manager = start_user_manager(session)
    benchlib.sequential_latencies(session.bus, LOCALE, 1)
    measures = {'idle': lambda: benchlib.sequential_latencies(session.bus, CPU_MODEL, calls),
                'held': lambda: latencies_while_held(session, user_manager, calls)}
    runs = benchlib.alternating_rounds(list(measures), rounds, lambda label: measures[label]())
    pooled = {label: [t * 1000 for run in found for t in run] for label, found in runs.items()}
    table.add('getCpuModel latency p99, user manager stopped, %d calls held' % HELD_CALLS,
              benchlib.percentile(pooled['held'], 0.99), benchlib.percentile(pooled['idle'], 0.99), 'ms',
              'getCpuModel, nothing held', note='goal: ratio <= 2')


def measure(session, table, args):
    """Every Features figure, into TABLE."""
    sections = (
        ('start times', lambda: measure_start(session, table, args.starts)),
        ('certification probe', lambda: measure_package_lookup(session, table)),
    )
    for figure, run in sections:
        try:
            run()
        except Exception as error:  # a failed run is reported in the table and ends ./bench with 1
            table.failed(figure, error)

    echo = daemon = None
    try:
        echo = session.spawn([session.echoservice])
        daemon = session.spawn([session.plinthd])
        benchlib.wait_for_name(session.bus, benchlib.ECHO_NAME, echo)
        benchlib.wait_for_name(session.bus, plinthtest.BUS_NAME, daemon)
        benchlib.sequential_latencies(session.bus, benchlib.ECHO, 1)
        benchlib.sequential_latencies(session.bus, CPU_MODEL, 1)
        print('idle for %.0f s...' % args.idle, flush=True)
        idle_rss = measure_idle(table, daemon, echo, args.idle)
        print('calls: %d rounds of %d calls...' % (args.rounds, args.calls), flush=True)
        measure_calls(session, table, daemon, args.calls, args.rounds, idle_rss)
    except Exception as error:
        table.failed('Features calls and idle figures', error)
    try:
        if daemon:
            print('getCpuModel with the user manager stopped...', flush=True)
            measure_stalled_peer(session, table, args.calls, args.rounds)
    except Exception as error:
        table.failed('getCpuModel with the user manager stopped', error)
    finally:
        for process in (daemon, echo):
            if process:
                benchlib.stop(process)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split('\n\n')[0])
    parser.add_argument('--build', default=os.path.join(benchlib.SOURCE_DIR, 'build', 'release'))
    parser.add_argument('--packages', type=int, default=2000)
    add_arguments(parser)
    args = parser.parse_args()
    table = benchlib.Table()
    with benchlib.Session(args.build, args.packages) as session:
        measure(session, table, args)
    table.print()
    return 1 if table.failures else 0


if __name__ == '__main__':
    sys.exit(main())
