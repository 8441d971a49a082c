#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Internal storage, the user partition, system categories and quotas over the bus.

The daemon runs in a private mount namespace: /home is a tmpfs of its own
(the user partition), /etc/passwd a file of the test, and /opt, /var/cache and
/var/log are tmpfs holding trees made by the test with files of known sizes
and owners. The package database is a real one built by rpmdb.py, the user
manager a python-dbusmock peer. Kernel quotas are not supported here, so every
quota answer below is the one without a quota (the quota cases themselves are
unit tests, through the quota seam).
"""

import os
import shlex
import threading

import dbus
import dbus.lowlevel

import plinthtest
import rpmdb
from plinthtest import BUS_NAME, STORAGES_IFACE, STORAGES_PATH

USER_MANAGER = 'org.brisaos.usermanager'
HOME_SIZE = 64 * 1024 * 1024
FOLDERS = ('Pictures', 'Videos', 'Music', 'Documents', 'Downloads')
UID_WARNING = 'getCurrentUid Failed to get current user uid.'
QUOTA_WARNING = 'fillInternalUserStorageInfo Failed to get quota for uid: %d'
ALICE, BOB, CAROL = 100000, 100001, 100002


class Tree:
    """Files of known sizes and owners, made under a staging directory and
    copied into the daemon's namespace (cp -a keeps owners, links and holes)."""

    def __init__(self, root):
        self.root = root
        self.dates = []
        os.makedirs(root, exist_ok=True)

    def path(self, relative):
        return os.path.join(self.root, relative)

    def dir(self, relative, owner=0):
        path = self.path(relative)
        os.makedirs(path, exist_ok=True)
        os.chown(path, owner, owner)

    def file(self, relative, size, owner=0):
        path = self.path(relative)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, 'wb') as f:
            f.truncate(size)
        os.chown(path, owner, owner)

    def date(self, relative, seconds):
        """Dates a file once it is in the daemon's namespace (see setup())."""
        self.dates.append((relative, seconds))

    def setup(self, destination):
        """Shell commands that give the copied files their dates, and check
        them. coreutils' touch and stat have 64-bit times, but its cp fails
        on a file dated after 2038 on i386, so dates are set after the copy."""
        commands = []
        for relative, seconds in self.dates:
            path = shlex.quote(os.path.join(destination, relative))
            commands.append('touch -h -d @%d %s' % (seconds, path))
            commands.append('test "$(stat -c %%Y %s)" = %d' % (path, seconds))
        return commands

    def link(self, relative, target, owner=0):
        path = self.path(relative)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        os.symlink(target, path)
        os.lchown(path, owner, owner)


class FiguresTestCase(plinthtest.DaemonTestCase):

    def setUp(self):
        super().setUp()
        self.staging = os.path.join(self.workdir, 'staging')
        self.home = Tree(os.path.join(self.staging, 'home'))
        self.log = Tree(os.path.join(self.staging, 'log'))
        self.dumps = Tree(os.path.join(self.staging, 'core-dumps'))
        self.sdk = Tree(os.path.join(self.staging, 'sdk'))
        self.has_sdk = True
        self.rpm = rpmdb.RpmDatabase(self.workdir)

    def user_manager(self, uid=ALICE):
        _, mock = self.start_mock(USER_MANAGER, '/', USER_MANAGER)
        if uid is not None:
            mock.AddMethod('', 'currentUser', '', 'u', 'ret = dbus.UInt32(%d)' % uid)
        return mock

    def start(self, users=((ALICE, 'alice'),)):
        passwd = os.path.join(self.workdir, 'passwd')
        with open(passwd, 'w') as f:
            f.write('root:x:0:0:root:/root:/bin/sh\n')
            for uid, name in users:
                f.write('%s:x:%d:%d::/home/%s:/bin/sh\n' % (name, uid, uid, name))
        q = shlex.quote
        setup = ['mount -t tmpfs -o size=%d tmpfs /home' % HOME_SIZE,
                 'cp -a %s/. /home/' % q(self.home.root)]
        for mountpoint in ('/opt', '/var/cache', '/var/log'):
            setup.append('mount -t tmpfs tmpfs %s' % mountpoint)
        setup.append('cp -a %s/. /var/log/' % q(self.log.root))
        setup += self.log.setup('/var/log')
        setup.append('mkdir /var/cache/core-dumps && cp -a %s/. /var/cache/core-dumps/' % q(self.dumps.root))
        if self.has_sdk:
            setup.append('mkdir /opt/sdk && cp -a %s/. /opt/sdk/' % q(self.sdk.root))
        return self.start_daemon(env=self.rpm.env(), setup=setup, binds={'/etc/passwd': passwd})

    def call(self, method):
        """The reply message itself, to see the exact D-Bus types."""
        message = dbus.lowlevel.MethodCallMessage(BUS_NAME, STORAGES_PATH, STORAGES_IFACE, method)
        reply = self.bus.send_message_with_reply_and_block(message, 60)
        args = reply.get_args_list()
        self.assertEqual(len(args), 1)
        return args[0]

    def assert_unsigned(self, info, keys):
        for key in keys:
            self.assertIsInstance(info[key], dbus.UInt64, key)


class SystemStorageTest(FiguresTestCase):

    def test_categories(self):
        self.rpm.install({'tarn-maps': 4096, 'tarn-mail': 100000, 'maps': 777,
                          'kernel-debuginfo': 300000, 'glibc-debuginfo': 12345, 'debuginfo-tools': 5})
        self.sdk.file('bin/tool', 1000)
        self.sdk.file('mine', 500, owner=1000)
        self.dumps.file('core.1', 2000)
        self.dumps.dir('theirs', owner=1000)
        self.dumps.file('theirs/core.2', 700)  # under a directory root does not own
        self.log.file('messages', 300)
        self.log.file('.hidden', 20)
        self.log.file('service.log', 40, owner=999)  # a service account's
        self.log.file('big', 5 << 30)
        self.log.link('tobig', '/var/log/big')  # counts only its own length
        self.log.link('dangling', '/var/log/gone')  # no owner to match
        self.start()

        info = self.call('getSystemStorageInfo')
        self.assertEqual(info.signature, 'sv')
        self.assertEqual(sorted(info.keys()), sorted([
            'bytesAvailable', 'bytesTotal', 'bytesUsed', 'bytesUsedApps', 'bytesUsedDebugInfo', 'bytesUsedSDK',
            'bytesUsedCoreDumps', 'bytesUsedSystemLogs', 'bytesUsedOther']))
        self.assert_unsigned(info, info.keys())
        self.assertEqual(info['bytesUsedApps'], 104096)
        self.assertEqual(info['bytesUsedDebugInfo'], 312345)
        self.assertEqual(info['bytesUsedSDK'], 1000)
        self.assertEqual(info['bytesUsedCoreDumps'], 2000)
        logs = 300 + 20 + (5 << 30) + len('/var/log/big')
        self.assertEqual(info['bytesUsedSystemLogs'], logs)
        self.assertEqual(info['bytesUsed'], info['bytesTotal'] - info['bytesAvailable'])
        self.assertEqual(info['bytesUsedOther'],
                         (info['bytesUsed'] - 104096 - 312345 - 1000 - 2000 - logs) % (1 << 64))

    def test_missing_folder_and_no_matching_package_count_zero(self):
        self.rpm.install({'maps': 10, 'kernel': 20})
        self.has_sdk = False
        self.start()
        info = self.call('getSystemStorageInfo')
        for key in ('bytesUsedApps', 'bytesUsedDebugInfo', 'bytesUsedSDK', 'bytesUsedCoreDumps',
                    'bytesUsedSystemLogs'):
            self.assertEqual(info[key], 0, key)
            self.assertIsInstance(info[key], dbus.UInt64, key)
        self.assertEqual(info['bytesUsedOther'], info['bytesUsed'])

    def test_other_wraps_when_categories_exceed_the_used_space(self):
        self.log.file('enormous', 1 << 43)
        self.start()
        info = self.call('getSystemStorageInfo')
        self.assertLess(info['bytesUsed'], 1 << 43)
        self.assertEqual(info['bytesUsedOther'], (info['bytesUsed'] - (1 << 43)) % (1 << 64))
        self.assertGreater(info['bytesUsedOther'], 1 << 63)

    def test_a_log_dated_after_2038_counts_like_any_other(self):
        self.log.file('messages', 300)
        self.log.file('future.log', 4321)
        # 2040-01-01, past the last second a 32-bit time_t holds (2038-01-19).
        self.log.date('future.log', 2208988800)
        self.start()
        info = self.call('getSystemStorageInfo')
        self.assertEqual(info['bytesUsedSystemLogs'], 300 + 4321)

    def test_two_concurrent_queries(self):
        self.rpm.install({'tarn-a': 111, 'tarn-b': 222, 'x-debuginfo': 333})
        for i in range(200):
            self.log.file('dir%d/file%d' % (i % 10, i), i)
        self.start()
        answers = []

        def query():
            bus = dbus.bus.BusConnection(self.system_bus.address)
            try:
                message = dbus.lowlevel.MethodCallMessage(BUS_NAME, STORAGES_PATH, STORAGES_IFACE,
                                                          'getSystemStorageInfo')
                answers.append(bus.send_message_with_reply_and_block(message, 60).get_args_list()[0])
            finally:
                bus.close()

        threads = [threading.Thread(target=query) for _ in range(2)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(60)
        self.assertEqual(len(answers), 2)
        for info in answers:
            self.assertEqual(info['bytesUsedApps'], 333)
            self.assertEqual(info['bytesUsedDebugInfo'], 333)
            self.assertEqual(info['bytesUsedSystemLogs'], sum(range(200)))


class InternalStorageTest(FiguresTestCase):

    def test_internal_memory(self):
        self.user_manager()
        self.start()
        info = self.call('getInternalStorageInfo')
        self.assertEqual(sorted(info.keys()),
                         ['bytesAvailable', 'bytesTotal', 'bytesUsed', 'deviceLabel', 'filesystemType'])
        self.assert_unsigned(info, ('bytesAvailable', 'bytesTotal', 'bytesUsed'))
        self.assertEqual(info['deviceLabel'], 'internal memory')
        self.assertIsInstance(info['filesystemType'], dbus.String)
        self.assertNotEqual(info['filesystemType'], '')
        # The root and /home (a tmpfs of its own here) at least.
        self.assertGreaterEqual(info['bytesTotal'], HOME_SIZE)
        self.assertEqual(info['bytesUsed'], info['bytesTotal'] - info['bytesAvailable'])


class HomesTestCase(FiguresTestCase):
    """Alice (the owner) and Bob, with files in their folders and elsewhere in /home."""

    def make_homes(self):
        self.home.dir('alice', owner=ALICE)
        self.home.file('alice/Pictures/a.jpg', 1000, owner=ALICE)
        self.home.file('alice/Pictures/given.jpg', 4000, owner=BOB)
        self.home.file('alice/Music/song', 200, owner=ALICE)
        self.home.file('alice/Downloads/.partial', 30, owner=ALICE)
        # A link to her large file counts its own length; its owner is the
        # owner of what it points to.
        self.home.link('alice/Videos/film', '/var/log/alice-big', owner=ALICE)
        self.home.link('alice/Videos/roots', '/var/log/big', owner=ALICE)
        self.home.file('alice/notes', 300, owner=ALICE)
        self.home.file('alice-loose', 50, owner=ALICE)
        self.home.dir('bob', owner=BOB)
        self.home.file('bob/Videos/clip', 5000, owner=BOB)
        self.home.file('bob/stray-of-alice', 70, owner=ALICE)
        self.home.file('bob/.cache', 11, owner=BOB)
        self.log.file('alice-big', 1 << 40, owner=ALICE)
        self.log.file('big', 1 << 40)
        self.alice_folders = {'Pictures': 1000, 'Videos': len('/var/log/alice-big'), 'Music': 200, 'Documents': 0,
                              'Downloads': 30}

    def partition(self, info):
        """The summary figures the breakdown starts from."""
        self.assertEqual(info.signature, 'sv')
        self.assert_unsigned(info, ('bytesAvailable', 'bytesTotal', 'bytesUsed'))
        for folder in FOLDERS:
            self.assertIsInstance(info['bytesUsed' + folder], dbus.UInt64, folder)
        self.assertIsInstance(info['bytesUsedOther'], dbus.UInt64)
        self.assertEqual(info['filesystemType'], 'tmpfs')
        return info


class UserPartitionTest(HomesTestCase):

    def test_single_user_device(self):
        self.make_homes()
        self.user_manager(ALICE)
        daemon = self.start(users=((ALICE, 'alice'),))
        info = self.partition(self.call('getInternalUserPartitionInfo'))
        self.assertEqual(info['deviceLabel'], 'alice partition')
        for folder, size in self.alice_folders.items():
            self.assertEqual(info['bytesUsed' + folder], size, folder)
        self.assertIsInstance(info['bytesUsedOtherUsers'], dbus.Int64)
        self.assertEqual(info['bytesUsedOtherUsers'], 0)
        self.assertEqual(info['bytesTotal'], HOME_SIZE)
        used = info['bytesUsed']
        self.assertEqual(info['bytesUsedOther'], used - sum(self.alice_folders.values()))
        self.assertEqual(info['bytesTotal'], used + info['bytesAvailable'])
        self.assertIn(QUOTA_WARNING % ALICE, daemon.output())

    def test_gap_in_the_users_makes_a_single_user_device(self):
        self.make_homes()
        self.user_manager(ALICE)
        self.start(users=((ALICE, 'alice'), (CAROL, 'carol')))
        info = self.partition(self.call('getInternalUserPartitionInfo'))
        self.assertIsInstance(info['bytesUsedOtherUsers'], dbus.Int64)
        self.assertEqual(info['bytesUsedOther'], info['bytesUsed'] - sum(self.alice_folders.values()))

    def test_owner_of_a_two_user_device(self):
        self.make_homes()
        self.user_manager(ALICE)
        self.start(users=((ALICE, 'alice'), (BOB, 'bob')))
        info = self.partition(self.call('getInternalUserPartitionInfo'))
        # Her notes and her loose file; nothing of hers inside Bob's home.
        self.assertEqual(info['bytesUsedOther'], 350)
        self.assertIsInstance(info['bytesUsedOtherUsers'], dbus.UInt64)
        used = info['bytesUsed']
        self.assertEqual(info['bytesUsedOtherUsers'], used - sum(self.alice_folders.values()) - 350)
        self.assertEqual(info['bytesTotal'], HOME_SIZE)

    def test_second_user_sees_only_their_own(self):
        self.make_homes()
        self.user_manager(BOB)
        daemon = self.start(users=((ALICE, 'alice'), (BOB, 'bob')))
        info = self.partition(self.call('getInternalUserPartitionInfo'))
        self.assertEqual(info['deviceLabel'], 'bob partition')
        self.assertEqual(info['bytesUsedVideos'], 5000)
        self.assertEqual(info['bytesUsedPictures'], 0)
        self.assertEqual(info['bytesUsedOther'], 11)
        self.assertNotIn('bytesUsedOtherUsers', info)
        self.assertEqual(info['bytesUsed'], 5011)
        self.assertEqual(info['bytesTotal'], 5011 + info['bytesAvailable'])
        self.assertIn(QUOTA_WARNING % BOB, daemon.output())

    def test_a_video_over_4_gib_counts_to_the_byte(self):
        # A phone's 4K recording: past what 32 bits of size can say.
        video = (5 << 30) + 123
        self.make_homes()
        self.home.file('bob/Videos/recording.mp4', video, owner=BOB)
        self.user_manager(BOB)
        self.start(users=((ALICE, 'alice'), (BOB, 'bob')))
        info = self.partition(self.call('getInternalUserPartitionInfo'))
        self.assertEqual(info['bytesUsedVideos'], 5000 + video)
        self.assertEqual(info['bytesUsed'], 5011 + video)
        self.assertEqual(info['bytesTotal'], 5011 + video + info['bytesAvailable'])

    def test_without_user_manager(self):
        self.make_homes()
        daemon = self.start()
        info = self.call('getInternalUserPartitionInfo')
        self.assertEqual(sorted(info.keys()),
                         ['bytesAvailable', 'bytesTotal', 'bytesUsed', 'deviceLabel', 'filesystemType'])
        self.assertEqual(info['deviceLabel'], ' partition')
        self.assertEqual(info['bytesTotal'], HOME_SIZE)
        self.assertIn(UID_WARNING, daemon.output())


class QuotaTest(HomesTestCase):

    def quota(self):
        quota = self.call('getUsersQuotaInfo')
        self.assertEqual(quota.signature, 'sa{sv}')
        for entry in quota.values():
            self.assertEqual(sorted(entry.keys()), ['quotaAvailable', 'quotaIsSet', 'quotaLimit'])
            self.assertIsInstance(entry['quotaIsSet'], dbus.Boolean)
            self.assertEqual(entry['quotaIsSet'], False)
            self.assert_unsigned(entry, ('quotaAvailable', 'quotaLimit'))
        return quota

    def test_owner_gets_every_user_carrying_the_partition_figures(self):
        self.make_homes()
        self.user_manager(ALICE)
        daemon = self.start(users=((ALICE, 'alice'), (BOB, 'bob')))
        quota = self.quota()
        self.assertEqual(sorted(quota.keys()), [str(ALICE), str(BOB)])
        alice, bob = quota[str(ALICE)], quota[str(BOB)]
        self.assertEqual(alice['quotaLimit'], HOME_SIZE)
        available = alice['quotaAvailable']
        self.assertEqual(bob['quotaAvailable'], available)
        self.assertEqual(bob['quotaLimit'], 5011 + available)
        output = daemon.output()
        self.assertIn(QUOTA_WARNING % ALICE, output)
        self.assertIn(QUOTA_WARNING % BOB, output)

    def test_non_owner_gets_one_entry(self):
        self.make_homes()
        self.user_manager(BOB)
        self.start(users=((ALICE, 'alice'), (BOB, 'bob')))
        self.assertEqual(list(self.quota().keys()), [str(BOB)])

    def test_owner_with_a_gap_gets_one_entry(self):
        self.make_homes()
        self.user_manager(ALICE)
        self.start(users=((ALICE, 'alice'), (CAROL, 'carol')))
        self.assertEqual(list(self.quota().keys()), [str(ALICE)])

    def test_no_uid_gives_an_empty_map(self):
        self.make_homes()
        daemon = self.start()
        self.assertEqual(dict(self.quota()), {})
        self.assertIn(UID_WARNING, daemon.output())

if __name__ == '__main__':
    plinthtest.main()
