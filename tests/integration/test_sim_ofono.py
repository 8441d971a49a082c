#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The SIM object on the bus, driven by the real oFono daemon and simulated
modems (tests/harness/modemsim.py), with a real dconf database.

These are the expectations of test_sim.py, met by the telephony stack a device
runs rather than by a mock of it. Where oFono's own timing shapes what the
daemon announces, the tests say so:

- oFono creates modems unpowered and without a SIM interface: the list is
  empty until a modem is powered and its card read.
- A card's service provider name is read only once the modem is online, so a
  card is first listed without an operator name, which follows as an update.
- Packet data (org.ofono.ConnectionManager, which decides the data SIM) only
  exists while the modem is online with a card; oFono powers it by default.
- A pulled card stays listed by oFono's SIM interface with "Present" false and
  no other property; it leaves the present list.
- oFono announces ModemRemoved for every modem before it leaves the bus.
- A card is announced "Present" before oFono has read its identity, and the
  SIM watcher lists it at once; the daemon rebuilds its list on list, operator
  name and default SIM changes but not on identity changes, so a card may be
  listed for a while, or until the next such change when the card carries no
  operator name, with an empty identity, which equals an unset default data
  or voice SIM. The tests therefore wait for the final lists rather than
  assert the first one after a card comes.
"""

import sys

import simtest
from simtest import brief, names, sim_card

ENABLED = 'simCardsEnabledChanged'
DATA = 'preferredDataTransferSimChanged'
VOICE = 'preferredVoiceCallSimChanged'

# Powering a modem takes oFono several dozen AT round trips; on a loaded
# machine under a sanitizer that is seconds.
TIMEOUT = 60.0


class RealOfonoSimTest(simtest.SimTestCase):

    def setUp(self):
        super().setUp()
        self.ofono = None

    def tearDown(self):
        # What oFono said is the first thing to read when a test fails here.
        result = getattr(getattr(self, '_outcome', None), 'result', None)
        failed = result is not None and any(test is self for test, _ in result.errors + result.failures)
        if failed and self.ofono is not None:
            sys.stderr.write('--- ofonod.log\n%s\n' % self.ofono.output()[-6000:])
            for index, simulator in enumerate(self.ofono.simulators):
                sys.stderr.write('--- modem %d: unknown commands %s\n' % (index, simulator.unknown_commands))
        super().tearDown()

    def start_ofono_with(self, *cards):
        self.ofono = self.start_real_ofono(list(cards))
        return self.ofono

    def wait_cards(self, expected, timeout=TIMEOUT):
        return super().wait_cards(expected, timeout)

    def start_with_two_cards_powered(self):
        """Two modems with a card each ("Fake Tel", "Other Tel"), both powered
        and online, and the daemon; returns the oFono and the daemon."""
        ofono = self.start_ofono_with(sim_card(0, 'Fake Tel'), sim_card(1, 'Other Tel'))
        ofono.power(0)
        ofono.power(1)
        return ofono, self.start_sim_daemon()

    def assertNoCards(self, mark=0):
        """Nothing listed, now or in any signal since mark."""
        self.signals.settle(quiet=1.0)
        self.assertEqual([brief(cards) for _, _, cards in self.signals.since(mark) if cards], [])
        self.assertEqual(len(self.cards()), 0)

    def assertQuiet(self, mark, member=None, seconds=1.0):
        self.signals.spin(seconds)
        self.assertEqual(self.signals.since(mark, member), [])

    # Before the telephony stack reports a card the list is empty: with no
    # oFono, and with oFono whose modem is not powered yet.
    def test_empty_until_a_modem_is_powered(self):
        self.start_sim_daemon()
        self.assertEqual(len(self.cards()), 0)
        self.assertQuiet(0, seconds=0.5)

        ofono = self.start_ofono_with(sim_card(0, 'Fake Tel'))
        self.assertNoCards()

        ofono.power(0)
        _, cards = self.signals.wait_for(ENABLED, lambda c: len(c) == 1, timeout=TIMEOUT)
        self.assertEqual(brief(cards)[0][:2], ('SIM1', True))
        self.wait_cards([('SIM1', True, 'Fake Tel', True, True)])
        self.assertSignalsWellTyped()

    # One modem: both preference keys are true whatever the default SIMs are.
    def test_one_modem_prefers_its_sim_for_everything(self):
        self.write_settings(voice_sim_usage_mode='1', default_voice_sim="'999'")
        ofono = self.start_ofono_with(sim_card(0, 'Fake Tel'))
        ofono.power(0)
        self.start_sim_daemon()
        cards = self.wait_cards([('SIM1', True, 'Fake Tel', True, True)])
        self.assertCardTypes(cards)
        self.assertSignalsWellTyped()

    def test_two_modems_follow_the_default_sims(self):
        self.write_settings(default_voice_sim="'%s'" % sim_card(1).imsi)
        ofono, daemon = self.start_with_two_cards_powered()
        # Data: the first modem with powered packet data (oFono powers it by
        # default); voice: the setting.
        self.wait_cards([('SIM1', True, 'Fake Tel', True, False), ('SIM2', True, 'Other Tel', False, True)])

        # A data SIM switch is announced, with the whole list.
        mark = self.signals.settle()
        ofono.set_data_powered(0, False)
        _, cards = self.signals.wait_for(DATA, start=mark, timeout=TIMEOUT)
        self.assertEqual(brief(cards), [('SIM1', True, 'Fake Tel', False, False),
                                        ('SIM2', True, 'Other Tel', True, True)])

        # A voice SIM change made in the settings store reaches the daemon.
        mark = self.signals.settle()
        self.write_settings(default_voice_sim="'%s'" % sim_card(0).imsi)
        _, cards = self.signals.wait_for(VOICE, start=mark, timeout=TIMEOUT)
        self.assertEqual(brief(cards), [('SIM1', True, 'Fake Tel', False, True),
                                        ('SIM2', True, 'Other Tel', True, False)])
        self.assertSignalsWellTyped()

    # Data only needs several modems; voice also needs several present cards.
    # Unlike the mock's card-less modem, oFono's has no packet data at all
    # (it comes with an online modem's card), so the data SIM is the other
    # modem's from the start.
    def test_two_modems_one_sim(self):
        self.write_settings(default_voice_sim="'%s'" % sim_card(0).imsi)
        ofono = self.start_ofono_with(None, sim_card(1, 'Other Tel'))
        ofono.power(0)
        ofono.power(1)
        self.start_sim_daemon()
        self.wait_cards([('SIM2', True, 'Other Tel', True, True)])

        # A card in the first modem: it is listed, and once the modem is
        # online its packet data makes it the data SIM.
        ofono.insert_card(0, sim_card(0, 'Fake Tel'))
        ofono.go_online(0)
        self.wait_cards([('SIM1', True, 'Fake Tel', True, True), ('SIM2', True, 'Other Tel', False, False)])
        self.assertSignalsWellTyped()

    # A pulled card leaves the list at once; the data SIM moves to the modem
    # that still has one. A new card comes back without an operator name,
    # which follows once oFono has read it.
    def test_card_pulled_and_inserted(self):
        ofono, daemon = self.start_with_two_cards_powered()
        self.wait_cards([('SIM1', True, 'Fake Tel', True, False), ('SIM2', True, 'Other Tel', False, False)])

        mark = self.signals.settle()
        ofono.pull_card(0)
        index, cards = self.signals.wait_for(ENABLED, start=mark, timeout=TIMEOUT)
        self.assertEqual(names(cards), ['SIM2'])
        self.signals.wait_for(DATA, lambda c: brief(c) == [('SIM2', True, 'Other Tel', True, True)],
                              start=index, timeout=TIMEOUT)
        self.wait_cards([('SIM2', True, 'Other Tel', True, True)])

        mark = self.signals.settle()
        ofono.insert_card(0, sim_card(5, 'New Tel'))
        index, cards = self.signals.wait_for(ENABLED, lambda c: len(c) == 2, start=mark, timeout=TIMEOUT)
        self.assertEqual(names(cards), ['SIM1', 'SIM2'])
        # The modem stayed online: its packet data comes back with the card
        # and, first in path order, carries the data again.
        self.signals.wait_for(ENABLED, lambda c: brief(c)[0][2] == 'New Tel', start=index, timeout=TIMEOUT)
        self.wait_cards([('SIM1', True, 'New Tel', True, False), ('SIM2', True, 'Other Tel', False, False)])
        self.assertSignalsWellTyped()

    # A modem switched off takes its card off the list.
    def test_modem_powered_off(self):
        ofono, daemon = self.start_with_two_cards_powered()
        self.wait_cards([('SIM1', True, 'Fake Tel', True, False), ('SIM2', True, 'Other Tel', False, False)])

        mark = self.signals.settle()
        ofono.power_off(0)
        _, cards = self.signals.wait_for(ENABLED, start=mark, timeout=TIMEOUT)
        self.assertEqual(names(cards), ['SIM2'])
        self.wait_cards([('SIM2', True, 'Other Tel', True, True)])
        self.assertSignalsWellTyped()

    # Any usage mode but 1 and 2 means no SIM is preferred for voice.
    def test_usage_mode_zero_prefers_no_voice_sim(self):
        self.write_settings(voice_sim_usage_mode='0', default_voice_sim="'%s'" % sim_card(0).imsi)
        ofono, daemon = self.start_with_two_cards_powered()
        self.signals.wait_for(VOICE, timeout=TIMEOUT)
        self.wait_cards([('SIM1', True, 'Fake Tel', True, False), ('SIM2', True, 'Other Tel', False, False)])

        mark = self.signals.settle()
        self.write_settings(voice_sim_usage_mode='2', default_voice_sim="'%s'" % sim_card(0).imsi)
        _, cards = self.signals.wait_for(VOICE, start=mark, timeout=TIMEOUT)
        self.assertEqual(brief(cards), [('SIM1', True, 'Fake Tel', True, True),
                                        ('SIM2', True, 'Other Tel', False, False)])

    # The same voice SIM notified again: quiet in mode 1, announced in mode 2.
    def test_repeated_voice_notification(self):
        second = sim_card(1).imsi
        self.write_settings(voice_sim_usage_mode='1', default_voice_sim="'%s'" % second)
        ofono, daemon = self.start_with_two_cards_powered()
        expected = [('SIM1', True, 'Fake Tel', True, False), ('SIM2', True, 'Other Tel', False, True)]
        self.wait_cards(expected)

        mark = self.signals.settle()
        self.write_settings(voice_sim_usage_mode='int64 1', default_voice_sim="'%s'" % second)
        self.assertQuiet(mark)

        mark = self.signals.settle()
        self.write_settings(voice_sim_usage_mode='2', default_voice_sim="'%s'" % second)
        _, cards = self.signals.wait_for(VOICE, start=mark, timeout=TIMEOUT)
        self.assertEqual(brief(cards), expected)

        mark = self.signals.settle()
        self.write_settings(voice_sim_usage_mode='1', default_voice_sim="'%s'" % second)
        self.assertQuiet(mark)
        self.assertSignalsWellTyped()

    # oFono says goodbye modem by modem before it leaves the bus; the list
    # empties, and follows the next oFono, whose modems start unpowered again.
    def test_ofono_leaves_and_comes_back(self):
        ofono, daemon = self.start_with_two_cards_powered()
        self.wait_cards([('SIM1', True, 'Fake Tel', True, False), ('SIM2', True, 'Other Tel', False, False)])

        mark = self.signals.settle()
        ofono.stop()
        self.signals.wait_for(ENABLED, lambda cards: len(cards) == 0, start=mark, timeout=TIMEOUT)
        self.wait_cards([])
        self.assertIsNone(daemon.process.poll())

        mark = self.signals.mark()
        ofono.start()
        self.assertNoCards(mark)
        ofono.power(0)
        ofono.power(1)
        self.wait_cards([('SIM1', True, 'Fake Tel', True, False), ('SIM2', True, 'Other Tel', False, False)])
        self.assertIsNone(daemon.process.poll())
        self.assertSignalsWellTyped()

    # Everything the SIM object set up is torn down cleanly on SIGTERM (and,
    # in the sanitizer builds, without a report), after cards came and went.
    def test_clean_exit_after_changes(self):
        ofono, daemon = self.start_with_two_cards_powered()
        self.wait_cards([('SIM1', True, 'Fake Tel', True, False), ('SIM2', True, 'Other Tel', False, False)])
        self.write_settings(default_voice_sim="'%s'" % sim_card(1).imsi)
        ofono.pull_card(0)
        self.wait_cards([('SIM2', True, 'Other Tel', True, True)])
        ofono.insert_card(0, sim_card(0, 'Fake Tel'))
        self.wait_cards([('SIM1', True, 'Fake Tel', True, False), ('SIM2', True, 'Other Tel', False, True)])
        self.assertEqual(daemon.terminate(), 0)
        output = daemon.output()
        self.assertNotIn('Sanitizer', output)
        self.assertNotIn('runtime error', output)


if __name__ == '__main__':
    simtest.main()
