# SPDX-License-Identifier: BSD-3-Clause
"""A modem at the far end of a TCP connection, speaking AT commands.

oFono's "phonesim" modem driver connects to a TCP port when the modem is
powered and drives it with the AT commands of 3GPP TS 27.007 and 27.005. This
answers what it asks so that oFono brings up a modem with a SIM: identity,
functionality level, PIN state, the subscriber identity (IMSI), and the SIM
files it reads through restricted SIM access (+CRSM), among them the card's
serial number (EF ICCID) and the service provider name (EF SPN). The card can
be pulled and inserted while the modem runs.

    sim = ModemSimulator(SimCard(imsi='244050000000001', iccid='8935805...', spn='Fake Tel'))
    sim.start()            # listens on 127.0.0.1, sim.port
    ...
    sim.pull_card()        # oFono hears that the card went away
    sim.insert_card(card)  # and that one came
    sim.stop()

What to answer was worked out from the commands a real oFono sends (run
"ofonod -n -d" with OFONO_AT_DEBUG=1 to see the traffic). Commands it does not
need answered with content get a plain OK; commands the simulator does not
know get ERROR, and are remembered in unknown_commands for whoever debugs a
new oFono version.

Run as a program for a modem outside a test (the system test):

    modemsim.py PORT IMSI ICCID SPN
"""

import re
import socket
import sys
import threading

# Status words of a successful SIM command (TS 102 221: 90 00).
SW_OK = (144, 0)
# "File not found" (94 04 in the GSM numbering that +CRSM passes through).
SW_NOT_FOUND = (148, 4)

# +CME ERROR codes (TS 27.007 9.2.1).
CME_SIM_NOT_INSERTED = 10

# +CRSM commands (TS 27.007 8.18).
CRSM_READ_BINARY = 176
CRSM_GET_RESPONSE = 192

# The network the modem is registered with (home network: country code 244,
# network code 05, as in the IMSIs tests use).
NETWORK_CODE = '24405'
NETWORK_NAME = 'Plinth Net'
OPERATOR_NUMERIC = 2

# Elementary files the modem answers for.
EF_ICCID = 0x2FE2
EF_SPN = 0x6F46
EF_AD = 0x6FAD


def bcd_swapped(digits):
    """Digits packed two to a byte, low nibble first, padded with F: the
    coding of EF ICCID."""
    if len(digits) % 2:
        digits += 'F'
    return bytes(int(digits[i + 1] + digits[i], 16) for i in range(0, len(digits), 2))


class SimCard:
    """One SIM: its subscriber identity, serial number and, if it has one, the
    service provider name stored on it."""

    def __init__(self, imsi, iccid, spn=None):
        self.imsi = imsi
        self.iccid = iccid
        self.spn = spn

    def files(self):
        """Transparent elementary files by identifier: their contents."""
        files = {EF_ICCID: bcd_swapped(self.iccid),
                 # Administrative data: normal operation, no extra features,
                 # two digits of mobile network code in the IMSI.
                 EF_AD: bytes([0x00, 0x00, 0x00, 0x02])}
        if self.spn is not None:
            # Display condition, then the name in the GSM default alphabet
            # (plain ASCII for the names tests use), padded with FF.
            name = self.spn.encode('ascii')[:16]
            files[EF_SPN] = bytes([0x00]) + name + b'\xff' * (16 - len(name))
        return files


def get_response(file_id, size):
    """The 2G-style answer to GET RESPONSE for a transparent EF of size bytes
    (GSM 11.11 9.2.1): readable and updatable after PIN, not invalidated."""
    return bytes([0x00, 0x00, size >> 8, size & 0xFF, file_id >> 8, file_id & 0xFF,
                  0x04,  # type of file: EF
                  0x00,
                  0x11, 0x00, 0x44,  # access conditions: read/update CHV1, ...
                  0x01,  # file status: not invalidated
                  0x02,  # length of what follows
                  0x00,  # structure: transparent
                  0x00])


class ModemSimulator:
    """Answers one oFono connection at a time on a TCP port of 127.0.0.1.

    Thread-safe: the connection is served on a thread of its own, and the
    card can be changed from any thread.
    """

    def __init__(self, card=None, port=0, manufacturer='Plinth', model='Simulated modem',
                 revision='1.0', serial='350000000000001'):
        self.card = card
        self.manufacturer = manufacturer
        self.model = model
        self.revision = revision
        self.serial = serial
        self.functionality = 0
        self.operator_format = 0
        self.unknown_commands = []
        self.commands = []
        self._lock = threading.Lock()
        self._listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self._listener.bind(('127.0.0.1', port))
        self._listener.listen(4)
        self.port = self._listener.getsockname()[1]
        self._connection = None
        self._thread = None
        self._stopping = False
        self.connections = 0

    # --- control from the test -------------------------------------------

    def start(self):
        self._thread = threading.Thread(target=self._serve, name='modemsim:%d' % self.port, daemon=True)
        self._thread.start()
        return self

    def stop(self):
        self._stopping = True
        try:
            self._listener.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self._listener.close()
        with self._lock:
            if self._connection:
                try:
                    self._connection.shutdown(socket.SHUT_RDWR)
                except OSError:
                    pass
        if self._thread:
            self._thread.join(5)

    def pull_card(self):
        with self._lock:
            self.card = None
            self._notify_card_state()

    def insert_card(self, card):
        with self._lock:
            self.card = card
            self._notify_card_state()

    def is_connected(self):
        with self._lock:
            return self._connection is not None

    # --- serving ----------------------------------------------------------

    def _serve(self):
        while not self._stopping:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            with self._lock:
                self._connection = connection
                self.connections += 1
            try:
                self._talk(connection)
            finally:
                with self._lock:
                    self._connection = None
                connection.close()

    def _talk(self, connection):
        pending = b''
        while True:
            try:
                data = connection.recv(4096)
            except OSError:
                return
            if not data:
                return
            pending += data
            while b'\r' in pending:
                line, pending = pending.split(b'\r', 1)
                line = line.strip(b'\n').decode('ascii', 'replace').strip()
                if not line:
                    continue
                with self._lock:
                    self.commands.append(line)
                    reply = self._answer(line)
                    self._send(reply)

    def _send(self, text):
        if self._connection is None:
            return
        try:
            self._connection.sendall(text.encode('ascii'))
        except OSError:
            pass

    @staticmethod
    def _final(lines=(), result='OK'):
        return ''.join('\r\n%s\r\n' % line for line in lines) + '\r\n%s\r\n' % result

    def _notify_card_state(self):
        # The phonesim driver asks "+SIMSTATE?" once (1: a card, 0: none) and
        # then follows this unsolicited result; it answers a change by
        # reading the new card, or by dropping the old one.
        self._send('\r\n+USIMSTATE: %d\r\n' % (1 if self.card else 0))

    def _answer(self, line):
        command = line.upper()
        if not command.startswith('AT'):
            return self._final(result='ERROR')
        command = line[2:]
        for pattern, handler in self._handlers():
            match = re.fullmatch(pattern, command, re.IGNORECASE)
            if match:
                return handler(self, *match.groups())
        self.unknown_commands.append(line)
        return self._final(result='ERROR')

    # --- commands ---------------------------------------------------------

    def _ok(self, *_):
        return self._final()

    def _unsupported(self, *_):
        return self._final(result='ERROR')

    def _sim_state(self):
        return self._final(['+SIMSTATE: %d' % (1 if self.card else 0)])

    def _capabilities(self):
        return self._final(['+GCAP: +CGSM'])

    def _facilities(self):
        return self._final(['+CLCK: ("SC","AO","OI","OX","AI","IR","AB","AG","AC","FD","PS","PN","PU","PP","PC")'])

    def _lock_status(self, facility):
        return self._final(['+CLCK: 0'])

    def _functionality_query(self):
        return self._final(['+CFUN: %d' % self.functionality])

    def _functionality_set(self, level, _reset=None):
        self.functionality = int(level)
        return self._final()

    def _no_card(self):
        return self._final(result='+CME ERROR: %d' % CME_SIM_NOT_INSERTED)

    def _pin_state(self):
        if not self.card:
            return self._no_card()
        return self._final(['+CPIN: READY'])

    def _pin_retries(self):
        if not self.card:
            return self._no_card()
        return self._final(['+CPINR: SIM PIN,3,3', '+CPINR: SIM PUK,10,10'])

    def _subscriber_identity(self):
        if not self.card:
            return self._no_card()
        return self._final([self.card.imsi])

    def _restricted_access(self, command, file_id, rest):
        if not self.card:
            return self._no_card()
        command, file_id = int(command), int(file_id)
        contents = self.card.files().get(file_id)
        if contents is None:
            return self._final(['+CRSM: %d,%d' % SW_NOT_FOUND])
        if command == CRSM_GET_RESPONSE:
            data = get_response(file_id, len(contents))
        elif command == CRSM_READ_BINARY:
            offset, length = 0, len(contents)
            numbers = [int(n) for n in re.findall(r'\d+', rest or '')][:3]
            if len(numbers) >= 2:
                offset = (numbers[0] << 8) | numbers[1]
            if len(numbers) >= 3 and numbers[2]:
                length = numbers[2]
            data = contents[offset:offset + length]
        else:
            return self._final(['+CRSM: %d,%d' % SW_NOT_FOUND])
        return self._final(['+CRSM: %d,%d,"%s"' % (SW_OK + (data.hex().upper(),))])

    def _registration_query(self, kind):
        # Registered, home network.
        return self._final(['+%s: 0,1' % kind.upper()])

    def _operator_format(self, form):
        self.operator_format = int(form)
        return self._final()

    def _operator_query(self):
        # Automatic selection, in the format last asked for: numeric (2) or
        # long alphanumeric (0).
        if self.operator_format == OPERATOR_NUMERIC:
            return self._final(['+COPS: 0,2,"%s"' % NETWORK_CODE])
        return self._final(['+COPS: 0,0,"%s"' % NETWORK_NAME])

    def _signal_quality(self):
        return self._final(['+CSQ: 20,99'])

    def _battery(self):
        return self._final(['+CBC: 0,100'])

    @staticmethod
    def _handlers():
        S = ModemSimulator
        return (
            (r'', S._ok),
            (r'E0|E1|V1|Q0|&F|Z|&C0|&D0', S._ok),
            (r'\+CSCS=.*', S._ok),
            (r'\+CBC', S._battery),
            (r'\+SIMSTATE\?', S._sim_state),
            (r'\+GCAP', S._capabilities),
            (r'\+CLCK=\?', S._facilities),
            (r'\+CLCK="(\w+)",2', S._lock_status),
            (r'\+CGMI', lambda s: s._final([s.manufacturer])),
            (r'\+CGMM', lambda s: s._final([s.model])),
            (r'\+CGMR', lambda s: s._final([s.revision])),
            (r'\+CGSN', lambda s: s._final([s.serial])),
            (r'\+CFUN\?', S._functionality_query),
            (r'\+CFUN=(\d+)(?:,(\d+))?', S._functionality_set),
            (r'\+CPIN\?', S._pin_state),
            (r'\+CPINR.*', S._pin_retries),
            (r'\+CIMI', S._subscriber_identity),
            (r'\+CRSM=(\d+),(\d+)(.*)', S._restricted_access),
            (r'\+(CREG|CGREG|CEREG)\?', S._registration_query),
            (r'\+COPS=3,(\d)', S._operator_format),
            (r'\+COPS\?', S._operator_query),
            (r'\+CSQ', S._signal_quality),
            (r'\+CLCC', S._ok),
            (r'\+CGATT\?', lambda s: s._final(['+CGATT: 1'])),
            (r'\+CSCS\?', lambda s: s._final(['+CSCS: "GSM"'])),
            # Supported values, asked before oFono relies on a command.
            (r'\+(CREG|CGREG|CEREG)=\?', lambda s, kind: s._final(['+%s: (0-2)' % kind.upper()])),
            (r'\+CGDCONT=\?', lambda s: s._final(['+CGDCONT: (1-2),"IP",,,(0,1),(0,1)'])),
            (r'\+CGEREP=\?', lambda s: s._final(['+CGEREP: (0-2),(0-1)'])),
            (r'\+COPS=\?', lambda s: s._final(['+COPS: (2,"%s","Plinth","%s")' % (NETWORK_NAME, NETWORK_CODE)])),
            # Notifications and settings oFono switches on; the simulator has
            # nothing to report for them.
            (r'\+(CRC|CLIP|CDIP|CNAP|COLP|CCWA|CMEE|CREG|CGREG|CEREG|CGEREP|CMER|CIND|CSSN|CUSD|CMGF|CNMI|CPMS|CSMS|CSCB|CGDCONT|CGATT|COPS|CTZR|CTZU|CSCA)=.*', S._ok),
            # Voice, SMS, call metering and positioning features a SIM test
            # does not need: refused, so oFono leaves them out.
            (r'\+(VTD|CUAD|PTTY|CSMS|CAOC|CCWE|CMUT|CLVL|CPOS|CGAUTO|CPSB|CGACT)\b.*', S._unsupported),
        )


def main():
    if len(sys.argv) != 5:
        sys.stderr.write(__doc__)
        return 2
    port, imsi, iccid, spn = sys.argv[1:]
    simulator = ModemSimulator(SimCard(imsi, iccid, spn or None), port=int(port)).start()
    try:
        threading.Event().wait()
    except KeyboardInterrupt:
        pass
    simulator.stop()
    return 0


if __name__ == '__main__':
    sys.exit(main())
