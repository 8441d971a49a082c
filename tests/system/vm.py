# SPDX-License-Identifier: BSD-3-Clause
"""Boots the guest under QEMU and serves its requests to plug and unplug a
USB stick, until the guest powers off or the time is up.

The guest asks through the shared folder: it writes requests/NAME (NAME is
"plug" or "unplug", with a serial number so every request is new) and waits
for replies/NAME, which holds "ok" or the reason it failed. The host answers
with QMP commands on a unix socket. Only the standard library is used, so any
python3 will do.

Exit status: 0 when the guest powered off by itself, 2 when it had to be
stopped because the time was up, 4 when the scenario finished but the guest
did not power off within POWEROFF_SECONDS, 1 when QEMU could not be run or
ended otherwise.
"""

import argparse
import json
import os
import signal
import socket
import subprocess
import sys
import time

QMP_CONNECT_SECONDS = 30
QMP_REPLY_SECONDS = 60
UNPLUG_SECONDS = 60
# From the scenario's last line to QEMU's exit.
POWEROFF_SECONDS = 120
POLL_SECONDS = 0.2


class Qmp:
    def __init__(self, path, deadline):
        while True:
            try:
                self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
                self.sock.connect(path)
                break
            except OSError:
                self.sock.close()
                if time.monotonic() > deadline:
                    raise
                time.sleep(POLL_SECONDS)
        self.sock.settimeout(QMP_REPLY_SECONDS)
        self.reader = self.sock.makefile("r")
        self.events = []
        json.loads(self.reader.readline())  # the greeting
        self.command("qmp_capabilities")

    def _read(self):
        line = self.reader.readline()
        if not line:
            raise OSError("QEMU closed the monitor")
        return json.loads(line)

    def command(self, name, **arguments):
        message = {"execute": name}
        if arguments:
            message["arguments"] = arguments
        self.sock.sendall((json.dumps(message) + "\n").encode())
        while True:
            reply = self._read()
            if "event" in reply:
                self.events.append(reply)
                continue
            if "error" in reply:
                raise RuntimeError("%s: %s" % (name, reply["error"].get("desc")))
            return reply.get("return")

    def wait_event(self, name, device, seconds):
        deadline = time.monotonic() + seconds
        while True:
            for event in self.events:
                if event["event"] == name and event.get("data", {}).get("device") == device:
                    self.events.remove(event)
                    return
            if time.monotonic() > deadline:
                raise RuntimeError("no %s for %s within %d s" % (name, device, seconds))
            self.sock.settimeout(max(0.1, deadline - time.monotonic()))
            try:
                self.events.append(self._read())
            except socket.timeout:
                pass
            finally:
                self.sock.settimeout(QMP_REPLY_SECONDS)


class Stick:
    """One raw image, plugged as usb-storage on the guest's xHCI bus."""

    def __init__(self, qmp, image):
        self.qmp = qmp
        self.image = image
        self.plugged = 0

    def plug(self):
        self.plugged += 1
        node, device = self.names()
        self.qmp.command("blockdev-add", **{
            "node-name": node, "driver": "raw",
            "file": {"driver": "file", "filename": self.image}})
        self.qmp.command("device_add", driver="usb-storage", bus="xhci.0",
                         drive=node, id=device, removable=True)

    def unplug(self):
        node, device = self.names()
        self.qmp.command("device_del", id=device)
        # The guest lets go of the device first; the image may only be
        # released once QEMU says the device is gone.
        self.qmp.wait_event("DEVICE_DELETED", device, UNPLUG_SECONDS)
        self.qmp.command("blockdev-del", **{"node-name": node})

    def names(self):
        return "stick%d" % self.plugged, "stickdev%d" % self.plugged


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--kernel", required=True)
    parser.add_argument("--initrd", required=True)
    parser.add_argument("--root", required=True)
    parser.add_argument("--share", required=True)
    parser.add_argument("--stick", required=True)
    parser.add_argument("--console", required=True)
    parser.add_argument("--qmp", required=True)
    parser.add_argument("--seconds", type=int, required=True)
    args = parser.parse_args()

    for sub in ("requests", "replies"):
        os.makedirs(os.path.join(args.share, sub), exist_ok=True)
    if os.path.exists(args.qmp):
        os.unlink(args.qmp)
    # -nodefaults: no CD drive, network card or display of QEMU's own; a
    # removable CD drive would be one more external drive in every answer.
    command = [
        "qemu-system-x86_64", "-nodefaults", "-machine", "q35", "-accel", "tcg,thread=multi", "-cpu", "max",
        "-smp", "2", "-m", "2048", "-display", "none", "-no-reboot",
        "-serial", "file:" + args.console, "-monitor", "none",
        "-qmp", "unix:%s,server=on,wait=off" % args.qmp,
        "-kernel", args.kernel, "-initrd", args.initrd,
        "-append", "root=/dev/vda rw console=ttyS0 panic=-1 net.ifnames=0 systemd.show_status=true",
        # snapshot: whatever the guest writes is thrown away with QEMU, so
        # the cached image stays as it was built.
        "-drive", "file=%s,if=virtio,format=raw,snapshot=on" % args.root,
        "-virtfs", "local,path=%s,mount_tag=plinth,security_model=none,id=plinth" % args.share,
        "-device", "qemu-xhci,id=xhci",
        "-nic", "none",
    ]
    started = time.monotonic()
    deadline = started + args.seconds
    # Stopped from outside (CI's time limit, Ctrl-C): QEMU goes with us.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(3))
    try:
        qemu = subprocess.Popen(command, stdin=subprocess.DEVNULL)
    except OSError as error:
        print("vm: cannot run QEMU: %s" % error, file=sys.stderr)
        return 1
    try:
        qmp = Qmp(args.qmp, time.monotonic() + QMP_CONNECT_SECONDS)
        stick = Stick(qmp, args.stick)
        done = set()
        finished = os.path.join(args.share, "out", "finished")
        finished_at = None
        while qemu.poll() is None:
            if time.monotonic() > deadline:
                print("vm: the guest did not finish within %d s; stopping it" % args.seconds,
                      file=sys.stderr)
                return 2
            if finished_at is None and os.path.exists(finished):
                finished_at = time.monotonic()
            if finished_at is not None and time.monotonic() - finished_at > POWEROFF_SECONDS:
                print("vm: the scenario ended but the guest did not power off within %d s"
                      % POWEROFF_SECONDS, file=sys.stderr)
                return 4
            requests = os.path.join(args.share, "requests")
            for name in sorted(os.listdir(requests)):
                if name in done:
                    continue
                done.add(name)
                try:
                    if name.startswith("plug"):
                        stick.plug()
                    elif name.startswith("unplug"):
                        stick.unplug()
                    else:
                        raise RuntimeError("unknown request")
                    answer = "ok"
                except (RuntimeError, OSError) as error:
                    answer = str(error)
                print("vm: %s at %.0f s: %s" % (name, time.monotonic() - started, answer),
                      file=sys.stderr)
                reply = os.path.join(args.share, "replies", name)
                with open(reply + ".tmp", "w") as out:
                    out.write(answer + "\n")
                os.rename(reply + ".tmp", reply)
            time.sleep(POLL_SECONDS)
        if qemu.returncode != 0:
            print("vm: QEMU ended with status %d" % qemu.returncode, file=sys.stderr)
            return 1
        print("vm: the guest powered off after %.0f s" % (time.monotonic() - started),
              file=sys.stderr)
        return 0
    except (RuntimeError, OSError) as error:
        print("vm: %s" % error, file=sys.stderr)
        return 1
    finally:
        if qemu.poll() is None:
            qemu.kill()
            qemu.wait()


if __name__ == "__main__":
    sys.exit(main())
