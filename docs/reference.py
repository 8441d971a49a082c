# SPDX-License-Identifier: BSD-3-Clause
"""Reads the machine-readable parts of the interface reference (docs/*.md).

Two kinds of tables are read, each announced by an HTML comment on the line
before it, which Markdown does not show:

    <!-- members: INTERFACE -->
    | member | kind | D-Bus signature | Qt type | answered | deprecated |

one row per member of the interface, in the order of its description in dbus/;

    <!-- keys: PLACE PLACE ... -->
    | key | type | unit | meaning | absent when |

one row per key of a map the daemon sends. A PLACE names where such maps
travel: Interface.member (its argument is the map), followed by "[]" for
"each element of the array", "{}" for "each value of the dictionary" and
".key" for "the value under this key", for example
Storages.getExternalStorageDrivesInfo[].partitionsInfo[]. The type column
holds the D-Bus type(s) of the value in backquotes; a key sent with one type
in one situation and another type in another has both.

Only the standard library is used: the man page generator runs this at build
time, and the tests with Debian's interpreter.
"""

import os
import re

PAGES = ('features.md', 'sim.md', 'storages.md')
MEMBER_HEADER = ['member', 'kind', 'D-Bus signature', 'Qt type', 'answered', 'deprecated']
KEY_HEADER = ['key', 'type', 'unit', 'meaning', 'absent when']
_MARKER = re.compile(r'^<!--\s*(members|keys):\s*(.*?)\s*-->$')
_CODE = re.compile(r'`([^`]*)`')
_SECTION = re.compile(r'^### `([^`]+)`\s*$')


def docs_dir():
    return os.path.dirname(os.path.abspath(__file__))


def split_row(line):
    """The cells of a Markdown table row, stripped."""
    line = line.strip()
    if not (line.startswith('|') and line.endswith('|')):
        raise ValueError('not a table row: %r' % line)
    return [cell.strip() for cell in line[1:-1].split('|')]


def code(cell):
    """The text of the first `code` span of a cell, or None."""
    match = _CODE.search(cell)
    return match.group(1) if match else None


def codes(cell):
    return _CODE.findall(cell)


class Table:
    def __init__(self, kind, argument, header, rows, line):
        self.kind = kind          # 'members' or 'keys'
        self.argument = argument  # the interface, or the places
        self.header = header
        self.rows = rows          # lists of cells
        self.line = line          # line number of the marker, from 1


class Page:
    def __init__(self, path):
        self.path = path
        self.name = os.path.basename(path)
        with open(path, encoding='utf-8') as f:
            self.lines = f.read().split('\n')
        self.tables = []
        self.sections = []  # the names of "### `name`" headings, in order
        i = 0
        while i < len(self.lines):
            line = self.lines[i].strip()
            section = _SECTION.match(line)
            if section:
                self.sections.append(section.group(1))
            marker = _MARKER.match(line)
            if marker:
                kind, argument = marker.groups()
                start = i + 1
                header = split_row(self.lines[start])
                expected = MEMBER_HEADER if kind == 'members' else KEY_HEADER
                if header != expected:
                    raise ValueError('%s:%d: the table after the %s marker must have the columns %s, not %s'
                                     % (self.name, start + 1, kind, expected, header))
                rows = []
                j = start + 2
                while j < len(self.lines) and self.lines[j].strip().startswith('|'):
                    rows.append(split_row(self.lines[j]))
                    if len(rows[-1]) != len(header):
                        raise ValueError('%s:%d: %d cells, the header has %d'
                                         % (self.name, j + 1, len(rows[-1]), len(header)))
                    j += 1
                self.tables.append(Table(kind, argument, header, rows, i + 1))
                i = j
                continue
            i += 1


def pages(directory=None):
    directory = directory or docs_dir()
    return [Page(os.path.join(directory, name)) for name in PAGES]


def members(page_list):
    """{interface: [member row as a dict]} from every members table."""
    result = {}
    for page in page_list:
        for table in page.tables:
            if table.kind != 'members':
                continue
            rows = []
            for cells in table.rows:
                row = dict(zip(MEMBER_HEADER, cells))
                rows.append({
                    'name': code(row['member']),
                    'kind': row['kind'],
                    'signature': code(row['D-Bus signature']),
                    'qt': code(row['Qt type']),
                    'answered': row['answered'],
                    'deprecated': row['deprecated'].startswith('yes'),
                    'replacement': code(row['deprecated']),
                    'page': page.name,
                })
            result[table.argument] = rows
    return result


def key_tables(page_list):
    """[(places, {key: set of D-Bus types}, page name, marker line)] from every keys table."""
    result = []
    for page in page_list:
        for table in page.tables:
            if table.kind != 'keys':
                continue
            keys = {}
            for cells in table.rows:
                row = dict(zip(KEY_HEADER, cells))
                name = code(row['key'])
                if name is None or name in keys:
                    raise ValueError('%s:%d: a key row needs one new `key`, got %r'
                                     % (page.name, table.line, row['key']))
                keys[name] = set(codes(row['type']))
            result.append((table.argument.split(), keys, page.name, table.line))
    return result
