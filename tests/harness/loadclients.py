# SPDX-License-Identifier: BSD-3-Clause
"""Many bus clients calling the daemon at once, for the load tests.

    load = loadclients.Load(address, clients=16, in_flight=4)
    result = load.run(total=10000, calls=[
        loadclients.Call(FEATURES_PATH, FEATURES_IFACE, 'getCpuModel', dbus.String('XYZ100')),
    ])
    self.assertEqual(result.problems, [])

Each client is a connection of its own to the bus (a peer with its own unique
name, as separate applications are); all are driven by one GLib main loop in
this process, each keeping IN_FLIGHT calls outstanding and taking the calls in
turn, until TOTAL replies in all have come back. Every reply is checked
against its expected value and exact D-Bus type; errors and wrong answers are
collected, never raised in the middle of the run.
"""

import json
import os
import subprocess
import sys
import textwrap
import time

import dbus
import dbus.mainloop.glib
from gi.repository import GLib


class Call:
    """One method without arguments, and what it must answer.

    EXPECTED is the value with its dbus-python type (dbus.String, dbus.UInt64,
    a dbus.Array with its signature, ...); a callable instead is given the
    reply and returns a text saying what is wrong, or None.
    """

    def __init__(self, path, interface, method, expected, timeout=60.0):
        self.path = path
        self.interface = interface
        self.method = method
        self.expected = expected
        self.timeout = timeout

    def problem(self, value):
        if callable(self.expected):
            return self.expected(value)
        return describe_mismatch(value, self.expected)

    def __repr__(self):
        return '%s.%s' % (self.interface.rsplit('.', 1)[-1], self.method)


def variant(value):
    """VALUE as dbus-python gives it inside a variant (a value of an a{sv})."""
    if isinstance(value, dbus.Array):
        return dbus.Array(value, signature=value.signature, variant_level=1)
    return type(value)(value, variant_level=1)


def sv(**entries):
    """An a{sv} of ENTRIES, as dbus-python gives it."""
    return dbus.Dictionary({dbus.String(k): variant(v) for k, v in entries.items()}, signature='sv')


def describe_mismatch(value, expected):
    """None when VALUE equals EXPECTED in value and D-Bus type, all the way down."""
    if type(value) is not type(expected):
        return 'type %s, not %s: %r' % (type(value).__name__, type(expected).__name__, value)
    if isinstance(expected, dbus.Array) and value.signature != expected.signature:
        return 'array of %s, not of %s' % (value.signature, expected.signature)
    if getattr(value, 'variant_level', 0) != getattr(expected, 'variant_level', 0):
        return 'variant level %d, not %d' % (value.variant_level, expected.variant_level)
    if isinstance(expected, (list, tuple)):
        if len(value) != len(expected):
            return '%d elements, not %d: %r' % (len(value), len(expected), value)
        for index, (item, wanted) in enumerate(zip(value, expected)):
            problem = describe_mismatch(item, wanted)
            if problem:
                return 'element %d: %s' % (index, problem)
        return None
    if isinstance(expected, dict):
        if set(value) != set(expected):
            return 'keys %s, not %s' % (sorted(value), sorted(expected))
        for key in expected:
            problem = describe_mismatch(value[key], expected[key])
            if problem:
                return 'key %r: %s' % (key, problem)
        return None
    return None if value == expected else '%r, not %r' % (value, expected)


class Pending:
    """One call on its way; wait() runs the GLib main loop until it ends.

        pending = load.start(call)
        ...
        self.assertIsNone(pending.wait(5).problem)
    """

    def __init__(self, connection, call):
        self.call = call
        self.value = None
        self.error = None
        self.finished_at = None
        self.sent_at = time.monotonic()
        connection.call_async('org.norvu.plinth', call.path, call.interface, call.method, '', [],
                              reply_handler=self._replied, error_handler=self._failed, timeout=call.timeout)

    def _replied(self, *args):
        self.value = args[0] if len(args) == 1 else args
        self.finished_at = time.monotonic()

    def _failed(self, error):
        self.error = error
        self.finished_at = time.monotonic()

    def done(self):
        return self.finished_at is not None

    @property
    def seconds(self):
        return None if self.finished_at is None else self.finished_at - self.sent_at

    @property
    def problem(self):
        """What is wrong with the answer: None when it came and is right."""
        if not self.done():
            return 'no answer'
        if self.error is not None:
            return 'error %s: %s' % (self.error.get_dbus_name(), self.error.get_dbus_message())
        return self.call.problem(self.value)

    def wait(self, timeout):
        """Until the answer came or TIMEOUT seconds passed; returns self."""
        spin(timeout, self.done)
        return self


def spin(seconds, until=None):
    """Runs the default GLib main context for SECONDS, or until UNTIL() is true."""
    context = GLib.MainContext.default()
    deadline = time.monotonic() + seconds
    while not (until and until()) and time.monotonic() < deadline:
        if not context.iteration(False):
            time.sleep(0.002)
    return until() if until else None


class Result:
    def __init__(self):
        self.answered = 0
        self.errors = []      # (call, D-Bus error name, message)
        self.problems = []    # (call, what is wrong); errors included
        self.seconds = 0.0
        self.per_client = []

    def __repr__(self):
        return ('%d answered in %.2f s, %d errors, %d problems: %r'
                % (self.answered, self.seconds, len(self.errors), len(self.problems), self.problems[:5]))


class Load:
    def __init__(self, address, clients=16, in_flight=4):
        self.address = address
        self.clients = clients
        self.in_flight = in_flight
        self._connections = []

    def connect(self):
        mainloop = dbus.mainloop.glib.DBusGMainLoop()
        while len(self._connections) < self.clients:
            self._connections.append(dbus.bus.BusConnection(self.address, mainloop=mainloop))
        return self._connections

    def start(self, call, client=0):
        """One call from client CLIENT, answered while a Pending waits or a run goes on."""
        return Pending(self.connect()[client], call)

    def close(self):
        for connection in self._connections:
            connection.close()
        self._connections = []

    def run(self, total, calls, deadline=120.0, after_each=None):
        """TOTAL calls spread evenly over the clients; returns a Result.

        AFTER_EACH, when given, is called with the Result so far after every
        answer or error: a test that acts in the middle of a load acts after
        so many answers, not after a time, which a fast machine may outrun."""
        connections = self.connect()
        result = Result()
        result.per_client = [0] * len(connections)
        loop = GLib.MainLoop()
        quota = [total // len(connections) + (1 if i < total % len(connections) else 0)
                 for i in range(len(connections))]
        sent = [0] * len(connections)
        outstanding = [0]

        def send(client):
            call = calls[(sent[client] + client) % len(calls)]
            sent[client] += 1
            outstanding[0] += 1
            connections[client].call_async(
                'org.norvu.plinth', call.path, call.interface, call.method, '', [],
                reply_handler=lambda *args: finished(client, call, args, None),
                error_handler=lambda error: finished(client, call, None, error),
                timeout=call.timeout)

        def finished(client, call, args, error):
            outstanding[0] -= 1
            if error is not None:
                result.errors.append((call, error.get_dbus_name(), error.get_dbus_message()))
                result.problems.append((call, 'error %s' % error.get_dbus_name()))
            else:
                result.answered += 1
                result.per_client[client] += 1
                value = args[0] if len(args) == 1 else args
                problem = call.problem(value)
                if problem:
                    result.problems.append((call, problem))
            if after_each:
                after_each(result)
            if sent[client] < quota[client]:
                send(client)
            elif outstanding[0] == 0:
                loop.quit()

        def too_late():
            result.problems.append((None, 'deadline of %.0f s passed with %d calls outstanding'
                                    % (deadline, outstanding[0])))
            loop.quit()
            return False

        start = time.monotonic()
        for client in range(len(connections)):
            for _ in range(min(self.in_flight, quota[client])):
                send(client)
        if outstanding[0]:
            timer = GLib.timeout_add(int(deadline * 1000), too_late)
            loop.run()
            if outstanding[0] == 0:
                GLib.source_remove(timer)
        result.seconds = time.monotonic() - start
        return result


def vm_rss_kib(pid):
    with open('/proc/%d/status' % pid) as f:
        for line in f:
            if line.startswith('VmRSS:'):
                return int(line.split()[1])
    raise AssertionError('no VmRSS for %d' % pid)


def private_dirty_kib(pid):
    """The memory process PID has written and no other process shares (heap,
    stacks, written data), in KiB. Clean private pages are left out: they are
    library pages that no other process maps at the moment, and they come and
    go as other processes start and stop."""
    with open('/proc/%d/smaps_rollup' % pid) as f:
        for line in f:
            if line.startswith('Private_Dirty:'):
                return int(line.split()[1])
    raise AssertionError('no Private_Dirty for %d' % pid)


# Sends its calls and leaves at once, without reading a reply. Arguments: the
# bus address, the number of calls, and the calls as JSON [path, interface,
# method] triples, taken in turn.
_HASTY_CLIENT = textwrap.dedent('''
    import json, os, sys
    import dbus
    bus = dbus.bus.BusConnection(sys.argv[1])
    calls = json.loads(sys.argv[3])
    for i in range(int(sys.argv[2])):
        path, interface, method = calls[i % len(calls)]
        bus.send_message(dbus.lowlevel.MethodCallMessage('org.norvu.plinth', path, interface, method))
    bus.flush()
    os._exit(0)
''')


def hasty_clients(address, clients, calls_each, calls):
    """CLIENTS processes that each send CALLS_EACH of CALLS (Call objects, in
    turn) and disconnect before any reply; returns when all have gone."""
    triples = json.dumps([[c.path, c.interface, c.method] for c in calls])
    processes = [subprocess.Popen([sys.executable, '-c', _HASTY_CLIENT, address, str(calls_each), triples])
                 for _ in range(clients)]
    for process in processes:
        if process.wait(60) != 0:
            raise AssertionError('a hasty client failed with %d' % process.returncode)


class LoadAssertions:
    """For a TestCase with self.load (a Load)."""

    # After a warm-up the heap must come back to where it was: a leak or a
    # cache that grows per call shows here, while glibc's arenas and Qt's
    # pools, warmed up by then, do not grow any more. 10,000 calls leaking
    # only 100 bytes each would be 1 MiB.
    RSS_GROWTH_LIMIT_KIB = 1024

    def assertAllAnswered(self, result, total):
        self.assertEqual(result.problems, [], result)
        self.assertEqual(result.answered, total, result)

    def assertHeapSettles(self, daemon, calls, total, warm_up):
        """WARM_UP calls, the idle VmRSS, TOTAL calls, and VmRSS back within
        the limit once the clients have gone. Returns the second run's Result."""
        self.assertAllAnswered(self.load.run(warm_up, calls), warm_up)
        self.load.close()
        time.sleep(0.5)
        idle = vm_rss_kib(daemon.process.pid)
        result = self.load.run(total, calls)
        self.assertAllAnswered(result, total)
        self.load.close()
        time.sleep(0.5)
        after = vm_rss_kib(daemon.process.pid)
        print('VmRSS idle %d KiB, after %d calls %d KiB (%.0f calls/s)'
              % (idle, total, after, total / result.seconds), file=sys.stderr)
        # The sanitizers' allocators hold freed memory back on purpose
        # (quarantine); there the leak checker at exit stands in for this.
        if not os.environ.get('PLINTHD_SANITIZE'):
            self.assertLess(after - idle, self.RSS_GROWTH_LIMIT_KIB, 'VmRSS grew from %d to %d KiB' % (idle, after))
        return result
