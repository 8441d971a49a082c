# SPDX-License-Identifier: BSD-3-Clause
"""The storage rows of bench/run: the directory walk against du, the package
sum against rpm -qa, Features latency while storage queries walk a large
tree, and repeated storage queries against the first.

The first two come from the C++ programs bench_directorysize and
bench_packagesizes of the build (they check their own figure against the
reference tool's, and that check failing fails the run); the third from
bench_cpumodel_latency.py, the last from bench_repeated_queries.py.
"""

import os
import re
import subprocess

import benchlib
import bench_cpumodel_latency
import bench_repeated_queries


def _run(program, arguments):
    result = subprocess.run([program] + arguments, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            universal_newlines=True)
    if result.returncode != 0:
        raise RuntimeError('%s exited with %d: %s' % (os.path.basename(program), result.returncode,
                                                      result.stdout.strip()[-300:]))
    return result.stdout


def _number(pattern, text, what):
    found = re.search(pattern, text, re.M)
    if not found:
        raise RuntimeError('no %s in the output:\n%s' % (what, text))
    return float(found.group(1))


def measure_walk(build, table, entries):
    output = _run(os.path.join(build, 'bench', 'bench_directorysize'), ['/tmp', str(entries)])
    if 'DIFFERS' in output:
        raise RuntimeError('the walk and the plain QDir walk disagree:\n' + output)
    made = int(_number(r'^tree: (\d+) entries', output, 'tree size'))
    du = _number(r'^du -s -b --apparent-size\s+([\d.]+) ms', output, 'du time')
    for threads, label in (('two threads', 'two threads'), ('one thread', 'one thread')):
        walk = _number(r'^directorySize, %s\s+([\d.]+) ms' % threads, output, 'walk time')
        table.add('directory walk, %d entries, %s' % (made, label), walk, du, 'ms', 'du -s -b --apparent-size')


def measure_package_sum(build, table, packages):
    output = _run(os.path.join(build, 'bench', 'bench_packagesizes'), [str(packages)])
    if 'DIFFERS' in output:
        raise RuntimeError('the package sum and rpm disagree:\n' + output)
    tool = _number(r"^rpm -qa .*?\s([\d.]+) ms", output, 'rpm time')
    ours = _number(r'^packagesSize\("tarn-\*"\)\s+([\d.]+) ms', output, 'sum time')
    table.add('package sum "tarn-*", %d packages' % packages, ours, tool, 'ms', "rpm -qa --qf '%{SIZE}' 'tarn-*'")


def measure_latency_during_walks(build, table, entries):
    figures = bench_cpumodel_latency.measure(entries, os.path.join(build, 'daemon', 'plinthd'))
    idle, loaded = figures['idle'], figures['loaded']
    table.add('getSystemStorageInfo over %d entries' % figures['entries'], figures['one_query_ms'],
              figures['du_ms'], 'ms', 'du -s -b --apparent-size of the tree', note='the whole query')
    for name, fraction in (('p50', 0.5), ('p99', 0.99)):
        table.add('getCpuModel latency %s, two walks running' % name, benchlib.percentile(loaded, fraction),
                  benchlib.percentile(idle, fraction), 'ms', 'getCpuModel with no walk')


def measure_repeated_queries(build, table, entries):
    figures = bench_repeated_queries.measure(entries, binary=os.path.join(build, 'daemon', 'plinthd'))
    made = figures['entries']
    for method, times in figures['kept'].items():
        first_cpu, first_wall = times['first']
        for name, label in (('repeated', 'repeated'),
                            ('changed', 'after %d files changed' % bench_repeated_queries.CHANGED_FILES)):
            cpu, wall = times[name]
            table.add('%s %s, %d entries, daemon CPU' % (method, label, made), cpu * 1000.0, first_cpu * 1000.0,
                      'ms', 'the first query', note='goal <= 0.01' if name == 'repeated' else '')
            table.add('%s %s, %d entries, wall' % (method, label, made), wall * 1000.0, first_wall * 1000.0,
                      'ms', 'the first query')
    table.add('memory kept per 100,000 entries walked', figures['kept_kib'] * 100000.0 / made, None, 'KiB',
              'a daemon that keeps nothing', note='goal <= 2048 KiB; %d inotify watches' % figures['watches'])


def measure(build, table, walk_entries, packages, tree_entries):
    """Every storage figure, into TABLE; a failed one is a FAILED row."""
    for figure, run in (
            ('directory walk', lambda: measure_walk(build, table, walk_entries)),
            ('package sum', lambda: measure_package_sum(build, table, packages)),
            ('getCpuModel latency during storage walks',
             lambda: measure_latency_during_walks(build, table, tree_entries)),
            ('repeated storage queries', lambda: measure_repeated_queries(build, table, walk_entries))):
        print('%s...' % figure, flush=True)
        try:
            run()
        except Exception as error:  # reported in the table; ./bench then exits with 1
            table.failed(figure, error)
