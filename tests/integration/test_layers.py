#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The daemon's folders are layers whose includes only point down.

From the bottom: common/ (shared with the platform classes) and dbus/ (the
interfaces and the keys of their maps, mapkeys.h), platform/ (the platform
classes on Linux), core/ (the shared base of the services), the three services
features/, sim/ and storages/ (which know nothing of each other), and daemon/
(the entry point, which starts them). A header is placed by the folder
that holds it; the adaptors generated from dbus/ belong to the service that
builds them. docs/architecture.md draws the same picture. No header includes
itself back through others, either: the include graph has no circle.

platform/ holds one library a folder, each standing in for one platform
library. What a library's include/ folder holds is what its users may include;
the rest of its folder is its own. So no file outside a library includes one of
its private headers, and no target but the library has that folder on its
include path, except the tests and benchmarks that link the library's
_internals target to test its helpers. The libraries do not include each other
either, but for the one use the table PLATFORM_USES names; the daemon is what
brings them together. The include paths and links are read from the build's
target graph (targets.json, see tests/targetgraph.cmake).
"""

import os
import re
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'harness'))
import targetgraph  # noqa: E402

SOURCE_DIR = os.environ.get('PLINTHD_SOURCE_DIR') or os.path.join(os.path.dirname(__file__), '..', '..')

LAYERS = {'common': 0, 'dbus': 0, 'platform': 1, 'core': 2, 'features': 3, 'sim': 3, 'storages': 3, 'daemon': 4}
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.M)
SOURCE_SUFFIXES = ('.h', '.cpp')
PLATFORM_DIR = os.path.join(targetgraph.SOURCE_DIR, 'platform')
# Where a platform library uses another, as a user of the other's installed
# headers would: the SIM chosen for voice calls, which the modem manager
# answers, is a configuration item.
PLATFORM_USES = {'telephony': {'settings'}}
# Folders whose targets may link a platform library's _internals.
TEST_FOLDERS = ('tests', 'bench')


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


def platform_libraries():
    """{library: (folder, {public header names}, {private header names})}."""
    libraries = {}
    for name in sorted(os.listdir(PLATFORM_DIR)):
        folder = os.path.join(PLATFORM_DIR, name)
        if not os.path.isdir(folder):
            continue
        public, private = set(), set()
        for root, _, names in os.walk(folder):
            headers = {n for n in names if n.endswith('.h')}
            if os.path.relpath(root, folder).split(os.sep)[0] == 'include':
                public |= headers
            else:
                private |= headers
        libraries[name] = (os.path.realpath(folder), public, private)
    return libraries


def is_test_folder(folder):
    return folder.split(os.sep)[0] in TEST_FOLDERS


class PlatformLibraryTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.graph = targetgraph.TargetGraph()
        cls.libraries = platform_libraries()
        cls.private_owner = {header: library for library, (_, _, private) in cls.libraries.items()
                             for header in private}
        cls.public_owner = {header: library for library, (_, public, _) in cls.libraries.items()
                            for header in public}

    def library_of(self, path):
        for library, (folder, _, _) in self.libraries.items():
            if path.startswith(folder + os.sep):
                return library
        return None

    def test_every_folder_is_a_library(self):
        for library, (folder, public, _) in self.libraries.items():
            self.assertTrue(public, 'platform/%s has no include/ folder of public headers' % library)
            self.assertIn('plinth_platform_' + library, self.graph, 'platform/%s builds no library' % library)

    def test_private_folders_are_on_no_other_include_path(self):
        for target in self.graph.targets:
            links = self.graph.direct_links(target)
            for directory in self.graph.include_dirs(target):
                library = self.library_of(directory + os.sep)
                if library is None or directory.endswith(os.sep + 'include'):
                    continue
                if target == 'plinth_platform_' + library:
                    continue
                self.assertTrue(is_test_folder(self.graph.folder(target))
                                and 'plinth_platform_%s_internals' % library in links,
                                '%s (%s) has the private folder of platform/%s on its include path'
                                % (target, self.graph.folder(target), library))

    def test_internals_are_linked_by_tests_only(self):
        for target in self.graph.targets:
            for link in self.graph.direct_links(target):
                if link.startswith('plinth_platform_') and link.endswith('_internals'):
                    self.assertTrue(is_test_folder(self.graph.folder(target)),
                                    '%s (%s) links %s' % (target, self.graph.folder(target), link))

    def test_no_file_includes_another_librarys_private_header(self):
        # The tests and benchmarks are held to it through their targets' links;
        # those this build does not make (the fuzz targets in the
        # ThreadSanitizer build) are held to it by the builds that make them.
        allowed, built = {}, set()
        for target in self.graph.targets:
            if not is_test_folder(self.graph.folder(target)):
                continue
            built |= set(self.graph.sources(target))
            for link in self.graph.direct_links(target):
                match = re.match(r'^plinth_platform_(\w+)_internals$', link)
                if match:
                    for path in self.graph.sources(target):
                        allowed.setdefault(path, set()).add(match.group(1))
        for folder in list(LAYERS) + list(TEST_FOLDERS):
            for root, _, names in os.walk(os.path.join(SOURCE_DIR, folder)):
                for name in names:
                    if not name.endswith(SOURCE_SUFFIXES):
                        continue
                    path = os.path.realpath(os.path.join(root, name))
                    if is_test_folder(folder) and name.endswith('.cpp') and path not in built:
                        continue
                    own = self.library_of(path)
                    for target in includes(path):
                        library = self.private_owner.get(target)
                        if library is None or library == own:
                            continue
                        self.assertIn(library, allowed.get(path, set()),
                                      '%s includes %s, private to platform/%s'
                                      % (os.path.relpath(path, SOURCE_DIR), target, library))

    def test_libraries_use_each_other_only_where_said(self):
        for library, (folder, _, _) in self.libraries.items():
            used = set()
            for root, _, names in os.walk(folder):
                for name in names:
                    if name.endswith(SOURCE_SUFFIXES):
                        used |= {self.public_owner[target] for target in includes(os.path.join(root, name))
                                 if self.public_owner.get(target, library) != library}
            self.assertEqual(used, PLATFORM_USES.get(library, set()),
                             'platform/%s includes the headers of %s' % (library, sorted(used)))
            linked = {link[len('plinth_platform_'):] for link in self.graph.direct_links('plinth_platform_' + library)
                      if link.startswith('plinth_platform_')}
            self.assertEqual(linked, used, 'plinth_platform_%s links %s' % (library, sorted(linked)))


if __name__ == '__main__':
    unittest.main()
