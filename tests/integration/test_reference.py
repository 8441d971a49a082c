#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The interface reference (docs/) against the interface descriptions (dbus/).

Every member of every published interface is in its page's member table, in
the description's order, with its D-Bus signature, the Qt type a client gets
and its deprecation, and has a section of its own; every member that sends a
map has a key table; every member of the interfaces the daemon listens to
(the rest of dbus/) is named in the pages; the manual page made from the
pages at build time is the one the pages make now, and renders. Which keys
the daemon really sends, and with which types, is test_reference_keys.py.
The table of keys in dbus/mapkeys.h, from which the daemon, the client
library, its QML module and plinthctl take the keys' names, holds exactly the
keys the pages document, and the drive types the pages name.
"""

import os
import re
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ElementTree

import plinthtest

SOURCE_DIR = os.environ.get('PLINTHD_SOURCE_DIR', os.path.join(os.path.dirname(__file__), '..', '..'))
BUILD_DIR = os.environ.get('PLINTHD_BUILD_DIR', '')
DOCS = os.path.join(SOURCE_DIR, 'docs')
sys.dont_write_bytecode = True
sys.path.insert(0, DOCS)
import mkman  # noqa: E402
import reference  # noqa: E402

INTERFACES = ('Features', 'SIM', 'Storages')
# Descriptions in dbus/ of interfaces the daemon listens to, not serves.
CONSUMED = ('org.norvu.PolicyManager.xml',)
QT_ANNOTATION = 'org.qtproject.QtDBus.QtTypeName.Out0'
DEPRECATED = 'org.freedesktop.DBus.Deprecated'
# What QtDBus makes of the basic types the interfaces use.
QT_TYPES = {'b': 'bool', 'u': 'uint', 's': 'QString', 'd': 'double', 't': 'qulonglong', 'x': 'qlonglong',
            'as': 'QStringList', 'av': 'QVariantList', 'a{sv}': 'QVariantMap'}
SIGNATURE = re.compile(r'^(?:[ybnqiuxtdsogvh]|a(?:\{[ybnqiuxtdsogh](?:.+)\}|.+))$')


def described_members(name):
    """[(member, kind, signature, Qt type, deprecated)] of dbus/org.norvu.plinth.NAME.xml, in its order."""
    tree = ElementTree.parse(os.path.join(SOURCE_DIR, 'dbus', 'org.norvu.plinth.%s.xml' % name))
    interface = tree.getroot().find('interface')
    result = []
    for element in interface:
        annotations = {a.get('name'): a.get('value') for a in element.findall('annotation')}
        if element.tag == 'property':
            signature = element.get('type')
        else:
            signature = ''.join(arg.get('type') for arg in element.findall('arg') if arg.get('direction') == 'out')
        qt = annotations.get(QT_ANNOTATION, QT_TYPES.get(signature))
        result.append((element.get('name'), element.tag, signature, qt, annotations.get(DEPRECATED) == 'true'))
    return interface.get('name'), result


class MembersTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.pages = reference.pages(DOCS)
        cls.members = reference.members(cls.pages)

    def test_every_member_in_the_description_order(self):
        for name in INTERFACES:
            interface, described = described_members(name)
            with self.subTest(interface=interface):
                documented = self.members.get(interface)
                self.assertIsNotNone(documented, 'no member table for %s' % interface)
                self.assertEqual([m['name'] for m in documented], [d[0] for d in described])
                for row, (member, kind, signature, qt, deprecated) in zip(documented, described):
                    self.assertEqual(row['kind'], kind, member)
                    self.assertEqual(row['signature'], signature, member)
                    self.assertEqual(row['qt'], qt, member)
                    self.assertEqual(row['deprecated'], deprecated, member)

    def test_every_description_is_covered(self):
        published = {'org.norvu.plinth.%s.xml' % name for name in INTERFACES}
        self.assertEqual({name for name in os.listdir(os.path.join(SOURCE_DIR, 'dbus')) if name.endswith('.xml')},
                         published | set(CONSUMED))
        # What the daemon listens to is named where it matters to a client.
        text = ''.join('\n'.join(page.lines) for page in self.pages)
        for name in CONSUMED:
            root = ElementTree.parse(os.path.join(SOURCE_DIR, 'dbus', name)).getroot()
            for interface in root.findall('interface'):
                self.assertIn('`%s`' % interface.get('name'), text)
                for member in interface:
                    self.assertIn('`%s`' % member.get('name'), text, name)

    def test_how_each_member_answers(self):
        for interface, rows in self.members.items():
            names = {row['name'] for row in rows}
            for row in rows:
                with self.subTest(member=row['name']):
                    if row['kind'] == 'signal':
                        self.assertEqual(row['answered'], '—')
                    else:
                        self.assertIn(row['answered'], ('in the call', 'later (worker)', 'later (user manager)'))
                    # A deprecated member names what to use instead, a member
                    # of the same interface.
                    if row['deprecated']:
                        self.assertIn(row['replacement'], names - {row['name']})

    def test_storage_queries_and_the_locale_answer_later(self):
        def answered(how):
            return {row['name'] for rows in self.members.values() for row in rows if row['answered'] == how}
        self.assertEqual(answered('later (worker)'),
                         {'getExternalStorageInfo', 'getInternalStorageInfo', 'getInternalUserPartitionInfo',
                          'getExternalStorageDrivesInfo', 'getSystemStorageInfo', 'getUsersQuotaInfo'})
        self.assertEqual(answered('later (user manager)'), {'getLocale'})

    def test_every_member_has_a_section_in_order(self):
        for page in self.pages:
            tables = [t for t in page.tables if t.kind == 'members']
            self.assertEqual(len(tables), 1, page.name)
            rows = self.members[tables[0].argument]
            with self.subTest(page=page.name):
                self.assertEqual(page.sections, [row['name'] for row in rows])

    def test_every_map_sent_has_a_key_table(self):
        places = {}
        for table_places, keys, page, line in reference.key_tables(self.pages):
            for place in table_places:
                self.assertNotIn(place, places, '%s:%d lists %s again' % (page, line, place))
                places[place] = keys
        for interface, rows in self.members.items():
            short = interface.rsplit('.', 1)[1]
            for row in rows:
                if 'a{sv}' not in row['signature']:
                    continue
                place = short + '.' + row['name']
                if row['signature'] == 'aa{sv}':
                    place += '[]'
                elif row['signature'] == 'a{sa{sv}}':
                    place += '{}'
                self.assertIn(place, places, 'no key table for %s' % row['name'])

    def test_key_tables_are_well_formed(self):
        for places, keys, page, line in reference.key_tables(self.pages):
            with self.subTest(page=page, line=line):
                self.assertTrue(keys)
                for place in places:
                    self.assertRegex(place, r'^(Features|SIM|Storages)\.\w+(\[\]|\{\}|\.\w+)*$')
                for key, types in keys.items():
                    self.assertRegex(key, r'^[a-zA-Z]+$')
                    self.assertTrue(types, key)
                    for signature in types:
                        self.assertRegex(signature, SIGNATURE, key)

    def test_the_key_table_is_the_documented_keys(self):
        with open(os.path.join(SOURCE_DIR, 'dbus', 'mapkeys.h')) as f:
            text = f.read()
        table = {}
        for name in ('Keys', 'DriveTypes'):
            body = re.search(r'namespace %s \{\n(.*?)\n\} // namespace %s' % (name, name), text, re.S).group(1)
            table[name] = re.findall(r'constexpr char \w+\[\] = "([^"]*)";', body)
        self.assertEqual(sorted(table['Keys']), sorted(set(table['Keys'])), 'a key is in the table twice')
        documented = set()
        for _, keys, _, _ in reference.key_tables(self.pages):
            documented |= set(keys)
        self.assertEqual(set(table['Keys']), documented)
        drive_type_rows = [line for page in self.pages for line in page.lines if line.startswith('| `driveType`')]
        self.assertTrue(drive_type_rows)
        for row in drive_type_rows:
            self.assertEqual(set(re.findall(r'`(\w+)`', reference.split_row(row)[3])), set(table['DriveTypes']))


class QmlPageTest(unittest.TestCase):
    """docs/qml.md shows the example pages of docs/examples/qml as they are:
    those are the files the QML tests run and qmllint checks."""

    def test_pages_shown_are_the_files(self):
        with open(os.path.join(DOCS, 'qml.md')) as f:
            blocks = re.findall(r'^```qml\n(.*?)^```$', f.read(), re.S | re.M)
        folder = os.path.join(DOCS, 'examples', 'qml')
        files = {}
        for name in sorted(os.listdir(folder)):
            with open(os.path.join(folder, name)) as f:
                files[name] = f.read()
        self.assertEqual(sorted(blocks), sorted(files.values()))
        with open(os.path.join(folder, 'summary.qml')) as f:
            self.assertEqual(len(f.read().splitlines()), 10)


class ManualPageTest(unittest.TestCase):

    def built(self):
        path = os.path.join(BUILD_DIR, 'docs', 'plinthd-interfaces.7')
        self.assertTrue(os.path.exists(path), '%s is not built' % path)
        with open(path, encoding='utf-8') as f:
            return f.read()

    def test_made_from_the_pages_as_they_are(self):
        built = self.built()
        date, version = re.search(r'^\.TH \S+ \d "([^"]*)" "plinthd (\S*)"', built, re.M).groups()
        self.assertEqual(built, mkman.page(DOCS, version, date))

    def test_renders_with_every_member_and_key(self):
        path = os.path.join(BUILD_DIR, 'docs', 'plinthd-interfaces.7')
        rendered = subprocess.run(['man', '--warnings', '-l', path], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                  universal_newlines=True, env=dict(os.environ, MANWIDTH='80', MAN_KEEP_FORMATTING=''))
        self.assertEqual(rendered.returncode, 0, rendered.stderr)
        # In a terminal of 80 columns: no complaint at all, not even of a
        # line that cannot be broken.
        self.assertEqual(rendered.stderr, '')
        text = re.sub(r'.\x08', '', rendered.stdout)
        words = set(re.findall(r'[A-Za-z]+', text))
        pages = reference.pages(DOCS)
        for rows in reference.members(pages).values():
            for row in rows:
                self.assertIn(row['name'], words)
        for _, keys, _, _ in reference.key_tables(pages):
            for key in keys:
                self.assertIn(key, words)
        self.assertIn('PLINTHD-INTERFACES(7)', text)


if __name__ == '__main__':
    plinthtest.main()
