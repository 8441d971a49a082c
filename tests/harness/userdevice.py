# SPDX-License-Identifier: BSD-3-Clause
"""A device whose storage holds known files, for the tests that read storage
figures end to end (the examples, the QML module).

The user manager names alice (uid 100000, the device owner) as the current
user; /home is a tmpfs of HOME_SIZE bytes with alice's files (1000 bytes in
Pictures, 200 in Music, 300 elsewhere); /var/log holds 3000 bytes of logs,
/var/cache/core-dumps 2000 bytes of core dumps, /opt nothing; the package
database is an empty one of the test's own.

    class MyTest(plinthtest.DaemonTestCase):
        def test_something(self):
            self.start_daemon(**userdevice.prepare(self))
"""

import os

USER_MANAGER = 'org.brisaos.usermanager'
ALICE = 100000
HOME_SIZE = 16 * 1024 * 1024
PICTURES_BYTES = 1000
MUSIC_BYTES = 200
SYSTEM_LOG_BYTES = 3000
CORE_DUMP_BYTES = 2000


def prepare(testcase):
    """Starts the user manager on the test's bus; the daemon's arguments
    (env, setup, binds) for plinthtest.Daemon."""
    _, mock = testcase.start_mock(USER_MANAGER, '/', USER_MANAGER)
    mock.AddMethod('', 'currentUser', '', 'u', 'ret = dbus.UInt32(%d)' % ALICE)
    passwd = os.path.join(testcase.workdir, 'passwd')
    with open(passwd, 'w') as f:
        f.write('root:x:0:0:root:/root:/bin/sh\nalice:x:%d:%d::/home/alice:/bin/sh\n' % (ALICE, ALICE))
    # Packages come from an empty database of the test's own.
    rpm_home = os.path.join(testcase.workdir, 'rpmhome')
    os.makedirs(os.path.join(rpm_home, 'db'))
    with open(os.path.join(rpm_home, '.rpmmacros'), 'w') as f:
        f.write('%%_dbpath %s\n' % os.path.join(rpm_home, 'db'))
    owner = '%d:%d' % (ALICE, ALICE)
    setup = [
        'mount -t tmpfs -o size=%d tmpfs /home' % HOME_SIZE,
        'mkdir -p /home/alice/Pictures /home/alice/Music',
        'head -c %d /dev/zero > /home/alice/Pictures/a.jpg' % PICTURES_BYTES,
        'head -c %d /dev/zero > /home/alice/Music/song' % MUSIC_BYTES,
        'head -c 300 /dev/zero > /home/alice/notes',
        'chown -R %s /home/alice' % owner,
        'mount -t tmpfs tmpfs /var/log',
        'head -c %d /dev/zero > /var/log/messages' % SYSTEM_LOG_BYTES,
        'mount -t tmpfs tmpfs /var/cache',
        'mkdir /var/cache/core-dumps',
        'head -c %d /dev/zero > /var/cache/core-dumps/core.1' % CORE_DUMP_BYTES,
        'mount -t tmpfs tmpfs /opt',
    ]
    return {'env': {'HOME': rpm_home}, 'setup': setup, 'binds': {'/etc/passwd': passwd}}
