#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""The SIM object on the bus, driven by a mocked oFono and a real dconf database."""

import dbus

import simtest
from simtest import brief, imsi, names

ENABLED = 'simCardsEnabledChanged'
DATA = 'preferredDataTransferSimChanged'
VOICE = 'preferredVoiceCallSimChanged'


class SimTest(simtest.SimTestCase):

    def assertQuiet(self, mark, member=None, seconds=1.0):
        self.signals.spin(seconds)
        self.assertEqual(self.signals.since(mark, member), [])

    # Before the telephony libraries report anything, the list is empty; it
    # follows oFono when oFono comes later.
    def test_empty_until_telephony_reports(self):
        self.start_sim_daemon()
        cards = self.cards()
        self.assertIsInstance(cards, dbus.Array)
        self.assertEqual(cards.signature, 'a{sv}')
        self.assertEqual(len(cards), 0)
        self.assertQuiet(0, seconds=0.5)
        self.assertEqual(len(self.cards()), 0)

        ofono = self.start_ofono()
        ofono.add_modem('ril_0')
        _, cards = self.signals.wait_for(ENABLED, lambda c: len(c) == 1)
        self.assertEqual(brief(cards), [('SIM1', True, '', True, True)])
        self.assertSignalsWellTyped()

    # One modem: both preference keys are true whatever the default SIMs are.
    def test_one_modem_prefers_its_sim_for_everything(self):
        self.write_settings(voice_sim_usage_mode='1', default_voice_sim="'999'")
        ofono = self.start_ofono()
        ofono.add_modem('ril_0')
        self.start_sim_daemon()
        cards = self.wait_cards([('SIM1', True, '', True, True)])
        self.assertCardTypes(cards)
        self.assertSignalsWellTyped()

    def test_two_modems_follow_the_default_sims(self):
        self.write_settings(default_voice_sim="'%s'" % imsi(1))
        ofono = self.start_ofono()
        first = ofono.add_modem('ril_0')
        ofono.add_modem('ril_1')
        self.start_sim_daemon()
        # Data: the first modem with powered packet data; voice: the setting.
        self.wait_cards([('SIM1', True, '', True, False), ('SIM2', True, '', False, True)])

        # A data SIM switch is announced, with the whole list.
        mark = self.signals.settle()
        ofono.set_data_powered(first, False)
        _, cards = self.signals.wait_for(DATA, start=mark)
        self.assertEqual(brief(cards), [('SIM1', True, '', False, False), ('SIM2', True, '', True, True)])

        # A voice SIM change made in the settings store reaches the daemon.
        mark = self.signals.settle()
        self.write_settings(default_voice_sim="'%s'" % imsi(0))
        _, cards = self.signals.wait_for(VOICE, start=mark)
        self.assertEqual(brief(cards), [('SIM1', True, '', False, True), ('SIM2', True, '', True, False)])
        self.assertSignalsWellTyped()

    # Data only needs several modems; voice also needs several present cards.
    # As in oFono, a modem without a card has no packet data, so the data SIM
    # is the other modem's until its packet data is switched off.
    def test_two_modems_one_sim(self):
        self.write_settings(default_voice_sim="'%s'" % imsi(0))
        ofono = self.start_ofono()
        first = ofono.add_modem('ril_0')
        second = ofono.add_modem('ril_1')
        ofono.pull_card(first)
        self.start_sim_daemon()
        self.wait_cards([('SIM2', True, '', True, True)])

        ofono.set_data_powered(second, False)
        self.wait_cards([('SIM2', True, '', False, True)])
        self.assertSignalsWellTyped()

    # A pulled card leaves the list at once and the data SIM moves to the
    # modem that still has one; an inserted card comes back and, its modem
    # first in path order, carries the data again.
    def test_card_pulled_and_inserted(self):
        ofono = self.start_ofono()
        first = ofono.add_modem('ril_0')
        ofono.add_modem('ril_1')
        self.start_sim_daemon()
        self.wait_cards([('SIM1', True, '', True, False), ('SIM2', True, '', False, False)])

        mark = self.signals.settle()
        ofono.pull_card(first)
        index, cards = self.signals.wait_for(ENABLED, start=mark)
        self.assertEqual(names(cards), ['SIM2'])
        self.signals.wait_for(DATA, lambda c: brief(c) == [('SIM2', True, '', True, True)], start=index)
        self.wait_cards([('SIM2', True, '', True, True)])

        mark = self.signals.settle()
        ofono.insert_card(first, imsi(5), '8935805000000000005')
        _, cards = self.signals.wait_for(ENABLED, lambda c: len(c) == 2, start=mark)
        self.assertEqual(names(cards), ['SIM1', 'SIM2'])
        self.wait_cards([('SIM1', True, '', True, False), ('SIM2', True, '', False, False)])
        self.assertSignalsWellTyped()

    # Any usage mode but 1 and 2 means no SIM is preferred for voice.
    def test_usage_mode_zero_prefers_no_voice_sim(self):
        self.write_settings(voice_sim_usage_mode='0', default_voice_sim="'%s'" % imsi(0))
        ofono = self.start_ofono()
        ofono.add_modem('ril_0')
        ofono.add_modem('ril_1')
        self.start_sim_daemon()
        self.signals.wait_for(VOICE)
        self.wait_cards([('SIM1', True, '', True, False), ('SIM2', True, '', False, False)])

        mark = self.signals.settle()
        self.write_settings(voice_sim_usage_mode='2', default_voice_sim="'%s'" % imsi(0))
        _, cards = self.signals.wait_for(VOICE, start=mark)
        self.assertEqual(brief(cards), [('SIM1', True, '', True, True), ('SIM2', True, '', False, False)])

    # The same voice SIM notified again: quiet in mode 1, announced in mode 2.
    def test_repeated_voice_notification(self):
        self.write_settings(voice_sim_usage_mode='1', default_voice_sim="'%s'" % imsi(1))
        ofono = self.start_ofono()
        ofono.add_modem('ril_0')
        ofono.add_modem('ril_1')
        self.start_sim_daemon()
        expected = [('SIM1', True, '', True, False), ('SIM2', True, '', False, True)]
        self.wait_cards(expected)

        # A new type for the same mode makes the setting notify; the voice SIM
        # is handed over again unchanged.
        mark = self.signals.settle()
        self.write_settings(voice_sim_usage_mode='int64 1', default_voice_sim="'%s'" % imsi(1))
        self.assertQuiet(mark)

        mark = self.signals.settle()
        self.write_settings(voice_sim_usage_mode='2', default_voice_sim="'%s'" % imsi(1))
        _, cards = self.signals.wait_for(VOICE, start=mark)
        self.assertEqual(brief(cards), expected)
        mark = self.signals.settle()
        self.write_settings(voice_sim_usage_mode='int64 2', default_voice_sim="'%s'" % imsi(1))
        _, cards = self.signals.wait_for(VOICE, start=mark)
        self.assertEqual(brief(cards), expected)

        # Back to mode 1 with the same SIM: nothing new to say.
        mark = self.signals.settle()
        self.write_settings(voice_sim_usage_mode='1', default_voice_sim="'%s'" % imsi(1))
        self.assertQuiet(mark)
        self.assertSignalsWellTyped()

    def test_sim_names_from_modem_paths(self):
        ofono = self.start_ofono()
        ofono.add_modem('ril_1')
        ofono.add_modem('modem')
        self.start_sim_daemon()
        # Path order puts "/modem" first; it also carries data.
        cards = self.wait_cards([('', True, '', True, False), ('SIM2', True, '', False, False)])
        self.assertEqual(names(cards), ['', 'SIM2'])

    # An operator name change is taken once; the next list change re-arms it.
    def test_operator_name_update_is_one_shot(self):
        ofono = self.start_ofono()
        first = ofono.add_modem('ril_0')
        self.start_sim_daemon()
        self.wait_cards([('SIM1', True, '', True, True)])

        mark = self.signals.settle()
        ofono.set_operator_name(first, 'Fake Tel')
        _, cards = self.signals.wait_for(ENABLED, start=mark)
        self.assertEqual(brief(cards), [('SIM1', True, 'Fake Tel', True, True)])

        mark = self.signals.settle()
        ofono.set_operator_name(first, 'Other Tel')
        self.assertQuiet(mark)
        self.assertEqual(brief(self.cards()), [('SIM1', True, 'Fake Tel', True, True)])

        # Each list change connects the cards again, so after two more the
        # first card holds two connections; its next name change still gives
        # one signal, and the one after that none.
        ofono.add_modem('ril_1')
        self.wait_cards([('SIM1', True, 'Other Tel', True, True), ('SIM2', True, '', True, True)])
        ofono.add_modem('ril_2')
        self.wait_cards([('SIM1', True, 'Other Tel', True, True), ('SIM2', True, '', True, True),
                         ('SIM3', True, '', True, True)])
        mark = self.signals.settle()
        ofono.set_operator_name(first, 'Third Tel')
        self.signals.wait_for(ENABLED, start=mark)
        self.assertQuiet(self.signals.mark())
        self.assertEqual(len(self.signals.since(mark)), 1)
        self.assertEqual(brief(self.cards())[0], ('SIM1', True, 'Third Tel', True, True))
        mark = self.signals.settle()
        ofono.set_operator_name(first, 'Fourth Tel')
        self.assertQuiet(mark)
        self.assertSignalsWellTyped()

    def test_modem_removed_while_listed(self):
        ofono = self.start_ofono()
        first = ofono.add_modem('ril_0')
        ofono.add_modem('ril_1')
        self.start_sim_daemon()
        self.wait_cards([('SIM1', True, '', True, False), ('SIM2', True, '', False, False)])

        ofono.remove_modem(first)
        # The data SIM moves to the modem that is left.
        self.wait_cards([('SIM2', True, '', True, True)])
        self.assertSignalsWellTyped()

    # oFono removes its modems one by one before it leaves the bus.
    def test_ofono_leaves_and_comes_back(self):
        ofono = self.start_ofono()
        ofono.add_modem('ril_0')
        ofono.add_modem('ril_1')
        daemon = self.start_sim_daemon()
        self.wait_cards([('SIM1', True, '', True, False), ('SIM2', True, '', False, False)])

        mark = self.signals.settle()
        ofono.stop()
        self.signals.wait_for(ENABLED, lambda cards: len(cards) == 0, start=mark)
        self.wait_cards([])

        ofono = self.start_ofono()
        ofono.add_modem('ril_0')
        self.wait_cards([('SIM1', True, '', True, True)])
        self.assertIsNone(daemon.process.poll())
        self.assertSignalsWellTyped()

    def test_sim_without_subscriber_identity(self):
        ofono = self.start_ofono()
        first = ofono.add_modem('ril_0')
        ofono.add_modem('ril_1')
        ofono.set_sim(first, 'SubscriberIdentity', dbus.String(''))
        daemon = self.start_sim_daemon()
        # The data SIM is the first modem's, which has no identity, and there
        # is no voice SIM: the card without an identity matches both.
        self.wait_cards([('SIM1', True, '', True, True), ('SIM2', True, '', False, False)])
        self.assertIsNone(daemon.process.poll())

    # Everything the SIM object set up is torn down cleanly on SIGTERM (and,
    # in the sanitizer builds, without a report).
    def test_clean_exit_after_changes(self):
        ofono = self.start_ofono()
        first = ofono.add_modem('ril_0')
        ofono.add_modem('ril_1')
        daemon = self.start_sim_daemon()
        self.wait_cards([('SIM1', True, '', True, False), ('SIM2', True, '', False, False)])
        self.write_settings(default_voice_sim="'%s'" % imsi(1))
        ofono.set_operator_name(first, 'Fake Tel')
        self.wait_cards([('SIM1', True, 'Fake Tel', True, False), ('SIM2', True, '', False, True)])
        self.assertEqual(daemon.terminate(), 0)
        output = daemon.output()
        self.assertNotIn('Sanitizer', output)
        self.assertNotIn('runtime error', output)

    # Without the daemon's dconf profile the settings read as unset (mode 2).
    def test_missing_settings_profile(self):
        ofono = self.start_ofono()
        ofono.add_modem('ril_0')
        daemon = self.start_sim_daemon(env={'DCONF_PROFILE': 'nosuchprofile'})
        self.wait_cards([('SIM1', True, '', True, True)])
        self.assertIsNone(daemon.process.poll())


if __name__ == '__main__':
    simtest.main()
