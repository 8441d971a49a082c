#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Every benchmark figure of plinthd as one table; run by ./bench.

    /usr/bin/python3 bench/report.py [--build build/release] [--packages 2000] [--quick]
                                     [Features options, see bench/features.py]

Each row is a median of plinthd beside the median of a reference measured in
the same run, and their ratio (for rates, the median of the ratios taken
within alternating rounds, with their quartiles). The exit status is 1 only
when a measurement could not be made; a slow figure is never a failure.
"""

import argparse
import os
import sys

import benchlib
import features
import partitions
import storage


def main():
    parser = argparse.ArgumentParser(description=__doc__.split('\n\n')[0])
    parser.add_argument('--build', default=os.path.join(benchlib.SOURCE_DIR, 'build', 'release'))
    parser.add_argument('--packages', type=int, default=2000, help='packages in the RPM database')
    parser.add_argument('--quick', action='store_true', help='fewer rounds and a shorter idle, for a try-out')
    parser.add_argument('--walk-entries', type=int, default=200000, help='entries of the tree walked against du')
    parser.add_argument('--tree-entries', type=int, default=1000000,
                        help='entries of the tree the storage queries walk while getCpuModel is timed')
    features.add_arguments(parser)
    args = parser.parse_args()
    if args.quick:
        args.calls, args.rounds, args.starts, args.idle, args.packages = 500, 3, 3, 2.0, 200
        args.walk_entries, args.tree_entries = 20000, 50000

    table = benchlib.Table()
    try:
        with benchlib.Session(args.build, args.packages) as session:
            features.measure(session, table, args)
    except Exception as error:
        table.failed('bench set-up', error)
    storage.measure(os.path.abspath(args.build), table, args.walk_entries, args.packages, args.tree_entries)
    partitions.measure(os.path.abspath(args.build), table)

    print()
    table.print()
    for figure, error in table.failures:
        print('failed: %s: %s' % (figure, error), file=sys.stderr)
    return 1 if table.failures else 0


if __name__ == '__main__':
    sys.exit(main())
