#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Every key the daemon sends is in the reference with its D-Bus type, and
every key of the reference is sent.

The real daemon runs on the devices the integration tests use: recorded
drives (umockdev: the internal eMMC, an SD card with two partitions, a USB
stick) with real mounts, a user partition on a tmpfs of its own, a mocked
oFono with two modems, the dconf settings of the test and a mocked user
manager. Every method of the three interfaces is called and every signal is
made to fire: drives come, are mounted and go; the data and the voice SIM
change. Each map in an answer or a signal is walked, and the D-Bus type of
every value under every key is noted by where the map travels (see
docs/reference.py). Then:

- every key sent, with the type it was sent with, is in the key table of that
  place; a place without a table fails;
- every key and type of every table was sent at least once, and every place a
  table names carried a map that was not empty.

The device owner's view differs between a device with one user and one with
several ("bytesUsedOtherUsers" is signed on the first), so the daemon runs
twice.
"""

import os
import sys
import xml.etree.ElementTree as ElementTree

import dbus

import simtest
import storagebench
from plinthtest import BUS_NAME

SOURCE_DIR = os.environ.get('PLINTHD_SOURCE_DIR', os.path.join(os.path.dirname(__file__), '..', '..'))
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(SOURCE_DIR, 'docs'))
import reference  # noqa: E402

USER_MANAGER = 'org.brisaos.usermanager'
ALICE, BOB = 100000, 100001
MiB = 1024 * 1024
# The basic types dbus-python gives values of; containers carry their own.
BASIC = {dbus.Boolean: 'b', dbus.Byte: 'y', dbus.Int16: 'n', dbus.UInt16: 'q', dbus.Int32: 'i',
         dbus.UInt32: 'u', dbus.Int64: 'x', dbus.UInt64: 't', dbus.Double: 'd', dbus.String: 's',
         dbus.ObjectPath: 'o', dbus.Signature: 'g'}


def signature_of(value):
    if isinstance(value, dbus.Dictionary):
        return 'a{%s}' % value.signature
    if isinstance(value, dbus.Array):
        return 'a' + value.signature
    if isinstance(value, dbus.Struct):
        return '(%s)' % value.signature
    return BASIC[type(value)]


class Sightings:
    """{place: {key: set of D-Bus types}} of the maps seen, and the places
    where a map with keys was seen."""

    def __init__(self):
        self.keys = {}
        self.filled = set()

    def walk(self, place, value):
        if isinstance(value, dbus.Dictionary):
            if value.signature == 'sv':
                keys = self.keys.setdefault(place, {})
                if value:
                    self.filled.add(place)
                for key, item in value.items():
                    keys.setdefault(str(key), set()).add(signature_of(item))
                    self.walk(place + '.' + str(key), item)
            else:
                for item in value.values():
                    self.walk(place + '{}', item)
        elif isinstance(value, (dbus.Array, dbus.Struct)):
            for item in value:
                self.walk(place + '[]', item)


def methods_of(name):
    """The methods of dbus/org.norvu.plinth.NAME.xml."""
    tree = ElementTree.parse(os.path.join(SOURCE_DIR, 'dbus', 'org.norvu.plinth.%s.xml' % name))
    return [m.get('name') for m in tree.getroot().find('interface').findall('method')]


class ReferenceKeysTest(simtest.SimTestCase, storagebench.StorageTestCase):

    def setUp(self):
        super().setUp()
        self.seen = Sightings()
        # Packages come from an empty database of the test's own.
        self.rpm_home = os.path.join(self.workdir, 'rpmhome')
        os.makedirs(os.path.join(self.rpm_home, 'db'))
        with open(os.path.join(self.rpm_home, '.rpmmacros'), 'w') as f:
            f.write('%%_dbpath %s\n' % os.path.join(self.rpm_home, 'db'))

    def start_device(self, users):
        passwd = os.path.join(self.workdir, 'passwd-%d' % len(users))
        with open(passwd, 'w') as f:
            f.write('root:x:0:0:root:/root:/bin/sh\n')
            for uid, name in users:
                f.write('%s:x:%d:%d::/home/%s:/bin/sh\n' % (name, uid, uid, name))
        setup = ['mount -t tmpfs -o size=%d tmpfs /home' % (16 * MiB)]
        for uid, name in users:
            setup += ['mkdir -p /home/%s/Pictures' % name,
                      'head -c 1000 /dev/zero > /home/%s/Pictures/a.jpg' % name,
                      'head -c 10 /dev/zero > /home/%s/notes' % name,
                      'chown -R %d:%d /home/%s' % (uid, uid, name)]
        for folder in ('/var/log', '/var/cache', '/opt'):
            setup.append('mount -t tmpfs tmpfs %s' % folder)
        setup.append('head -c 3000 /dev/zero > /var/log/messages')
        env = {'DCONF_PROFILE': simtest.DATABASE, 'HOME': self.rpm_home}
        binds = {'/etc/dconf': self.dconf, '/etc/passwd': passwd}
        if self.daemon is None:
            return self.start_storage_daemon(devices=('emmc', 'usbstick'), env=env, setup=setup, binds=binds)
        # Again, on the drives already recorded.
        env['UMOCKDEV_DIR'] = self.testbed.get_root_dir()
        env['LD_PRELOAD'] = ' '.join(storagebench.sanitizer_preload()
                                     + [p for p in os.environ.get('LD_PRELOAD', '').split() if p])
        daemon = self.start_daemon(env=env, namespace=True, setup=setup, binds=binds)
        self.addCleanup(self._check_clean_exit, daemon)
        return daemon

    def call(self, interface, method):
        proxy = dbus.Interface(self.bus.get_object(BUS_NAME, '/org/norvu/plinth/' + interface, introspect=False),
                               'org.norvu.plinth.' + interface)
        return getattr(proxy, method)(timeout=120)

    def call_everything(self):
        for interface in ('Features', 'SIM', 'Storages'):
            for method in methods_of(interface):
                self.seen.walk('%s.%s' % (interface, method), self.call(interface, method))

    def note_signals(self, storage_signals):
        for member, value in storage_signals:
            self.seen.walk('Storages.' + member, value)

    def test_every_key_sent_is_documented_and_every_documented_key_is_sent(self):
        # A device with one user, alice, with every source the daemon has.
        self.write_settings(voice_sim_usage_mode='1', default_voice_sim="'%s'" % simtest.imsi(1))
        ofono = self.start_ofono()
        first = ofono.add_modem('ril_0')
        ofono.add_modem('ril_1')
        storage_signals = self.recorder()
        _, user_manager = self.start_mock(USER_MANAGER, '/', USER_MANAGER)
        user_manager.AddMethod('', 'currentUser', '', 'u', 'ret = dbus.UInt32(%d)' % ALICE)
        daemon = self.start_device(users=((ALICE, 'alice'),))
        self.signals.wait_for('simCardsEnabledChanged', lambda cards: len(cards) == 2)
        mark = self.signals.settle()

        # The SIM signals: another data SIM, another voice SIM.
        ofono.set_data_powered(first, False)
        self.signals.wait_for('preferredDataTransferSimChanged', start=mark)
        self.write_settings(voice_sim_usage_mode='1', default_voice_sim="'%s'" % simtest.imsi(0))
        self.signals.wait_for('preferredVoiceCallSimChanged', start=mark)

        # A card comes with two partitions, one is mounted, the card goes.
        self.plug('sdcard')
        self.note_signals(storage_signals.wait_for(4))
        self.mount('mmcblk1p1', 8 * MiB)
        self.call_everything()
        self.note_signals(storage_signals.wait_for(2))
        self.unplug('sdcard')
        self.note_signals(storage_signals.wait_for(4))
        self.signals.settle()
        for member, _, cards in self.signals.received:
            self.seen.walk('SIM.' + member, cards)
        daemon.terminate()

        # The owner of a device with two users.
        self.start_device(users=((ALICE, 'alice'), (BOB, 'bob')))
        for method in ('getInternalUserPartitionInfo', 'getUsersQuotaInfo'):
            self.seen.walk('Storages.' + method, self.call('Storages', method))

        self.compare()

    def compare(self):
        tables = reference.key_tables(reference.pages(os.path.join(SOURCE_DIR, 'docs')))
        documented = {}
        for places, keys, page, line in tables:
            for place in places:
                documented[place] = (keys, '%s:%d' % (page, line))

        for place, keys in sorted(self.seen.keys.items()):
            self.assertIn(place, documented, 'maps sent at %s have no key table in docs/' % place)
            table, where = documented[place]
            for key, types in sorted(keys.items()):
                self.assertIn(key, table, 'the key "%s" sent at %s is not in the table at %s' % (key, place, where))
                self.assertLessEqual(types, table[key], 'the key "%s" at %s was sent as %s; the table at %s says %s'
                                     % (key, place, sorted(types), where, sorted(table[key])))

        for places, keys, page, line in tables:
            sent = {}
            for place in places:
                self.assertIn(place, self.seen.filled, '%s:%d: no map with keys was sent at %s' % (page, line, place))
                for key, types in self.seen.keys[place].items():
                    sent.setdefault(key, set()).update(types)
            for key, types in keys.items():
                self.assertIn(key, sent, '%s:%d: the key "%s" was never sent' % (page, line, key))
                self.assertEqual(types - sent[key], set(), '%s:%d: the key "%s" was never sent as %s'
                                 % (page, line, key, sorted(types - sent[key])))


if __name__ == '__main__':
    storagebench.main()
