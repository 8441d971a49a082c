#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""A bus peer that answers at once, late or never, for the fault tests.

    peer = scriptedpeer.ScriptedPeer(self, 'org.brisaos.usermanager', '/', {
        'org.brisaos.usermanager.currentUser': ('u', 100000),
        'org.brisaos.usermanager.getUserLocale': ('s', 'fi_FI.utf8', scriptedpeer.NEVER),
    })
    peer.wait_for_call('org.brisaos.usermanager.getUserLocale')
    peer.kill()                      # disappears with the call unanswered

It runs as a process of its own (this file is its program) and owns NAME on
the system bus of DBUS_SYSTEM_BUS_ADDRESS, and answers on PATH (ANY_PATH: on
every path, as a peer with objects of its own). Each method is "INTERFACE.MEMBER"
(for a property read "org.freedesktop.DBus.Properties.Get:PROPERTY") with the
reply's signature and value and, optionally, a delay in seconds or NEVER: a
call held that way is never answered, while the peer keeps answering every
other call, as a peer stuck on one request does. Unknown methods get an
UnknownMethod error. Every call is reported on the peer's standard output
before it is handled, so a test can wait until the daemon is inside a call.

Besides u, s and b, a reply may be a list of object paths with the signature
a(oa{sv}), each with no properties, as a modem manager lists its modems.

A running peer can be told to fail (peer.fail(): every call gets a Failed
error) and to answer again (peer.answer()).
"""

import json
import os
import queue
import signal
import subprocess
import sys
import threading
import time

NEVER = 'never'
ANY_PATH = '*'
FAIL = 'FAIL'
ANSWER = 'ANSWER'
# What the peer prints once a command is in force.
TAKEN = 'TAKEN '


class ScriptedPeer:
    def __init__(self, test, name, path, methods):
        """Starts the peer for TEST (a unittest.TestCase); stopped by its cleanups."""
        script = {key: list(value) for key, value in methods.items()}
        self.process = subprocess.Popen(
            [sys.executable, os.path.abspath(__file__), name, path, json.dumps(script)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, universal_newlines=True)
        test.addCleanup(self.kill)
        self._lines = queue.Queue()
        self.calls = []
        threading.Thread(target=self._read, daemon=True).start()
        if self._next(10) != 'READY':
            raise RuntimeError('the scripted peer %s did not start' % name)

    def _read(self):
        try:
            for line in self.process.stdout:
                self._lines.put(line.strip())
        except (ValueError, OSError):
            pass  # kill() closed the pipe under the loop: the peer is gone
        self._lines.put(None)

    def _next(self, timeout):
        try:
            return self._lines.get(timeout=timeout)
        except queue.Empty:
            return None

    def wait_for_call(self, method, timeout=10.0):
        """Waits until the peer has been called METHOD (once more than seen so far)."""
        deadline = time.monotonic() + timeout
        while True:
            line = self._next(max(0.0, deadline - time.monotonic()))
            if line is None:
                raise AssertionError('%s was not called within %.0f s' % (method, timeout))
            if line.startswith('CALL '):
                self.calls.append(line[5:])
                if line[5:] == method:
                    return

    def _command(self, word, timeout=10.0):
        """Returns once the peer has taken WORD in: calls it gets from then on
        are handled the new way, so a test may count on it at once."""
        self.process.stdin.write(word + '\n')
        self.process.stdin.flush()
        deadline = time.monotonic() + timeout
        while True:
            line = self._next(max(0.0, deadline - time.monotonic()))
            if line is None:
                raise AssertionError('the scripted peer did not take %s within %.0f s' % (word, timeout))
            if line == TAKEN + word:
                return
            if line.startswith('CALL '):
                self.calls.append(line[5:])

    def calls_within(self, seconds):
        """The calls the peer reports during the next SECONDS, in order."""
        deadline = time.monotonic() + seconds
        seen = []
        while True:
            line = self._next(max(0.0, deadline - time.monotonic()))
            if line is None:
                self.calls.extend(seen)
                return seen
            if line.startswith('CALL '):
                seen.append(line[5:])

    def fail(self):
        """From now on every call gets an org.freedesktop.DBus.Error.Failed."""
        self._command(FAIL)

    def answer(self):
        """From now on calls are answered as scripted again."""
        self._command(ANSWER)

    def kill(self):
        """Gone at once, as a crashed peer is: the bus drops its name and calls."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGKILL)
            self.process.wait()
        if self.process.stdin:
            self.process.stdin.close()
            self.process.stdin = None
        if self.process.stdout:
            self.process.stdout.close()
            self.process.stdout = None


def _typed(signature, value):
    import dbus
    if signature == 'u':
        return dbus.UInt32(value)
    if signature == 's':
        return dbus.String(value)
    if signature == 'b':
        return dbus.Boolean(value)
    if signature == 'a(oa{sv})':
        return dbus.Array([dbus.Struct((dbus.ObjectPath(path), dbus.Dictionary({}, signature='sv')))
                           for path in value], signature='(oa{sv})')
    if signature == 'v':
        inner_signature, inner = value
        typed = _typed(inner_signature, inner)
        return type(typed)(typed, variant_level=1)
    raise ValueError('unsupported signature %r' % signature)


def _serve(name, path, script):
    import dbus
    import dbus.lowlevel
    import dbus.mainloop.glib
    from gi.repository import GLib

    bus = dbus.bus.BusConnection(os.environ['DBUS_SYSTEM_BUS_ADDRESS'],
                                 mainloop=dbus.mainloop.glib.DBusGMainLoop())
    held = []
    failing = []

    def command(source, condition):
        line = sys.stdin.readline()
        if not line:
            return False
        word = line.strip()
        if word == FAIL:
            failing[:] = [True]
        elif word == ANSWER:
            failing[:] = []
        print(TAKEN + word, flush=True)
        return True

    GLib.io_add_watch(sys.stdin, GLib.PRIORITY_DEFAULT, GLib.IO_IN | GLib.IO_HUP, command)

    def reply(message, signature, value):
        answer = dbus.lowlevel.MethodReturnMessage(message)
        answer.append(_typed(signature, value), signature=signature)
        bus.send_message(answer)
        return False

    def handle(connection, message):
        if not isinstance(message, dbus.lowlevel.MethodCallMessage) or path not in (ANY_PATH, message.get_path()):
            return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED
        key = '%s.%s' % (message.get_interface(), message.get_member())
        if key == 'org.freedesktop.DBus.Properties.Get':
            key += ':' + str(message.get_args_list()[1])
        print('CALL ' + key, flush=True)
        entry = script.get(key)
        if failing:
            connection.send_message(dbus.lowlevel.ErrorMessage(
                message, 'org.freedesktop.DBus.Error.Failed', 'told to fail'))
        elif entry is None:
            connection.send_message(dbus.lowlevel.ErrorMessage(
                message, 'org.freedesktop.DBus.Error.UnknownMethod', 'no such method: ' + key))
        elif len(entry) > 2 and entry[2] == NEVER:
            held.append(message)
        elif len(entry) > 2 and entry[2]:
            GLib.timeout_add(int(entry[2] * 1000), reply, message, entry[0], entry[1])
        else:
            reply(message, entry[0], entry[1])
        return dbus.lowlevel.HANDLER_RESULT_HANDLED

    bus.add_message_filter(handle)
    bus.request_name(name, dbus.bus.NAME_FLAG_DO_NOT_QUEUE)
    print('READY', flush=True)
    GLib.MainLoop().run()


if __name__ == '__main__':
    _serve(sys.argv[1], sys.argv[2], json.loads(sys.argv[3]))
