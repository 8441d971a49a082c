#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The daemon's folders are layers whose includes only point down.

From the bottom: common/ (shared with the platform classes), platform/ (the
platform classes on Linux), core/ (the shared base of the services), the three
services features/, sim/ and storages/ (which know nothing of each other), and
daemon/ (the entry point, which starts them). A header is placed by the folder
that holds it; the adaptors generated from dbus/ belong to the service that
builds them. docs/architecture.md draws the same picture. No header includes
itself back through others, either: the include graph has no circle.
"""

import os
import re
import unittest

SOURCE_DIR = os.environ.get('PLINTHD_SOURCE_DIR') or os.path.join(os.path.dirname(__file__), '..', '..')

LAYERS = {'common': 0, 'platform': 1, 'core': 2, 'features': 3, 'sim': 3, 'storages': 3, 'daemon': 4}
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.M)
SOURCE_SUFFIXES = ('.h', '.cpp')


def product_files():
    """{file name: (folder, path)} for every source of the daemon's layers."""
    files = {}
    for folder in LAYERS:
        for root, _, names in os.walk(os.path.join(SOURCE_DIR, folder)):
            for name in names:
                if name.endswith(SOURCE_SUFFIXES):
                    files.setdefault(name, []).append((folder, os.path.join(root, name)))
    return files


def includes(path):
    with open(path, encoding='utf-8') as f:
        return [os.path.basename(name) for name in INCLUDE.findall(f.read())]


class LayerTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.files = product_files()
        cls.edges = {}
        for name, places in cls.files.items():
            for folder, path in places:
                cls.edges[path] = [(folder, target) for target in includes(path) if target in cls.files]

    def test_header_names_are_unique(self):
        # Headers are included by their bare names, so one name must mean one file.
        for name, places in self.files.items():
            if name.endswith('.h'):
                self.assertEqual(len(places), 1, '%s is in %s' % (name, [p for _, p in places]))

    def test_includes_point_down(self):
        for path, targets in self.edges.items():
            for folder, target in targets:
                target_folder = self.files[target][0][0]
                if target_folder == folder:
                    continue
                self.assertLess(LAYERS[target_folder], LAYERS[folder],
                                '%s (%s) includes %s (%s)' % (os.path.relpath(path, SOURCE_DIR), folder,
                                                              target, target_folder))

    def test_no_include_circle(self):
        graph = {name: set() for name in self.files if name.endswith('.h')}
        for name in graph:
            path = self.files[name][0][1]
            graph[name] = {target for _, target in self.edges[path] if target.endswith('.h')}
        visiting, done = [], set()

        def visit(name):
            if name in done:
                return
            self.assertNotIn(name, visiting, 'include circle: %s' % ' -> '.join(visiting + [name]))
            visiting.append(name)
            for target in sorted(graph[name]):
                visit(target)
            visiting.pop()
            done.add(name)

        for name in sorted(graph):
            visit(name)


if __name__ == '__main__':
    unittest.main()
