#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Chaos soak: the real daemon under many clients while its peers come, go,
hang and fail, drives come and go and mounts change.

    tests/soak/test_soak.py                      # about 2 minutes, a new seed
    tests/soak/test_soak.py --seconds 1200       # a long run by hand
    tests/soak/test_soak.py --seed 1234          # replays that run's schedule
    tests/soak/test_soak.py --reproducer         # the load that once crashed it

(PLINTHD_SOAK_SECONDS and PLINTHD_SOAK_SEED say the same from the
environment.) It needs root, Debian's interpreter and a built tree: CTest runs
it with the environment of the integration tests.

Sixteen clients keep four calls each in flight, picking at random among every
method and every property of the three objects. A chaos schedule, drawn from
the seed before the run, starts, stops, stalls (SIGSTOP for longer than the
daemon's call time-out) and fails (error replies) the user manager, systemd,
oFono and the policy manager, plugs and unplugs an SD card (umockdev), mounts
and unmounts its first partition, adds and removes modems, rewrites the SIM
settings and changes the system logs the daemon walks (files written, made and
deleted, folders made and removed), whose figure it keeps between queries. In the second round the user manager is instead stopped for
PAUSE_SECONDS at a time, again and again, with calls that need it held
meanwhile and answered with its real answers when it goes on (no other peer
stalls in that round). The same seed gives the same schedule; which call meets which peer
state still depends on the machine's timing, so every reply is checked against
each state the world was in while it was on its way (plus a short lag, as the
daemon hears of some changes only through signals):

- the D-Bus type, always, and never an error reply;
- the exact value where the state decides it (getLocale, the external storage
  and drive maps, the quota map without a user, SIM cards without oFono, the
  system logs' figure), else
  the neutral value the interface gives when a peer is missing, and a value
  that never changes for everything read at start-up;
- an answer within REPLY_DEADLINE: a call behind a stalled peer waits at most
  for the daemon's own time-out of that peer, and perhaps one more behind it.

The run has three equal rounds. After each the world is put back as it was at
the start, and the daemon's resident memory is read: after round 3 it must be
within 1 MiB of the figure after round 1 (sanitizer builds keep freed memory
on purpose, so there the leak checker at exit stands in for it). At the end
SIGTERM must give exit status 0 and no sanitizer report.
"""

import argparse
import collections
import os
import random
import shutil
import signal
import sys
import time

import dbus
import dbus.mainloop.glib
from gi.repository import GLib

import knownanswers
import loadclients
import plainwalk
import plinthtest
import scriptedpeer
import simtest
import storagebench
from loadclients import variant
from plinthtest import (BUS_NAME, FEATURES_IFACE, FEATURES_PATH, SIM_IFACE, SIM_PATH,
                        STORAGES_IFACE, STORAGES_PATH)

DEFAULT_SECONDS = 120
ROUNDS = 3
CLIENTS = 16
IN_FLIGHT = 4

# QtDBus's default time-out of the daemon's calls to its peers.
PEER_CALL_TIMEOUT = 25
# A stalled peer is stopped for longer than that.
STALL_SECONDS = PEER_CALL_TIMEOUT + 5
# The longest a call may wait: a stall, the daemon's time-out of one more call
# that went out just before the peer went on, and a margin for the slow
# sanitizer builds on a loaded machine.
REPLY_DEADLINE = STALL_SECONDS + PEER_CALL_TIMEOUT + 35
# Changes the daemon learns of through signals of the peer (oFono, dconf)
# reach its answers a little later than they happen.
SIGNAL_LAG = 5.0
# An answer about the card may be a little older than the call: identical
# storage queries in flight share one computation, which may have read the
# mount table just before a change, and the daemon's own picture follows the
# mount table a rescan later. Neither is older than one computation, which
# takes well under this even in the sanitizer builds.
MEDIA_LAG = 5.0
# A call that needs the user manager may join a round trip the daemon sent a
# moment before the peer changed (identical ones in flight are shared): its
# answer is then the peer's of just before.
ROUND_TRIP_LAG = 1.0
# Calls whose answers depend on a peer are drawn this many times as often as
# the others, and the user manager's events (the peer the locale and the user
# figures wait for) as often as the other events: where peers fail is where
# the daemon is weakest.
PEER_WEIGHT = 5
USER_MANAGER_WEIGHT = 3
# The round (counted from 1) in which the user manager is stopped for
# PAUSE_SECONDS at a time, shorter than the daemon's time-out: every call held
# meanwhile must get the user's real answer, with PAUSE_GAP seconds between.
PAUSE_ROUND = 2
PAUSE_SECONDS = 10
PAUSE_GAP = 4
# Seconds between chaos events, drawn evenly from this range.
EVENT_GAP = (0.3, 2.5)
RSS_GROWTH_LIMIT_KIB = 1024

MiB = 1024 * 1024
CARD_MOUNT_BYTES = 8 * MiB
USER_MANAGER = 'org.brisaos.usermanager'
SYSTEMD = 'org.freedesktop.systemd1'
POLICY_MANAGER = 'org.norvu.PolicyManager'
PROPERTIES_IFACE = 'org.freedesktop.DBus.Properties'

# Peer states.
UP, DOWN, FAILING, STALLED = 'up', 'down', 'failing', 'stalled'
# A drive or mount in the middle of changing: only types are checked then.
CHANGING = 'changing'


def settings():
    return {'seconds': float(os.environ.get('PLINTHD_SOAK_SECONDS', DEFAULT_SECONDS)),
            'seed': os.environ.get('PLINTHD_SOAK_SEED'),
            'reproducer': bool(os.environ.get('PLINTHD_SOAK_REPRODUCER'))}


# ---------------------------------------------------------------------------
# The world: the state of every peer and of the card, with its history.

INITIAL_WORLD = {'user_manager': UP, 'systemd': UP, 'policy_manager': UP, 'ofono': UP,
                 'modems': 0, 'card': True, 'mounted': True, 'logs': None}


class World:
    """The states the world has been in, with the time each began."""

    def __init__(self, state):
        self.history = [(time.monotonic(), dict(state))]

    @property
    def now(self):
        return self.history[-1][1]

    def set(self, **changes):
        state = dict(self.now)
        state.update(changes)
        self.history.append((time.monotonic(), state))

    def states_during(self, start, end, lag=0.0):
        """Every state in force at some moment of [start - lag, end].

        Replies are checked as they come, so the states they need are near
        the end of the history: it is read backwards, up to the state in
        force at the start."""
        start -= lag
        states = []
        for since, state in reversed(self.history):
            if since <= end:
                states.append(state)
            if since <= start:
                break
        return states


# ---------------------------------------------------------------------------
# What each call may answer.

class Expect:
    """One call and the check of its reply against the possible world states."""

    def __init__(self, path, interface, method, check, signature='', args=(), lag=0.0, weight=1):
        self.path = path
        self.weight = weight
        self.interface = interface
        self.method = method
        self.check = check          # check(value, states) -> problem or None
        self.signature = signature
        self.args = list(args)
        self.lag = lag

    @property
    def name(self):
        if self.interface == PROPERTIES_IFACE:
            return '%s.%s(%s)' % (self.path.rsplit('/', 1)[-1], self.method, self.args[-1])
        return '%s.%s' % (self.path.rsplit('/', 1)[-1], self.method)


def exactly(expected):
    return lambda value, states: loadclients.describe_mismatch(value, expected)


def one_of(candidates, value):
    """None when VALUE is one of CANDIDATES (value and type), else the first mismatch."""
    problems = []
    for candidate in candidates:
        problem = loadclients.describe_mismatch(value, candidate)
        if problem is None:
            return None
        problems.append(problem)
    return ' / '.join(sorted(set(problems)))


def map_with(keys_and_types, optional=()):
    """An a{sv} holding exactly these keys (and perhaps the optional ones), of these types."""
    def check(value):
        if not isinstance(value, dbus.Dictionary) or value.signature != 'sv':
            return 'not a{sv}: %r' % (value,)
        allowed = dict(keys_and_types)
        allowed.update(optional)
        missing = set(keys_and_types) - set(value)
        extra = set(value) - set(allowed)
        if missing or extra:
            return 'keys missing %s, unexpected %s' % (sorted(missing), sorted(extra))
        for key, item in value.items():
            if type(item) is not allowed[key] or item.variant_level != 1:
                return 'key %s: %s, not %s' % (key, type(item).__name__, allowed[key].__name__)
        return None
    return check


class Expectations:
    """Every method and property of the three objects, with their checks."""

    def __init__(self, device, where, startup_properties):
        self.device = device
        self.where = where
        self.startup_properties = startup_properties

    # -- Storages ---------------------------------------------------------

    def external(self, state):
        """(summary, drives) for a world state's card and mount."""
        return storagebench.sd_card_answers(plugged=state['card'], mounted_at=self.where if state['mounted'] else None,
                                            mounted_bytes=CARD_MOUNT_BYTES)

    def external_summary(self, value, states):
        if any(s['card'] == CHANGING or s['mounted'] == CHANGING for s in states):
            return map_with(SUMMARY_KEYS)(value)
        return one_of([self.external(s)[0] for s in states], value)

    def external_drives(self, value, states):
        if any(s['card'] == CHANGING or s['mounted'] == CHANGING for s in states):
            if not isinstance(value, dbus.Array) or value.signature != 'a{sv}':
                return 'not aa{sv}: %r' % (value,)
            return None
        return one_of([self.external(s)[1] for s in states], value)

    @staticmethod
    def user_known(states):
        """Whether the daemon could, or could not, have had the current user."""
        could = any(s['user_manager'] in (UP, STALLED) for s in states)
        could_not = any(s['user_manager'] != UP for s in states)
        return could, could_not

    def user_partition(self, value, states):
        could, could_not = self.user_known(states)
        problem = map_with(PARTITION_SUMMARY_KEYS, BREAKDOWN_KEYS)(value)
        if problem:
            return problem
        labels = ([variant(dbus.String('owner partition'))] if could else []) + (
            [variant(dbus.String(' partition'))] if could_not else [])
        problem = one_of(labels, value['deviceLabel'])
        if problem:
            return 'deviceLabel: ' + problem
        has_breakdown = 'bytesUsedPictures' in value
        if has_breakdown and not could:
            return 'a breakdown by folders without a user manager'
        if not has_breakdown and not could_not:
            return 'no breakdown by folders with the user manager there'
        if has_breakdown and set(value) != set(PARTITION_SUMMARY_KEYS) | set(BREAKDOWN_KEYS):
            return 'a partial breakdown: %s' % sorted(value)
        return None

    def quotas(self, value, states):
        if not isinstance(value, dbus.Dictionary) or value.signature != 'sa{sv}':
            return 'not a{sa{sv}}: %r' % (value,)
        could, _ = self.user_known(states)
        if value and not could:
            return 'quotas without a user manager: %r' % (value,)
        return None

    @staticmethod
    def system_storage(value, states):
        problem = map_with(SYSTEM_KEYS)(value)
        logs = [s['logs'] for s in states]
        if problem or CHANGING in logs or int(value['bytesUsedSystemLogs']) in logs:
            return problem
        return 'bytesUsedSystemLogs %d, while the logs held %s' % (int(value['bytesUsedSystemLogs']), logs)

    # -- Features and SIM -------------------------------------------------

    def locale(self, value, states):
        could, could_not = self.user_known(states)
        candidates = ([dbus.String('en_US')] if could else []) + ([dbus.String('C')] if could_not else [])
        return one_of(candidates, value)

    @staticmethod
    def sim_cards(value, states):
        if not isinstance(value, dbus.Array) or value.signature != 'a{sv}':
            return 'not aa{sv}: %r' % (value,)
        for card in value:
            problem = map_with(CARD_KEYS)(card)
            if problem:
                return problem
        most = max(s['modems'] if s['ofono'] in (UP, STALLED) else 0 for s in states)
        if len(value) > most:
            return '%d cards, with at most %d modems' % (len(value), most)
        return None

    def calls(self):
        # The soak's device has no /proc/device-tree (see SoakTest.setUp), so
        # the processor model the device tree names is not there either.
        answers = {c.method: c.expected for c in self.device.calls() if c.interface == FEATURES_IFACE}
        answers['getCpuModel'] = dbus.String('')
        del answers['getLocale']
        features = [Expect(FEATURES_PATH, FEATURES_IFACE, method, exactly(expected))
                    for method, expected in answers.items()]
        features.append(Expect(FEATURES_PATH, FEATURES_IFACE, 'getLocale', self.locale, weight=PEER_WEIGHT,
                               lag=ROUND_TRIP_LAG))
        properties = [Expect(FEATURES_PATH, PROPERTIES_IFACE, 'Get', exactly(value), 'ss', [FEATURES_IFACE, name])
                      for name, value in self.startup_properties.items()]
        properties.append(Expect(FEATURES_PATH, PROPERTIES_IFACE, 'GetAll',
                                 exactly(dbus.Dictionary({dbus.String(k): variant(v)
                                                          for k, v in self.startup_properties.items()},
                                                         signature='sv')),
                                 's', [FEATURES_IFACE]))

        def storages(method, check, weight=1, lag=0.0):
            return Expect(STORAGES_PATH, STORAGES_IFACE, method, check, weight=weight, lag=lag)
        return features + properties + [
            Expect(SIM_PATH, SIM_IFACE, 'getSimCardsInfo', self.sim_cards, lag=SIGNAL_LAG, weight=PEER_WEIGHT),
            storages('getExternalStorageInfo', self.external_summary, lag=MEDIA_LAG),
            storages('getExternalStorageDrivesInfo', self.external_drives, lag=MEDIA_LAG),
            storages('getInternalStorageInfo', lambda v, s: map_with(PARTITION_SUMMARY_KEYS)(v)),
            storages('getInternalUserPartitionInfo', self.user_partition, weight=PEER_WEIGHT, lag=ROUND_TRIP_LAG),
            storages('getSystemStorageInfo', self.system_storage, lag=MEDIA_LAG),
            storages('getUsersQuotaInfo', self.quotas, weight=PEER_WEIGHT, lag=ROUND_TRIP_LAG),
        ]


SUMMARY_KEYS = {'deviceLabel': dbus.String, 'mounted': dbus.Boolean, 'countMountedPartitions': dbus.UInt32,
                'bytesTotal': dbus.UInt64, 'bytesAvailable': dbus.UInt64, 'bytesUsed': dbus.UInt64}
PARTITION_SUMMARY_KEYS = {'bytesTotal': dbus.UInt64, 'bytesUsed': dbus.UInt64, 'bytesAvailable': dbus.UInt64,
                          'filesystemType': dbus.String, 'deviceLabel': dbus.String}
BREAKDOWN_KEYS = {'bytesUsed' + f: dbus.UInt64
                  for f in ('Pictures', 'Videos', 'Music', 'Documents', 'Downloads', 'Other')}
# One user on the device: the others' share is a signed 0.
BREAKDOWN_KEYS['bytesUsedOtherUsers'] = dbus.Int64
SYSTEM_KEYS = {'bytes' + k: dbus.UInt64 for k in ('Available', 'Total', 'Used', 'UsedApps', 'UsedDebugInfo',
                                                   'UsedSDK', 'UsedCoreDumps', 'UsedSystemLogs', 'UsedOther')}
CARD_KEYS = {'enabled': dbus.Boolean, 'operatorName': dbus.String, 'preferredDataTransfer': dbus.Boolean,
             'preferredVoiceCall': dbus.Boolean, 'simName': dbus.String}


# ---------------------------------------------------------------------------
# The chaos schedule.

# Each event: (name, precondition on the state, the state it leads to).
def _peer_events(peer):
    return [
        (peer + '.start', lambda s: s[peer] == DOWN, {peer: UP}),
        (peer + '.stop', lambda s: s[peer] in (UP, FAILING), {peer: DOWN}),
        (peer + '.stall', lambda s: s[peer] == UP, {peer: STALLED}),
    ]


EVENTS = (
    _peer_events('user_manager') + [
        ('user_manager.fail', lambda s: s['user_manager'] == UP, {'user_manager': FAILING}),
        ('user_manager.answer', lambda s: s['user_manager'] == FAILING, {'user_manager': UP}),
    ]
    + _peer_events('systemd') + [
        ('systemd.fail', lambda s: s['systemd'] == UP, {'systemd': FAILING}),
        ('systemd.answer', lambda s: s['systemd'] == FAILING, {'systemd': UP}),
    ]
    + _peer_events('policy_manager')
    + [(name, condition, effect) for name, condition, effect in _peer_events('ofono')
       if not name.endswith('.start')]
    + [
        ('ofono.start', lambda s: s['ofono'] == DOWN, {'ofono': UP, 'modems': 0}),
        ('ofono.add_modem', lambda s: s['ofono'] == UP and s['modems'] < 2, None),
        ('ofono.remove_modem', lambda s: s['ofono'] == UP and s['modems'] > 0, None),
        ('card.plug', lambda s: not s['card'], {'card': True}),
        ('card.unplug', lambda s: s['card'], {'card': False}),
        ('card.mount', lambda s: not s['mounted'], {'mounted': True}),
        ('card.umount', lambda s: s['mounted'], {'mounted': False}),
        ('sim.settings', lambda s: True, {}),
        ('logs.change', lambda s: True, {}),
    ]
)


def change_logs(root, rng):
    """A few changes of the log folder ROOT, made as services make them."""
    os.makedirs(root, exist_ok=True)
    for _ in range(1 + rng.randrange(4)):
        folders = [root] + [os.path.join(f, d) for f, ds, _ in os.walk(root) for d in ds]
        files = [os.path.join(f, n) for f, _, ns in os.walk(root) for n in ns]
        folder = rng.choice(folders)
        kind = rng.randrange(6)
        if kind < 2 or not files:
            with open(os.path.join(folder, 'log%d' % rng.randrange(1 << 30)), 'wb') as f:
                f.write(b'x' * rng.randrange(4000))
        elif kind == 2:
            with open(rng.choice(files), 'ab') as f:
                f.write(b'x' * rng.randrange(4000))
        elif kind == 3:
            os.unlink(rng.choice(files))
        elif kind == 4:
            os.mkdir(os.path.join(folder, 'dir%d' % rng.randrange(1 << 30)))
        elif folder != root:
            shutil.rmtree(folder)


def draw_schedule(rng, seconds, pauses=False):
    """[(offset, event name, argument)] for a run of SECONDS, from RNG alone.

    Drawn against a model of the state, so that every event applies when its
    time comes. A stall ends STALL_SECONDS later with a resume of its own; only
    one peer stalls at a time, so that a call waits for one stall at most.
    With PAUSES the user manager is stopped for PAUSE_SECONDS at a time instead,
    and no other event touches it or stalls a peer.
    """
    state = dict(INITIAL_WORLD)
    schedule = []
    if pauses:
        at = rng.uniform(*EVENT_GAP)
        while at + PAUSE_SECONDS < seconds:
            schedule += [(at, 'user_manager.stall', None), (at + PAUSE_SECONDS, 'user_manager.resume', None)]
            at += PAUSE_SECONDS + PAUSE_GAP
    stalled_until = 0.0
    resumes = {}
    offset = rng.uniform(*EVENT_GAP)
    while offset < seconds:
        for peer, at in list(resumes.items()):
            if at <= offset:
                state[peer] = UP
                del resumes[peer]
        possible = [e for e in EVENTS if e[1](state)
                    and not (e[0].endswith('.stall') and (offset < stalled_until or offset + STALL_SECONDS > seconds))
                    and not (pauses and (e[0].startswith('user_manager.') or e[0].endswith('.stall')))]
        weights = [USER_MANAGER_WEIGHT if e[0].startswith('user_manager.') else 1 for e in possible]
        name, _, effect = rng.choices(possible, weights)[0]
        argument = None
        if name == 'ofono.add_modem':
            state['modems'] += 1
        elif name == 'ofono.remove_modem':
            state['modems'] -= 1
        elif name == 'sim.settings':
            argument = {'voice_sim_usage_mode': rng.choice(['0', '1', '2', "'dual'"]),
                        'default_voice_sim': "'%s'" % simtest.imsi(rng.randrange(2))}
        elif name == 'logs.change':
            argument = rng.randrange(1 << 32)
        if effect:
            state.update(effect)
        schedule.append((offset, name, argument))
        if name.endswith('.stall'):
            peer = name.split('.')[0]
            stalled_until = offset + STALL_SECONDS
            schedule.append((stalled_until, peer + '.resume', None))
            resumes[peer] = stalled_until
        offset += rng.uniform(*EVENT_GAP)
    schedule.sort(key=lambda entry: entry[0])
    return schedule


# ---------------------------------------------------------------------------

class SoakTest(simtest.SimTestCase, storagebench.StorageTestCase):

    def setUp(self):
        super().setUp()
        self.options = settings()
        seed = self.options['seed']
        self.seed = int(seed) if seed else random.SystemRandom().randrange(1 << 32)
        print('soak: seed %d (replay with --seed %d), %.0f s' % (self.seed, self.seed, self.options['seconds']),
              file=sys.stderr, flush=True)
        self.device = knownanswers.KnownDevice(self)
        # umockdev's library is preloaded into the daemon, with the
        # AddressSanitizer runtime in that build, and so into every process
        # the daemon and its namespace start: those need the real /proc.
        self.device.device.replace_proc = False
        # The device has its owner, and only the owner.
        with open('/etc/passwd', 'rb') as f:
            self.device.device.etc['passwd'] = f.read() + b'owner:x:100000:100000::/home/owner:/bin/sh\n'
        self.peers = {}
        self.ofono = None
        self.modems = []
        self.modem_serial = 0
        self.logs = os.path.join(self.workdir, 'logs')
        change_logs(self.logs, random.Random(self.seed))
        self.world = World(dict(INITIAL_WORLD, logs=plainwalk.size(self.logs, 0)))

    def start_device_daemon(self, **kwargs):
        """The daemon on the known device, with the SD card and the eMMC.

        The daemon runs under umockdev's preload library, which shows it the
        testbed's /sys in place of the real one: the device's own /sys files
        go into the testbed too."""
        kwargs = self.device.daemon_kwargs(**kwargs)
        testbed_sys = os.path.join(self.testbed.get_root_dir(), 'sys')
        for name, value in self.device.device.sys.items():
            self.device.device._write(os.path.join(testbed_sys, name), value)
        return self.start_storage_daemon(devices=('emmc', 'sdcard'), **kwargs)

    # -- peers --------------------------------------------------------------

    def start_peer(self, peer):
        if peer == 'user_manager':
            self.peers[peer] = knownanswers.start_user_manager(self)
        elif peer == 'systemd':
            self.peers[peer] = scriptedpeer.ScriptedPeer(self, SYSTEMD, '/org/freedesktop/systemd1', {
                'org.freedesktop.DBus.Properties.Get:Virtualization': ('v', ('s', '')),
            })
        elif peer == 'policy_manager':
            self.peers[peer] = scriptedpeer.ScriptedPeer(self, POLICY_MANAGER, '/org/norvu/PolicyManager', {})
        elif peer == 'ofono':
            self.ofono = self.start_ofono()
            self.peers[peer] = self.ofono
            self.modems = []

    def stop_peer(self, peer):
        process = self.peers.pop(peer)
        if peer == 'ofono':
            process.stop()
            self.ofono = None
            self.modems = []
        else:
            process.kill()

    def signal_peer(self, peer, stop):
        """Stops a peer as one that hangs, or lets it go on: the bus queues the
        calls meanwhile, and the peer answers them when it goes on."""
        self.peers[peer].process.send_signal(signal.SIGSTOP if stop else signal.SIGCONT)

    def apply(self, name, argument):
        target, action = name.split('.')
        world = self.world
        if action == 'start':
            self.start_peer(target)
            world.set(**{target: UP}, **({'modems': 0} if target == 'ofono' else {}))
        elif action == 'stop':
            world.set(**{target: DOWN}, **({'modems': 0} if target == 'ofono' else {}))
            self.stop_peer(target)
        elif action == 'stall':
            world.set(**{target: STALLED})
            self.signal_peer(target, stop=True)
        elif action == 'resume':
            self.signal_peer(target, stop=False)
            world.set(**{target: UP})
        elif action == 'fail':
            world.set(**{target: FAILING})
            self.peers[target].fail()
        elif action == 'answer':
            self.peers[target].answer()
            world.set(**{target: UP})
        elif action == 'add_modem':
            # The mock keeps a removed modem's operator objects: names are never reused.
            self.modem_serial += 1
            self.modems.append(self.ofono.add_modem('ril_%d' % self.modem_serial))
            world.set(modems=len(self.modems))
        elif action == 'remove_modem':
            world.set(modems=len(self.modems) - 1)
            self.ofono.remove_modem(self.modems.pop())
        elif name == 'card.plug':
            self.change_card('card', True, lambda: self.plug('sdcard'))
        elif name == 'card.unplug':
            self.change_card('card', False, lambda: self.unplug('sdcard'))
        elif name == 'card.mount':
            self.change_card('mounted', True, lambda: self.mount('mmcblk1p1', CARD_MOUNT_BYTES))
        elif name == 'card.umount':
            self.change_card('mounted', False, lambda: self.umount('mmcblk1p1'))
        elif name == 'sim.settings':
            self.write_settings(**argument)
        elif name == 'logs.change':
            self.world.set(logs=CHANGING)
            change_logs(self.logs, random.Random(argument))
            self.world.set(logs=plainwalk.size(self.logs, 0))

    def change_card(self, key, value, act):
        """A change of the card takes a moment, in which only types are checked."""
        self.world.set(**{key: CHANGING})
        act()
        self.world.set(**{key: value})

    def restore(self):
        """Back to the state the run began in."""
        state = self.world.now
        for peer in ('user_manager', 'systemd', 'policy_manager', 'ofono'):
            if state[peer] == STALLED:
                self.apply(peer + '.resume', None)
            elif state[peer] == FAILING:
                self.apply(peer + '.answer', None)
            elif state[peer] == DOWN:
                self.apply(peer + '.start', None)
        while self.world.now['modems'] > 0:
            self.apply('ofono.remove_modem', None)
        if not self.world.now['card']:
            self.apply('card.plug', None)
        if not self.world.now['mounted']:
            self.apply('card.mount', None)

    # -- load ---------------------------------------------------------------

    def run_round(self, connections, expectations, rngs, seconds, schedule, stats):
        """Calls until SECONDS have passed, with the schedule's events; then
        waits for every answer."""
        loop = GLib.MainLoop()
        weights = [e.weight for e in expectations]
        outstanding = {}
        ending = [False]
        next_token = [0]

        def send(client):
            expect = rngs[client].choices(expectations, weights)[0]
            token = next_token[0]
            next_token[0] += 1
            sent = time.monotonic()
            outstanding[token] = (expect, sent, client)
            connections[client].call_async(
                BUS_NAME, expect.path, expect.interface, expect.method, expect.signature, expect.args,
                reply_handler=lambda *a: finished(token, a, None),
                error_handler=lambda e: finished(token, None, e),
                timeout=REPLY_DEADLINE * 4)

        def finished(token, args, error):
            entry = outstanding.pop(token, None)
            if entry is None:
                return  # already counted as unanswered
            expect, sent, client = entry
            received = time.monotonic()
            stats['calls'][expect.name] += 1
            if error is not None:
                stats['problems'].append('%s: error %s: %s' % (expect.name, error.get_dbus_name(),
                                                                error.get_dbus_message()))
            else:
                value = args[0] if len(args) == 1 else args
                states = self.world.states_during(sent, received, expect.lag)
                problem = expect.check(value, states)
                if problem:
                    stats['problems'].append('%s after %.1f s: %s (states %s)'
                                             % (expect.name, received - sent, problem, states))
            stats['slowest'] = max(stats['slowest'], received - sent)
            if not ending[0]:
                send(client)
            elif not outstanding:
                loop.quit()

        def overdue():
            now = time.monotonic()
            for token, (expect, sent, _) in list(outstanding.items()):
                if now - sent > REPLY_DEADLINE:
                    del outstanding[token]
                    stats['problems'].append('%s: no answer within %d s' % (expect.name, REPLY_DEADLINE))
            if ending[0] and not outstanding:
                loop.quit()
            return True

        start = time.monotonic()
        pending_events = list(schedule)
        failure = []

        def chaos():
            elapsed = time.monotonic() - start
            if self.daemon.process.poll() is not None:
                failure.append('plinthd exited with %d' % self.daemon.process.returncode)
                loop.quit()
                return False
            while pending_events and pending_events[0][0] <= elapsed:
                _, name, argument = pending_events.pop(0)
                print('soak: %6.1f s %s' % (elapsed, name), file=sys.stderr, flush=True)
                try:
                    self.apply(name, argument)
                except Exception as error:  # the bench failed, not the daemon: stop at once
                    failure.append('chaos event %s failed: %r' % (name, error))
                    loop.quit()
                    return False
                stats['events'][name] += 1
            if elapsed >= seconds:
                ending[0] = True
                if not outstanding:
                    loop.quit()
                return False
            return True

        for client in range(len(connections)):
            for _ in range(IN_FLIGHT):
                send(client)
        GLib.timeout_add(50, chaos)
        GLib.timeout_add(1000, overdue)
        loop.run()
        self.assertEqual(failure, [])
        # Events left over (a resume due after the round's last call) still apply.
        for _, name, argument in pending_events:
            self.apply(name, argument)
            stats['events'][name] += 1

    def read_startup_properties(self):
        props = dbus.Interface(self.bus.get_object(BUS_NAME, FEATURES_PATH, introspect=False), PROPERTIES_IFACE)
        return {str(k): v for k, v in props.GetAll(FEATURES_IFACE).items()}

    def test_soak(self):
        if self.options['reproducer']:
            return self.reproduce()
        seconds = self.options['seconds']
        rng = random.Random(self.seed)
        schedules = [draw_schedule(rng, seconds / ROUNDS, pauses=number == PAUSE_ROUND)
                     for number in range(1, ROUNDS + 1)]
        rngs = [random.Random(rng.random()) for _ in range(CLIENTS)]

        for peer in ('user_manager', 'systemd', 'policy_manager', 'ofono'):
            self.start_peer(peer)
        daemon = self.start_device_daemon(env={'DCONF_PROFILE': simtest.DATABASE},
                                          binds={'/etc/dconf': self.dconf, '/var/log': self.logs})
        where = self.mount('mmcblk1p1', CARD_MOUNT_BYTES)
        expectations = Expectations(self.device, where, self.read_startup_properties()).calls()

        mainloop = dbus.mainloop.glib.DBusGMainLoop()
        connections = [dbus.bus.BusConnection(self.system_bus.address, mainloop=mainloop) for _ in range(CLIENTS)]
        stats = {'calls': collections.Counter(), 'events': collections.Counter(), 'problems': [], 'slowest': 0.0}
        rss = []
        for number, schedule in enumerate(schedules, 1):
            self.run_round(connections, expectations, rngs, seconds / ROUNDS, schedule, stats)
            self.restore()
            loadclients.spin(1.0)
            rss.append(loadclients.vm_rss_kib(daemon.process.pid))
            print('soak: round %d: %d calls, %d events, %d problems, slowest answer %.1f s, VmRSS %d KiB'
                  % (number, sum(stats['calls'].values()), sum(stats['events'].values()), len(stats['problems']),
                     stats['slowest'], rss[-1]), file=sys.stderr, flush=True)
        for connection in connections:
            connection.close()

        print('soak: seed %d: calls %s' % (self.seed, dict(sorted(stats['calls'].items()))), file=sys.stderr)
        print('soak: seed %d: peer events %s' % (self.seed, dict(sorted(stats['events'].items()))),
              file=sys.stderr)
        self.assertNoProblems(stats['problems'])
        self.assertEqual(set(stats['calls']), {e.name for e in expectations}, 'not every call was made')
        if not os.environ.get('PLINTHD_SANITIZE'):
            self.assertLess(rss[-1] - rss[0], RSS_GROWTH_LIMIT_KIB,
                            'VmRSS grew from %d KiB after round 1 to %d KiB after round %d'
                            % (rss[0], rss[-1], ROUNDS))
        # The clean exit after SIGTERM is checked by the storage bench's cleanup.

    def assertNoProblems(self, problems):
        """Fails with the problems grouped by call and kind, the first of each in full."""
        if not problems:
            return
        groups = collections.OrderedDict()
        for problem in problems:
            key = problem.split(' (states ')[0]
            key = key.split(' after ')[0] + ': ' + key.split(': ', 1)[-1][:80]
            groups.setdefault(key, []).append(problem)
        lines = ['%d x %s\n    first: %s' % (len(found), key, found[0][:600])
                 for key, found in sorted(groups.items(), key=lambda item: -len(item[1]))[:25]]
        self.fail('seed %d: %d problems\n%s' % (self.seed, len(problems), '\n'.join(lines)))

    def reproduce(self):
        """The load that once crashed the daemon: no user manager, eight
        clients asking for the locale, eight going through the Storages
        methods."""
        self.start_device_daemon()
        mainloop = dbus.mainloop.glib.DBusGMainLoop()
        connections = [dbus.bus.BusConnection(self.system_bus.address, mainloop=mainloop) for _ in range(CLIENTS)]
        methods = ['getExternalStorageInfo', 'getExternalStorageDrivesInfo', 'getInternalStorageInfo',
                   'getInternalUserPartitionInfo', 'getSystemStorageInfo', 'getUsersQuotaInfo']
        counts = collections.Counter()
        problems = []
        deadline = time.monotonic() + self.options['seconds']
        loop = GLib.MainLoop()
        outstanding = [0]

        def send(client, turn):
            if client < CLIENTS // 2:
                path, interface, method = FEATURES_PATH, FEATURES_IFACE, 'getLocale'
            else:
                path, interface, method = STORAGES_PATH, STORAGES_IFACE, methods[turn % len(methods)]
            outstanding[0] += 1
            connections[client].call_async(BUS_NAME, path, interface, method, '', [],
                                           reply_handler=lambda *a: done(client, turn, method, None),
                                           error_handler=lambda e: done(client, turn, method, e),
                                           timeout=REPLY_DEADLINE)

        def done(client, turn, method, error):
            outstanding[0] -= 1
            counts[method] += 1
            if error is not None:
                problems.append('%s: %s' % (method, error.get_dbus_name()))
            if time.monotonic() < deadline:
                send(client, turn + 1)
            elif outstanding[0] == 0:
                loop.quit()

        for client in range(CLIENTS):
            send(client, 0)
        loop.run()
        print('soak: reproducer: %d calls %s' % (sum(counts.values()), dict(counts)), file=sys.stderr)
        self.assertNoProblems(problems)


# umockdev hands udev events to the daemon through local datagram sockets,
# whose queues hold 10 datagrams by default; its sender aborts the test when a
# queue is full. A daemon that waits on a stalled peer reads nothing for that
# long, as designed, while drives keep coming and going: so the soak runs in a
# network namespace of its own with room for many more (the kernel's own
# netlink socket holds far more than 10 events).
DATAGRAM_QUEUE = 4096


def own_network_namespace():
    """Re-runs this script in namespaces of its own, once, the way CTest runs it."""
    if plinthtest.in_test_namespace():
        with open('/proc/sys/net/unix/max_dgram_qlen', 'w') as f:
            f.write(str(DATAGRAM_QUEUE))
        return
    runner = os.path.join(os.path.dirname(os.path.abspath(__file__)), '..', 'harness', 'run-test')
    os.execv(runner, [runner, '--network-namespace', '--', sys.executable, os.path.abspath(__file__)] + sys.argv[1:])


def main():
    own_network_namespace()
    parser = argparse.ArgumentParser(description=__doc__.split('\n\n')[0])
    parser.add_argument('--seconds', type=float, help='length of the run (default %d)' % DEFAULT_SECONDS)
    parser.add_argument('--seed', type=int, help='replay the schedule of this seed')
    parser.add_argument('--reproducer', action='store_true',
                        help='no chaos: the load without a user manager that once crashed the daemon')
    options, rest = parser.parse_known_args()
    if options.seconds is not None:
        os.environ['PLINTHD_SOAK_SECONDS'] = str(options.seconds)
    if options.seed is not None:
        os.environ['PLINTHD_SOAK_SEED'] = str(options.seed)
    if options.reproducer:
        os.environ['PLINTHD_SOAK_REPRODUCER'] = '1'
    sys.argv[1:] = rest
    storagebench.main()


if __name__ == '__main__':
    main()
