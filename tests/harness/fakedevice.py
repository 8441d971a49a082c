# SPDX-License-Identifier: BSD-3-Clause
"""A fake device for the daemon: kernel files, firmware, OS identity, tools.

    device = fakedevice.FakeDevice(self.workdir)
    device.proc['meminfo'] = b'MemTotal: 3809096 kB\\n'
    device.sys['class/graphics/fb0/modes'] = b'U:720x1440p-0\\n'
    device.lscpu = 'CPU(s): 8\\n'
    daemon = self.start_daemon(**device.daemon_kwargs())

Everything is laid out in files under the test's work directory and mounted in
the daemon's private mount namespace over the paths it reads, so the daemon
reads /proc, /sys and /etc as on a device:

- /proc is replaced by a directory holding the fake files of `proc` and, for
  every other entry of the real /proc (self, sys, mounts, ..., and the daemon's
  own pid), a link into the real one, which stays reachable under the work
  directory. This is also how
  /proc/device-tree exists on a machine whose kernel has none: like the kernel,
  it links to /sys/firmware/devicetree/base.
- /sys/class, /sys/firmware and /sys/devices/system/cpu are replaced by the
  trees of `sys` under those three prefixes.
- /etc and /usr/lib are overlaid with a layer holding the entries of `etc` and
  `usr_lib` (None: hidden, as if the file did not exist; Link(target): a
  symbolic link); everything else in them stays as it is.
- `lscpu` is a script first on PATH that prints `lscpu` (None: the real tool).

A value of DIRECTORY makes an entry a directory, which the daemon cannot open
as a file; UNREADABLE makes it a file of mode 000, which only a daemon without
root's file-access override (see `no_file_override`) cannot read.
"""

import os
import shlex
import tempfile

DIRECTORY = object()
UNREADABLE = object()


class Link:
    def __init__(self, target):
        self.target = target

# No file capability overrides: root still owns the fake files, but mode 000
# then means what it means for everybody else.
NO_FILE_OVERRIDE = ['setpriv', '--bounding-set', '-dac_override,-dac_read_search', '--']

DEFAULT_LSCPU = '''Architecture:                    aarch64
CPU op-mode(s):                  32-bit, 64-bit
Byte Order:                      Little Endian
CPU(s):                          8
On-line CPU(s) list:             0-7
Vendor ID:                       ARM
Model name:                      Cortex-A53
CPU max MHz:                     2208.0000
CPU min MHz:                     300.0000
'''

DEFAULT_MEMINFO = b'''MemTotal:        3809096 kB
MemFree:          812345 kB
MemAvailable:    2104864 kB
Buffers:           12345 kB
'''

DEFAULT_CPUINFO = b'''processor\t: 0
BogoMIPS\t: 38.40
Features\t: fp asimd evtstrm aes pmull sha1 sha2 crc32 cpuid
CPU implementer\t: 0x41

'''


class FakeDevice:
    def __init__(self, workdir):
        self.workdir = workdir
        self.root = tempfile.mkdtemp(prefix='device.', dir=workdir)
        self.proc = {'meminfo': DEFAULT_MEMINFO, 'cpuinfo': DEFAULT_CPUINFO}
        self.sys = {
            'devices/system/cpu/online': b'0-1\n',
            'devices/system/cpu/possible': b'0-1\n',
            'devices/system/cpu/present': b'0-1\n',
            'class/power_supply': DIRECTORY,
            'firmware/devicetree/base': DIRECTORY,
        }
        self.etc = {'os-release': b'NAME="Vireo"\nVERSION_ID="4.6.0.15"\n'}
        self.usr_lib = {'os-release': b'NAME="Vireo"\nVERSION_ID="4.0"\n'}
        self.lscpu = DEFAULT_LSCPU
        # False: the files of `proc` are mounted one by one over the real
        # ones, which must exist, and /proc/device-tree is not faked. For
        # daemons whose child processes need the entries of every process
        # (sanitizer runtimes preloaded into them read /proc/PID at exit).
        self.replace_proc = True

    def path(self, *parts):
        return os.path.join(self.root, *parts)

    def _write(self, path, value):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        if os.path.lexists(path) and not os.path.isdir(path):
            os.unlink(path)
        if isinstance(value, Link):
            os.symlink(value.target, path)
            return
        if value is DIRECTORY:
            os.makedirs(path, exist_ok=True)
            return
        with open(path, 'wb') as f:
            if value is not UNREADABLE:
                f.write(value if isinstance(value, bytes) else value.encode())
        if value is UNREADABLE:
            os.chmod(path, 0)

    def rewrite(self, area, name, value):
        """Change a fake file in place while the daemon runs (same inode)."""
        path = {'proc': self.path('proc', name), 'sys': self.path('sys', name)}[area]
        with open(path, 'r+b') as f:
            f.truncate(0)
            f.write(value)

    def sys_path(self, name):
        """Where a fake /sys entry lives, to change it while the daemon runs."""
        return self.path('sys', name)

    def _layer(self, name, files):
        """An overlay layer: a file per value, a whiteout (hidden) per None."""
        layer = self.path(name)
        os.makedirs(layer, exist_ok=True)
        for filename, value in files.items():
            target = os.path.join(layer, filename)
            if value is None:
                if not os.path.lexists(target):
                    os.mknod(target, 0o600 | 0o020000, os.makedev(0, 0))
            else:
                self._write(target, value)
        return layer

    def _build(self):
        realproc = self.path('realproc')
        fakeproc = self.path('proc')
        os.makedirs(realproc, exist_ok=True)
        os.makedirs(fakeproc, exist_ok=True)
        for name, value in self.proc.items():
            if value is not None:
                self._write(os.path.join(fakeproc, name), value)
        if 'device-tree' not in self.proc:
            self._write(os.path.join(fakeproc, 'device-tree'), Link('/sys/firmware/devicetree/base'))
        for name in os.listdir('/proc'):
            if name.isdigit() or name in self.proc or name == 'device-tree':
                continue
            self._write(os.path.join(fakeproc, name), Link(os.path.join(realproc, name)))

        for prefix in ('class', 'firmware', 'devices/system/cpu'):
            os.makedirs(self.path('sys', prefix), exist_ok=True)
        for name, value in self.sys.items():
            if value is not None:
                self._write(self.path('sys', name), value)

        q = shlex.quote
        setup = ['mount --bind /proc %s' % q(realproc)] if self.replace_proc else []
        for prefix in ('class', 'firmware', 'devices/system/cpu'):
            setup.append('mount --bind %s %s' % (q(self.path('sys', prefix)), q('/sys/' + prefix)))
        for target, files in (('/etc', self.etc), ('/usr/lib', self.usr_lib)):
            layer = self._layer('layer' + target.replace('/', '-'), files)
            setup.append('mount -t overlay overlay -o ro,lowerdir=%s:%s %s' % (q(layer), target, target))
        if not self.replace_proc:
            # Each fake file over its real one; /proc itself stays the
            # kernel's, with an entry for every process.
            for name, value in self.proc.items():
                if value is not None and os.path.isfile(os.path.join('/proc', name)):
                    setup.append('mount --bind %s %s' % (q(os.path.join(fakeproc, name)), q('/proc/' + name)))
            return setup
        # The daemon's own entry: the namespace's shell execs the daemon, so it
        # keeps this shell's pid (sanitizers look up /proc/PID, not /proc/self).
        setup.append('ln -sfn %s/$$ %s/$$' % (q(realproc), q(fakeproc)))
        # Last: the mount tool itself reads /proc/self/mountinfo.
        setup.append('mount --bind %s /proc' % q(fakeproc))
        return setup

    def daemon_kwargs(self, **extra):
        """Arguments for DaemonTestCase.start_daemon; extra ones are merged in."""
        kwargs = dict(extra)
        kwargs['setup'] = self._build() + list(extra.get('setup', []))
        fake_bin = dict(extra.get('fake_bin', {}))
        if self.lscpu is not None:
            output = self.path('lscpu.out')
            self._write(output, self.lscpu)
            fake_bin.setdefault('lscpu', '#!/bin/sh\nexec cat %s\n' % shlex.quote(output))
        kwargs['fake_bin'] = fake_bin
        return kwargs
