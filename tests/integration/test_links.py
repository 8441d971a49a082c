#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Every library a target of the product links is one it uses.

Read from the link lines the CMakeLists give (the build's target graph,
targets.json; see tests/targetgraph.cmake), not from the built programs: a
target uses a system library when one of its sources includes that library's
headers, and one of our libraries when it includes one of that library's
headers. Since every link is used where it is made, what a service ends up
linking, through all its links, is what it uses; the Features service, which
asks for no partitions and no SIM, links neither libudev, libmount, dconf nor
libqofono. The tests and benchmarks link as they need and are not held to it.
"""

import os
import re
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'harness'))
import targetgraph  # noqa: E402

# What a source includes when it uses each system library the product links.
# A new one must be added here, which says what it is for.
SYSTEM_HEADERS = {
    'Qt5::DBus': r'^QDBus|^QtDBus',
    'Qt5::Multimedia': r'^QCamera|^QMedia|^QtMultimedia',
    'Qt5::Qml': r'^QQml|^QtQml|^QJS',
    'Threads::Threads': r'^(thread|pthread\.h|condition_variable)$',
    'PkgConfig::DCONF': r'^(dconf\.h|glib\.h)$',
    'PkgConfig::FONTCONFIG': r'^fontconfig/',
    'PkgConfig::LIBMOUNT': r'^libmount/',
    'PkgConfig::LIBUDEV': r'^libudev\.h$',
    'PkgConfig::QOFONO': r'^qofono',
    'PkgConfig::RPM': r'^rpm/',
}
# Every Qt program is a Qt Core program; the ThreadSanitizer build links its
# annotations of QMutex into every target (see the top CMakeLists.txt).
IMPLIED = {'Qt5::Core', 'plinth_tsan_qt'}
# Folders whose targets link as they need.
TEST_FOLDERS = ('tests', 'bench')
SERVICES = ('plinth_features', 'plinth_sim', 'plinth_storages')
# What the issue of a service's link line is about: the system libraries of
# the platform libraries it does not ask.
NOT_LINKED = {
    'plinth_features': {'PkgConfig::LIBMOUNT', 'PkgConfig::LIBUDEV', 'PkgConfig::DCONF', 'PkgConfig::QOFONO'},
    'plinth_sim': {'PkgConfig::LIBMOUNT', 'PkgConfig::LIBUDEV', 'PkgConfig::FONTCONFIG'},
    'plinth_storages': {'PkgConfig::DCONF', 'PkgConfig::QOFONO', 'PkgConfig::FONTCONFIG'},
}


class LinkTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.graph = targetgraph.TargetGraph()
        cls.headers = {}
        for name, target in cls.graph.targets.items():
            cls.headers[name] = {os.path.basename(source) for source in target['SOURCES'] if source.endswith('.h')}
            # An interface library (the key table, a platform library's
            # internals) offers the headers of the folders it puts on the
            # include path.
            if target['type'] == 'INTERFACE_LIBRARY':
                for folder in cls.graph.interface_include_dirs(name):
                    cls.headers[name] |= {entry for entry in os.listdir(folder) if entry.endswith('.h')}

    def product_targets(self):
        return [name for name, target in self.graph.targets.items()
                if target['type'] != 'INTERFACE_LIBRARY'
                and self.graph.folder(name).split(os.sep)[0] not in TEST_FOLDERS]

    def included(self, name):
        """The names the target's own sources include, generated ones included."""
        names = set()
        target = self.graph.targets[name]
        for source in target['SOURCES']:
            path = source if os.path.isabs(source) else os.path.join(target['dir'], source)
            if os.path.exists(path) and path.endswith(('.h', '.cpp')):
                names |= set(targetgraph.includes(path))
        return names

    def uses(self, name, link):
        included = self.included(name)
        if link in IMPLIED:
            return True
        if link in self.graph.targets:
            return bool({os.path.basename(i) for i in included} & self.headers[link])
        self.assertIn(link, SYSTEM_HEADERS, '%s links %s, which test_links.py does not know: add the headers '
                      'that use it to SYSTEM_HEADERS' % (name, link))
        return any(re.search(SYSTEM_HEADERS[link], i) for i in included)

    def test_every_link_is_used(self):
        checked = 0
        for name in self.product_targets():
            for link in self.graph.direct_links(name):
                self.assertTrue(self.uses(name, link),
                                '%s (%s) links %s, but none of its sources includes what it offers'
                                % (name, self.graph.folder(name), link))
                checked += 1
        self.assertGreater(checked, 20)

    def test_services_link_only_the_platform_libraries_they_include(self):
        for service in SERVICES:
            closure = self.graph.link_closure(service)
            system = {link for link in closure if link not in self.graph.targets}
            self.assertFalse(system & NOT_LINKED[service],
                             '%s links %s' % (service, sorted(system & NOT_LINKED[service])))
            for link in closure:
                if link.startswith('plinth_platform_'):
                    self.assertTrue(self.uses(service, link),
                                    '%s links %s without including its headers' % (service, link))


if __name__ == '__main__':
    unittest.main()
