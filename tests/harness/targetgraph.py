# SPDX-License-Identifier: BSD-3-Clause
"""The build's targets as the CMakeLists declare them (targets.json, written by
tests/targetgraph.cmake), and the include graph of the sources: what the tests
of the tree read instead of the built programs."""

import json
import os
import re

SOURCE_DIR = os.path.realpath(os.environ.get('PLINTHD_SOURCE_DIR')
                              or os.path.join(os.path.dirname(__file__), '..', '..'))
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.M)

# The generator expressions the graph holds: a link that only links (no usage
# requirements pass through it), and include folders of the build tree or of
# an installation.
LINK_ONLY = re.compile(r'^\$<LINK_ONLY:(.*)>$')
BUILD_INTERFACE = re.compile(r'^\$<BUILD_INTERFACE:(.*)>$')
INSTALL_INTERFACE = re.compile(r'^\$<INSTALL_INTERFACE:(.*)>$')


def build_dir():
    return os.environ.get('PLINTHD_BUILD_DIR')


def includes(path):
    """The names a source file includes, as written."""
    with open(path, encoding='utf-8', errors='replace') as f:
        return INCLUDE.findall(f.read())


class TargetGraph:
    """Targets by name, each with its folder, sources, links and include folders."""

    def __init__(self, path=None):
        if path is None:
            path = os.path.join(build_dir() or '', 'targets.json')
        with open(path, encoding='utf-8') as f:
            self.targets = json.load(f)

    def __contains__(self, name):
        return name in self.targets

    def folder(self, name):
        """The target's folder relative to the source tree."""
        return os.path.relpath(os.path.realpath(self.targets[name]['dir']), SOURCE_DIR)

    def sources(self, name):
        """The absolute paths of the target's sources that are in the source tree."""
        target = self.targets[name]
        paths = []
        for source in target['SOURCES']:
            path = source if os.path.isabs(source) else os.path.join(target['dir'], source)
            path = os.path.realpath(path)
            if path.startswith(SOURCE_DIR + os.sep) and os.path.exists(path):
                paths.append(path)
        return paths

    def direct_links(self, name):
        """What the target's own link line names: our targets and system libraries."""
        return [self._link_item(item) for item in self.targets[name]['LINK_LIBRARIES']
                if not item.startswith('-') and '$<' not in self._link_item(item)]

    @staticmethod
    def _link_item(item):
        match = LINK_ONLY.match(item)
        return match.group(1) if match else item

    def link_closure(self, name):
        """Everything that ends up on the link line of a program that links the
        target: its links and, through each of our targets, what those hand on."""
        seen, order = set(), []

        def visit(items):
            for item in items:
                item = self._link_item(item)
                if item.startswith('-') or '$<' in item or item in seen:
                    continue
                seen.add(item)
                order.append(item)
                if item in self.targets:
                    visit(self.targets[item]['INTERFACE_LINK_LIBRARIES'])

        visit(self.targets[name]['LINK_LIBRARIES'] or self.targets[name]['INTERFACE_LINK_LIBRARIES'])
        return order

    @staticmethod
    def _add_dirs(dirs, values):
        for value in values:
            match = BUILD_INTERFACE.match(value)
            if match:
                value = match.group(1)
            if INSTALL_INTERFACE.match(value) or '$<' in value:
                continue
            path = os.path.realpath(value)
            if path.startswith(SOURCE_DIR + os.sep) and path not in dirs:
                dirs.append(path)

    def interface_include_dirs(self, name):
        """The folders of the source tree the target puts on its users' include path."""
        dirs = []
        self._add_dirs(dirs, self.targets[name]['INTERFACE_INCLUDE_DIRECTORIES'])
        return dirs

    def include_dirs(self, name):
        """The folders on the target's include path that are in the source tree:
        its own and those its links hand on (not through links that only link)."""
        dirs = []

        def add(values):
            self._add_dirs(dirs, values)

        seen = set()

        def visit(items):
            for item in items:
                if LINK_ONLY.match(item) or item in seen or item not in self.targets:
                    continue
                seen.add(item)
                add(self.targets[item]['INTERFACE_INCLUDE_DIRECTORIES'])
                visit(self.targets[item]['INTERFACE_LINK_LIBRARIES'])

        add(self.targets[name]['INCLUDE_DIRECTORIES'])
        visit(self.targets[name]['LINK_LIBRARIES'])
        return dirs
