# SPDX-License-Identifier: BSD-3-Clause
"""Real block devices for the storage tests and the bench: loop devices on
sparse files, whole or with an MBR partition table, with ext4 file systems.

Loop devices belong to the whole machine, and other tests may use some at
the same time: a device is always asked for as "the next free one" (losetup
--find), never by number, and close() detaches every device attached here and
removes the device nodes the kernel made for them, even after a failure.

The partitions of a table are added by util-linux's partx, which reads the
table itself and hands the kernel each partition (BLKPG): kernels built
without partition table parsers (this machine's, some phones') see them all
the same, and a kernel that parsed the table when the device was attached has
them already.
"""

import fcntl
import os
import shutil
import struct
import subprocess

SECTOR = 512
MiB = 1024 * 1024
# The first partition starts 1 MiB in, as partitioning tools place it.
FIRST_SECTOR = MiB // SECTOR
LINUX_PARTITION_TYPE = 0x83
MBR_TABLE_OFFSET = 446
MBR_SIGNATURE = b'\x55\xaa'

LOOP_CONTROL = '/dev/loop-control'
# <linux/loop.h>
LOOP_CTL_REMOVE = 0x4C81

PROGRAMS = ('losetup', 'partx', 'mkfs.ext4')


def unavailable():
    """Why loop devices cannot be made here, or None when they can."""
    if os.geteuid() != 0:
        return 'needs root for loop devices'
    if not os.path.exists(LOOP_CONTROL):
        return 'no %s: the kernel has no loop devices' % LOOP_CONTROL
    for program in PROGRAMS:
        if not shutil.which(program):
            return 'needs %s for loop devices with partitions and file systems' % program
    return None


def loop_names():
    return {name for name in os.listdir('/sys/class/block') if name.startswith('loop') and name[4:].isdigit()}


def _run(*command):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True,
                            stdin=subprocess.DEVNULL)
    if result.returncode != 0:
        raise RuntimeError('%s failed (%d): %s' % (' '.join(command), result.returncode, result.stderr.strip()))
    return result.stdout


def write_partition_table(path, partitions_sectors):
    """An MBR at the start of PATH with one Linux partition per size (in
    sectors), one after the other from FIRST_SECTOR."""
    table = bytearray(SECTOR)
    start = FIRST_SECTOR
    for index, count in enumerate(partitions_sectors):
        # Boot flag, CHS start (unused), type, CHS end (unused), LBA start, sectors.
        entry = struct.pack('<B3sB3sII', 0, b'\0\0\0', LINUX_PARTITION_TYPE, b'\0\0\0', start, count)
        offset = MBR_TABLE_OFFSET + 16 * index
        table[offset:offset + 16] = entry
        start += count
    table[510:512] = MBR_SIGNATURE
    with open(path, 'r+b') as f:
        f.write(table)


class LoopDevice:
    """One attached loop device: its node and the nodes of its partitions."""

    def __init__(self, node, partitions):
        self.node = node
        self.name = os.path.basename(node)
        self.partitions = partitions

    def filesystems(self):
        """The nodes that hold a file system: the partitions, or the device itself."""
        return self.partitions or [self.node]


class LoopDevices:
    """Loop devices attached for one test or one bench run, in WORKDIR."""

    def __init__(self, workdir):
        self.workdir = workdir
        self.attached = []
        self._files = 0
        self._existing = loop_names()
        self._used = set()

    def attach(self, size_bytes, partitions=0, filesystems=True, label=None):
        """A loop device on a sparse file of SIZE_BYTES: a whole device, or
        PARTITIONS equal partitions filling it after the first MiB. With
        FILESYSTEMS, an ext4 file system on each (labelled LABEL, and LABEL-N
        for partition N)."""
        self._files += 1
        path = os.path.join(self.workdir, 'loop-%d.img' % self._files)
        with open(path, 'wb') as f:
            f.truncate(size_bytes)
        if partitions:
            each = (size_bytes // SECTOR - FIRST_SECTOR) // partitions
            write_partition_table(path, [each] * partitions)
        node = _run('losetup', '--find', '--show', '--partscan', path).strip()
        device = LoopDevice(node, [])
        self.attached.append(device)
        self._used.add(device.name)
        if partitions:
            name = os.path.basename(node)
            expected = ['%sp%d' % (name, n) for n in range(1, partitions + 1)]
            if not all(os.path.exists(os.path.join('/sys/class/block', p)) for p in expected):
                _run('partx', '--add', node)
            device.partitions = ['/dev/' + p for p in expected]
        if filesystems:
            for index, target in enumerate(device.filesystems()):
                command = ['mkfs.ext4', '-q', '-F', '-m', '0']
                if label:
                    command += ['-L', label if not partitions else '%s-%d' % (label, index + 1)]
                _run(*(command + [target]))
        return device

    def cannot_attach(self):
        """Why no loop device with a partition can be attached here (an
        emulator that does not carry the calls, say), or None after attaching
        and detaching one."""
        try:
            self.detach(self.attach(2 * MiB, partitions=1, filesystems=False))
        except RuntimeError as error:
            return 'cannot attach a loop device with a partition here: %s' % error
        return None

    def detach(self, device):
        """Detaches DEVICE; its partitions go with it. A device whose file
        system is still mounted somewhere goes once it is unmounted."""
        self.attached.remove(device)
        _run('losetup', '--detach', device.node)

    def close(self):
        """Detaches everything still attached and removes the device nodes the
        kernel made for the devices of this run, as far as nobody else took
        them meanwhile."""
        errors = []
        for device in list(self.attached):
            try:
                self.detach(device)
            except (RuntimeError, ValueError) as error:
                errors.append(str(error))
        made = (self._used & loop_names()) - self._existing
        if made:
            try:
                control = os.open(LOOP_CONTROL, os.O_RDWR | os.O_CLOEXEC)
            except OSError:
                control = -1
            if control >= 0:
                for name in sorted(made):
                    try:
                        # Refused (EBUSY) for a device someone has attached.
                        fcntl.ioctl(control, LOOP_CTL_REMOVE, int(name[4:]))
                    except OSError:
                        pass
                os.close(control)
        if errors:
            raise RuntimeError('; '.join(errors))
