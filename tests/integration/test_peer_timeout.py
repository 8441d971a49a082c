#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""A user manager that stays on the bus but never answers getUserLocale.

The daemon asks it asynchronously with Qt's default D-Bus time-out (25
seconds), so getLocale answers "C" after that long, while every other call is
served meanwhile, in full. The test lasts as long as the time-out; it is the
one place where it is waited out.
"""

import dbus

import knownanswers
import plinthtest
import scriptedpeer
import test_peer_faults

DEFAULT_TIMEOUT = 25.0


class NeverAnsweringUserManagerTest(test_peer_faults.PeerFaultTestCase):

    def test_get_locale_gives_up_after_the_default_timeout(self):
        user_manager = knownanswers.start_user_manager(self, locale_delay=scriptedpeer.NEVER)
        daemon = self.start()
        locale = self.load.start(self.device.call('getLocale'))
        user_manager.wait_for_call(test_peer_faults.GET_USER_LOCALE)
        others = [self.load.start(call, client=1 + i % 15)
                  for i, call in enumerate(self.device.calls()) if call.method != 'getLocale']
        for pending in others:
            pending.wait(5)
        self.assertEqual([p.problem for p in others], [None] * len(others))
        self.assertEqual(locale.problem, 'no answer')

        locale.wait(DEFAULT_TIMEOUT + 15)
        self.assertEqual(locale.value, dbus.String('C'), locale.problem)
        self.assertGreater(locale.seconds, DEFAULT_TIMEOUT - 1)
        self.assertLess(locale.seconds, DEFAULT_TIMEOUT + 10)
        self.assertEqual(daemon.output().count(test_peer_faults.LOCALE_WARNING), 1, daemon.output())
        # The peer is still there: the daemon gave up on its own, nobody
        # ended the call for it.
        self.assertIsNone(user_manager.process.poll())
        self.assertCleanExit(daemon)


if __name__ == '__main__':
    plinthtest.main()
