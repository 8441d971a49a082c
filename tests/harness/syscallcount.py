# SPDX-License-Identifier: BSD-3-Clause
"""How many system calls a running process makes while something is done to
it: strace attached to every one of its threads, counting (strace -f -c).

Used by the storage tests to bound what one query costs, and by the bench.
"""

import os
import select
import shutil
import signal
import subprocess
import tempfile
import time

# Once the action is done, how long the process is still watched: a worker
# finishes its task after the reply has gone.
SETTLE_SECONDS = 0.3
ATTACH_SECONDS = 10.0
# After the first thread, for the others that strace attaches one by one.
ATTACH_SETTLE_SECONDS = 0.2


def unavailable():
    """Why system calls cannot be counted here, or None when they can."""
    if os.environ.get('PLINTHD_TEST_EMULATED'):
        return "under emulation strace would count the emulator's system calls, not the daemon's"
    if not shutil.which('strace'):
        return 'needs strace to count system calls'
    if os.geteuid() != 0:
        return 'needs root to trace the daemon'
    return None


class Count:
    """The calls strace counted: the total and each system call's."""

    def __init__(self, report):
        self.by_call = {}
        self.total = 0
        for line in report.splitlines():
            fields = line.split()
            # "% time  seconds  usecs/call  calls  [errors]  syscall"
            if len(fields) < 5 or not fields[3].isdigit():
                continue
            if fields[-1] == 'total':
                self.total = int(fields[3])
            else:
                self.by_call[fields[-1]] = int(fields[3])

    def __str__(self):
        calls = sorted(self.by_call.items(), key=lambda item: -item[1])
        return '%d system calls (%s)' % (self.total, ', '.join('%s %d' % item for item in calls))


def count(pid, action):
    """Runs ACTION() while every thread of process PID is traced; the Count."""
    with tempfile.NamedTemporaryFile(prefix='strace.', suffix='.txt') as report:
        tracer = subprocess.Popen(['strace', '-f', '-c', '-o', report.name, '-p', str(pid)],
                                  stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        try:
            _wait_attached(tracer)
            action()
            time.sleep(SETTLE_SECONDS)
        finally:
            tracer.send_signal(signal.SIGINT)
            _, errors = tracer.communicate(timeout=30)
        with open(report.name) as f:
            text = f.read()
    result = Count(text)
    if not result.total:
        raise RuntimeError('strace counted nothing: %s' % errors.decode(errors='replace').strip()[-500:])
    return result


def _wait_attached(tracer):
    """strace says "Process N attached" once it has stopped the threads (all
    of them in one line, "... attached with M threads", or one line each as it
    goes); the count cannot be known beforehand, as threads come and go."""
    seen = b''
    deadline = time.monotonic() + ATTACH_SECONDS
    while b' attached' not in seen:
        left = deadline - time.monotonic()
        if left <= 0 or tracer.poll() is not None:
            raise RuntimeError('strace did not attach: %s' % seen.decode(errors='replace').strip()[-500:])
        ready, _, _ = select.select([tracer.stderr], [], [], left)
        if ready:
            seen += os.read(tracer.stderr.fileno(), 4096)
    time.sleep(ATTACH_SETTLE_SECONDS)
