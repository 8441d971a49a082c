#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""A medium that answers slowly holds only the callers that need it.

The test build of the daemon has a seam in its quota source: while the file
that PLINTHD_TEST_HOLD_QUOTA names does not exist, every question to the
kernel about a quota waits on its worker (as on a hung network home or a
spun-down disk). Meanwhile the Features and SIM objects answer, the other
storage queries are computed, and drive signals go out; once the test
creates the file, every held call is answered, none with an error.
"""

import os
import time

import dbus

import knownanswers
import loadclients
import scriptedpeer
import storagebench
from plinthtest import FEATURES_IFACE, FEATURES_PATH, SIM_IFACE, SIM_PATH, STORAGES_IFACE, STORAGES_PATH

HELD_CALLS = 20
# A current user the account database knows on any machine, so that its
# quota is asked for.
ROOT_UID = 0
OTHERS_SECONDS = 5.0


def of_signature(signature):
    def check(value):
        if isinstance(value, (dbus.Array, dbus.Dictionary)) and value.signature == signature:
            return None
        return 'not of signature %s: %r' % (signature, value)
    return check


class SlowQuotaSourceTest(storagebench.StorageTestCase):

    def test_held_quota_source_holds_only_its_callers(self):
        release = os.path.join(self.workdir, 'release-quota')
        scriptedpeer.ScriptedPeer(self, knownanswers.USER_MANAGER, '/', {
            knownanswers.USER_MANAGER + '.currentUser': ('u', ROOT_UID),
            knownanswers.USER_MANAGER + '.getUserLocale': ('s', 'en_US.utf8'),
        })
        self.start_storage_daemon(devices=('emmc',), env={'PLINTHD_TEST_HOLD_QUOTA': release})
        signals = self.recorder()
        load = loadclients.Load(self.system_bus.address, clients=4, in_flight=4)
        self.addCleanup(load.close)

        quota = loadclients.Call(STORAGES_PATH, STORAGES_IFACE, 'getUsersQuotaInfo', of_signature('sa{sv}'))
        held = [load.start(quota, client=i % load.clients) for i in range(HELD_CALLS)]
        loadclients.spin(1.0)
        self.assertEqual({p.problem for p in held}, {'no answer'})

        others = [
            loadclients.Call(FEATURES_PATH, FEATURES_IFACE, 'getNumberCpuCores',
                             lambda value: None if isinstance(value, dbus.UInt32) else repr(value)),
            loadclients.Call(SIM_PATH, SIM_IFACE, 'getSimCardsInfo', dbus.Array([], signature='a{sv}')),
            loadclients.Call(STORAGES_PATH, STORAGES_IFACE, 'getExternalStorageDrivesInfo', of_signature('a{sv}')),
        ]
        for call in others:
            pending = load.start(call, client=0).wait(OTHERS_SECONDS)
            self.assertIsNone(pending.problem, call.method)
            self.assertLess(pending.seconds, OTHERS_SECONDS, call.method)

        # A card arrives: the partition manager's notifications still go out.
        self.plug('sdcard')
        got = signals.wait_for(4)
        self.assertEqual([name for name, _ in got], ['externalStorageChanged', 'externalDriveChanged'] * 2)
        self.assertEqual({p.problem for p in held}, {'no answer'})

        with open(release, 'w'):
            pass
        started = time.monotonic()
        for pending in held:
            pending.wait(30)
        self.assertEqual([p.problem for p in held], [None] * HELD_CALLS)
        self.assertLess(time.monotonic() - started, 30)


if __name__ == '__main__':
    storagebench.main()
