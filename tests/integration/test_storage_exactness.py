#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Every storage figure the daemon keeps between queries is what a fresh walk
gives at the moment of the query.

The daemon walks /var/log, /opt/sdk, /var/cache/core-dumps and /home, which
here are folders of one tmpfs of the test's own, bind-mounted into its mount
namespace (with mount propagation, so a tmpfs the test mounts inside a tree
reaches the daemon too). A seeded random sequence of changes of every kind
(files written, truncated, made, deleted and renamed within and across folders
and categories; owners and modes changed on files and folders; links made and
replaced; subtrees made and removed; a tmpfs mounted and unmounted inside a
tree; a file written through a second name outside the trees; packages
installed and removed; several changes in a row) is each followed by a query,
alternately of the system categories and of the user partition for one of two
users, whose figures must equal those of a plain walk written here.

    PLINTHD_TEST_SEED=123 tests/integration/test_storage_exactness.py

replays a run (the seed is printed). The second test writes and removes a
large file on the root file system: the root figures and the internal memory
follow statvfs taken around each query.
"""

import errno
import os
import random
import shutil
import subprocess
import sys
import tempfile


import dbus

import cleanexit
import plainwalk
import plinthtest
import rpmdb

USER_MANAGER = 'org.brisaos.usermanager'
ALICE, BOB = 100000, 100001
USERS = ((ALICE, 'alice'), (BOB, 'bob'))
OWNERS = (0, ALICE, BOB, 999)
FOLDERS = ('Pictures', 'Videos', 'Music', 'Documents', 'Downloads')
STEPS = int(os.environ.get('PLINTHD_EXACTNESS_STEPS', '1200'))
PACKAGES = {'tarn-maps': 4096, 'tarn-mail': 100000, 'kernel-debuginfo': 30000, 'glibc-debuginfo': 1234}
TREES_SIZE = 256 * 1024 * 1024


class Trees:
    """The walked folders as the test sees them, and the changes made to them."""

    def __init__(self, root, seed):
        self.root = root
        self.random = random.Random(seed)
        self.counter = 0
        self.mounts = []
        self.log = os.path.join(root, 'log')
        self.sdk = os.path.join(root, 'sdk')
        self.dumps = os.path.join(root, 'dumps')
        self.home = os.path.join(root, 'home')
        self.outside = os.path.join(root, 'outside')
        for path in (self.log, self.sdk, self.dumps, self.home, self.outside):
            os.makedirs(path)
        for uid, name in USERS:
            for folder in ('',) + FOLDERS:
                path = os.path.join(self.home, name, folder)
                os.makedirs(path, exist_ok=True)
                os.chown(path, uid, uid)
        for tree in (self.log, self.sdk, self.dumps, self.home):
            for _ in range(25):
                self.create(self.folder_in(tree))
            for _ in range(4):
                self.make_folder(self.folder_in(tree))

    # What the trees hold now.
    def _all(self):
        files, folders, links = [], [], []
        for tree in (self.log, self.sdk, self.dumps, self.home):
            folders.append(tree)
            for folder, dirs, names in os.walk(tree):
                for name in dirs + names:
                    path = os.path.join(folder, name)
                    if os.path.islink(path):
                        links.append(path)
                    elif name in dirs:
                        folders.append(path)
                    else:
                        files.append(path)
        return files, folders, links

    def folder_in(self, tree):
        return self.random.choice([tree] + [os.path.join(f, d) for f, ds, _ in os.walk(tree) for d in ds
                                            if not os.path.islink(os.path.join(f, d))])

    def new_name(self, folder):
        self.counter += 1
        return os.path.join(folder, 'e%d' % self.counter)

    def owner(self):
        return self.random.choice(OWNERS)

    def write(self, path, size, append=False):
        with open(path, 'ab' if append else 'wb') as f:
            f.write(b'x' * size)

    def create(self, folder):
        path = self.new_name(folder)
        self.write(path, self.random.randrange(6000))
        owner = self.owner()
        os.chown(path, owner, owner)
        return 'create %s' % path

    def make_folder(self, folder):
        path = self.new_name(folder)
        os.mkdir(path)
        owner = self.owner()
        os.chown(path, owner, owner)
        for _ in range(self.random.randrange(5)):
            self.create(path)
        return 'mkdir %s' % path

    def outside_file(self):
        path = os.path.join(self.outside, 'o%d' % self.random.randrange(6))
        if not os.path.exists(path):
            self.write(path, self.random.randrange(3000))
        return path

    def change(self):
        """One random change; what it was, for a failure's message."""
        files, folders, links = self._all()
        file = self.random.choice(files) if files else self.new_name(self.home)
        folder = self.random.choice(folders)
        kind = self.random.randrange(18)
        try:
            if kind < 3:
                return self.create(folder)
            if kind == 3:
                self.write(file, 1 + self.random.randrange(4000), append=True)
                return 'append %s' % file
            if kind == 4:
                os.truncate(file, self.random.randrange(3000))
                return 'truncate %s' % file
            if kind == 5:
                os.unlink(file)
                return 'delete %s' % file
            if kind == 6:  # within or across folders and categories
                target = self.new_name(self.random.choice(folders))
                os.rename(file, target)
                return 'rename %s %s' % (file, target)
            if kind == 7:
                return self.make_folder(folder)
            if kind == 8:
                if folder in (self.log, self.sdk, self.dumps, self.home) or self.holds_mount(folder):
                    return 'nothing'
                shutil.rmtree(folder, ignore_errors=True)
                return 'rmtree %s' % folder
            if kind == 9:
                into = self.random.choice(folders)
                if (folder in (self.log, self.sdk, self.dumps, self.home) or (into + '/').startswith(folder + '/')
                        or self.holds_mount(folder)):
                    return 'nothing'
                target = self.new_name(into)
                os.rename(folder, target)
                return 'move %s %s' % (folder, target)
            if kind == 10:
                path = self.random.choice([file, folder])
                owner = self.owner()
                os.lchown(path, owner, owner)
                return 'chown %s %d' % (path, owner)
            if kind == 11:
                path = self.random.choice([file, folder])
                os.chmod(path, self.random.choice((0o700, 0o755, 0o644)))
                return 'chmod %s' % path
            if kind == 12:  # a link made, or one replaced in one step
                path = self.random.choice(links) if links and self.random.randrange(3) == 0 else self.new_name(folder)
                target = self.random.choice([file, folder, self.outside_file(), os.path.join(self.log, 'gone')])
                os.symlink(target, path + '.new')
                os.rename(path + '.new', path)
                return 'link %s -> %s' % (path, target)
            if kind == 13:  # what a link points to changes owner, outside the trees
                path = self.outside_file()
                owner = self.owner()
                os.chown(path, owner, owner)
                return 'chown outside %s %d' % (path, owner)
            if kind == 14:  # a file with a second name outside the trees
                outside = self.outside_file()
                path = self.new_name(folder)
                os.link(outside, path)
                return 'hard link %s = %s' % (path, outside)
            if kind == 15:  # written or given away through that other name
                path = self.outside_file()
                if self.random.randrange(2):
                    self.write(path, 1 + self.random.randrange(3000), append=True)
                else:
                    owner = self.owner()
                    os.chown(path, owner, owner)
                return 'through the outside name %s' % path
            if kind == 16:
                return self.mount_or_unmount(folder)
            return '; '.join(self.change() for _ in range(2 + self.random.randrange(5)))
        except OSError as error:
            # A folder moved away under a mount, a link across file systems:
            # nothing changed, or only part of it; the figures must still agree.
            if error.errno in (errno.EBUSY, errno.EXDEV, errno.ENOENT, errno.EINVAL, errno.ENOTDIR,
                               errno.EISDIR, errno.ENOTEMPTY):
                return 'refused (%s)' % error.strerror
            raise

    def holds_mount(self, folder):
        """Whether a mount is at or below FOLDER. Such a folder is neither moved
        nor removed: a mount moved with its folder from one bind-mounted tree
        to another stays behind in the daemon's view of the first, and the
        daemon and the test would then look at different folders."""
        return any(point == folder or point.startswith(folder + '/') for point in self.mounts)

    def mount_or_unmount(self, folder):
        if self.mounts:
            path = self.mounts.pop()
            subprocess.run(['umount', '-l', path], check=False)
            return 'umount %s' % path
        if folder in (self.log, self.sdk, self.dumps, self.home):
            return 'nothing'
        subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=1m', 'tmpfs', folder], check=True)
        self.mounts.append(folder)
        path = os.path.join(folder, 'on-tmpfs')
        self.write(path, 1 + self.random.randrange(3000))
        owner = self.owner()
        os.chown(path, owner, owner)
        return 'mount tmpfs on %s' % folder

    def unmount_all(self):
        subprocess.run('findmnt -rn -o TARGET | grep "^%s/" | sort -r | xargs -r umount -l' % self.root,
                       shell=True, check=False)
        self.mounts = []


class ExactnessTest(cleanexit.CleanExit, plinthtest.DaemonTestCase):

    def setUp(self):
        super().setUp()
        if not plinthtest.in_test_namespace():
            self.skipTest('needs the private mount namespace ctest gives it (MOUNT_NAMESPACE)')
        self.trees_root = os.path.join(self.workdir, 'trees')
        os.mkdir(self.trees_root)
        subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=%d' % TREES_SIZE, 'tmpfs', self.trees_root], check=True)
        subprocess.run(['mount', '--make-shared', self.trees_root], check=True)
        self.addCleanup(subprocess.run, ['umount', '-R', '-l', self.trees_root], check=False)
        self.rpm = rpmdb.RpmDatabase(self.workdir)
        self.rpm.install(PACKAGES)
        self.installed = dict(PACKAGES)
        self.current_user_file = os.path.join(self.workdir, 'current-user')
        self.set_current_user(ALICE)
        _, mock = self.start_mock(USER_MANAGER, '/', USER_MANAGER)
        mock.AddMethod('', 'currentUser', '', 'u',
                       'ret = dbus.UInt32(int(open(%r).read()))' % self.current_user_file)

    def set_current_user(self, uid):
        with open(self.current_user_file, 'w') as f:
            f.write(str(uid))
        self.current_user = uid

    def start(self, trees):
        passwd = os.path.join(self.workdir, 'passwd')
        with open(passwd, 'w') as f:
            f.write('root:x:0:0:root:/root:/bin/sh\n')
            for uid, name in USERS:
                f.write('%s:x:%d:%d::/home/%s:/bin/sh\n' % (name, uid, uid, name))
        setup = ['mount -t tmpfs tmpfs /opt', 'mkdir /opt/sdk', 'mount -t tmpfs tmpfs /var/cache',
                 'mkdir /var/cache/core-dumps']
        binds = {'/etc/passwd': passwd, '/home': trees.home, '/var/log': trees.log, '/opt/sdk': trees.sdk,
                 '/var/cache/core-dumps': trees.dumps}
        env = dict(self.rpm.env(), LC_ALL='C.UTF-8')
        if os.environ.get('PLINTHD_TEST_TRACE'):
            env['QT_LOGGING_RULES'] = 'plinthd.folders.debug=true'
        return self.start_daemon(env=env, setup=setup, binds=binds, propagation='slave')

    def call(self, method):
        try:
            return getattr(self.storages(), method)(timeout=120)
        except dbus.exceptions.DBusException:
            print(self.daemon.output(), file=sys.stderr)
            raise

    # What the daemon must answer now, from the trees as they are.
    def expected_system(self, trees):
        def packages(matches):
            return sum(size for name, size in self.installed.items() if matches(name))
        return {
            'bytesUsedApps': packages(lambda name: name.startswith('tarn-')),
            'bytesUsedDebugInfo': packages(lambda name: name.endswith('-debuginfo')),
            'bytesUsedSDK': plainwalk.size(trees.sdk, 0),
            'bytesUsedCoreDumps': plainwalk.size(trees.dumps, 0),
            'bytesUsedSystemLogs': plainwalk.size(trees.log, 0),
        }

    def expected_user(self, trees, uid, partition):
        """PARTITION: (used, available) of the user partition, from statvfs."""
        name = dict(USERS)[uid]
        home = os.path.join(trees.home, name)
        folders = {folder: plainwalk.size(os.path.join(home, folder), uid) for folder in FOLDERS}
        excluded = {os.path.join(home, folder) for folder in FOLDERS}
        home_other = plainwalk.size(home, uid, excluded)
        excluded |= {os.path.join(trees.home, n) for _, n in USERS}
        other = home_other + plainwalk.size(trees.home, uid, excluded)
        used, available = partition
        expected = {'bytesUsed' + folder: size for folder, size in folders.items()}
        expected['bytesUsedOther'] = other
        if uid == ALICE:
            expected['bytesUsedOtherUsers'] = used - sum(folders.values()) - other
            user_used = used
        else:
            user_used = sum(folders.values()) + other
        expected['bytesUsed'] = user_used
        expected['bytesTotal'] = user_used + available
        expected['bytesAvailable'] = available
        return expected

    def partition_figures(self):
        # The user partition is the tmpfs the trees live on; the daemon
        # measures it as a mount of its own, so the figures are its statvfs.
        fs = os.statvfs(self.trees_root)
        return ((fs.f_blocks - fs.f_bavail) * fs.f_frsize, fs.f_bavail * fs.f_frsize)

    def compare(self, step, what, answer, expected):
        for key, value in expected.items():
            if int(answer[key]) != value:
                if os.environ.get('PLINTHD_TEST_TRACE'):
                    print(self.daemon.output(), file=sys.stderr)
                self.fail('step %d, after %s: %s is %d, a fresh walk gives %d (seed %d)'
                          % (step, what, key, int(answer[key]), value, self.seed))

    def test_every_figure_equals_a_fresh_walk(self):
        self.seed = int(os.environ.get('PLINTHD_TEST_SEED') or random.SystemRandom().randrange(2 ** 32))
        print('PLINTHD_TEST_SEED=%d' % self.seed, file=sys.stderr)
        trees = Trees(self.trees_root, self.seed)
        self.addCleanup(trees.unmount_all)
        daemon = self.daemon = self.start(trees)
        choices = random.Random(self.seed + 1)
        what = 'the start'
        for step in range(STEPS):
            if choices.randrange(2):
                self.compare(step, what, self.call('getSystemStorageInfo'), self.expected_system(trees))
            else:
                self.set_current_user(choices.choice((ALICE, BOB)))
                before = self.partition_figures()
                answer = self.call('getInternalUserPartitionInfo')
                after = self.partition_figures()
                self.assertEqual(before, after, 'the user partition changed during the query')
                self.compare(step, what, answer, self.expected_user(trees, self.current_user, before))
                self.assertEqual('bytesUsedOtherUsers' in answer, self.current_user == ALICE)
            if choices.randrange(40) == 0:
                what = self.change_packages(choices)
            else:
                what = trees.change()
            if os.environ.get('PLINTHD_TEST_TRACE'):
                print('%d: %s' % (step, what), file=sys.stderr)
        trees.unmount_all()
        self.compare(STEPS, 'the last unmount', self.call('getSystemStorageInfo'), self.expected_system(trees))
        self.assertCleanExit(daemon)

    def change_packages(self, choices):
        name = choices.choice(sorted(PACKAGES))
        if name in self.installed:
            self.rpm.erase([name])
            del self.installed[name]
            return 'erase package %s' % name
        self.rpm.reinstall([name])
        self.installed[name] = PACKAGES[name]
        return 'install package %s' % name


class FreeSpaceTest(cleanexit.CleanExit, plinthtest.DaemonTestCase):
    """The root figures and the internal memory are the file systems' at the
    moment of the query. The daemon's /home is an empty tmpfs of its own, so
    the internal memory is the root file system and that tmpfs."""

    ATTEMPTS = 20
    LARGE = 512 * 1024 * 1024
    HOME_SIZE = 64 * 1024 * 1024

    def root_figures(self):
        fs = os.statvfs('/')
        return fs.f_bavail * fs.f_frsize, fs.f_blocks * fs.f_frsize

    def bracketed(self, method, offset):
        """The answer's available bytes, checked to lie between two readings of
        statvfs('/') taken around the query (plus OFFSET, the bytes of other
        file systems in the figure), and its total against the root's. Other
        programs write to the root file system too: a query during which its
        free space went both ways is made again."""
        for _ in range(self.ATTEMPTS):
            before, total = self.root_figures()
            answer = getattr(self.storages(), method)(timeout=120)
            after, _ = self.root_figures()
            self.assertEqual(int(answer['bytesTotal']), total + offset)
            available = int(answer['bytesAvailable']) - offset
            if min(before, after) <= available <= max(before, after):
                return available
        self.fail('%s never answered a figure between two readings of statvfs around it' % method)

    def check(self):
        """The root's available bytes, after checking both answers against statvfs."""
        available = self.bracketed('getSystemStorageInfo', 0)
        self.bracketed('getInternalStorageInfo', self.HOME_SIZE)
        return available

    @staticmethod
    def folder_on_root():
        """A folder of the root file system to write to (the test's own
        scratch folder may be on a tmpfs); None when there is none."""
        root = os.stat('/').st_dev
        for folder in ('/var/tmp', '/tmp', '/root', '/'):
            if os.path.isdir(folder) and os.stat(folder).st_dev == root and os.access(folder, os.W_OK):
                return folder
        return None

    def test_root_figures_follow_a_large_file(self):
        folder = self.folder_on_root()
        if not folder:
            self.skipTest('no folder of the root file system can be written here')
        daemon = self.start_daemon(env={'LC_ALL': 'C.UTF-8'},
                                   setup=['mount -t tmpfs -o size=%d tmpfs /home' % self.HOME_SIZE])
        scratch = tempfile.mkdtemp(prefix='plinthtest.large.', dir=folder)
        self.addCleanup(shutil.rmtree, scratch, ignore_errors=True)
        scratch = os.path.join(scratch, 'large')
        for _ in range(2):
            available = self.check()
            with open(scratch, 'wb') as f:
                os.posix_fallocate(f.fileno(), 0, self.LARGE)
            written = self.check()
            self.assertLess(written, available - self.LARGE // 2, 'the figures did not follow the write')
            os.unlink(scratch)
            removed = self.check()
            self.assertGreater(removed, written + self.LARGE // 2, 'the figures did not follow the removal')
        self.assertCleanExit(daemon)


if __name__ == '__main__':
    plinthtest.main()
