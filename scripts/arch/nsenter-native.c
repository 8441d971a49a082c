// SPDX-License-Identifier: BSD-3-Clause
// nsenter -t PID -m [--] COMMAND..., for an emulated root (scripts/test-arch):
// the kernel lets only a process that shares its file system attributes with
// no other join a mount namespace, and qemu-user's own threads share them, so
// util-linux's nsenter fails there with EINVAL. This one is built static for
// the machine itself, runs natively in the root, and executes COMMAND (which
// the emulator runs again) in the mount namespace of PID.
#define _GNU_SOURCE
#include <fcntl.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    const char *pid = NULL;
    int mount = 0;
    int i = 1;
    for (; i < argc; ++i) {
        if (strcmp(argv[i], "-t") == 0 && i + 1 < argc)
            pid = argv[++i];
        else if (strcmp(argv[i], "-m") == 0)
            mount = 1;
        else if (strcmp(argv[i], "--") == 0) {
            ++i;
            break;
        } else if (argv[i][0] == '-') {
            fprintf(stderr, "nsenter: only -t PID -m is known here, not %s\n", argv[i]);
            return 1;
        } else
            break;
    }
    if (!pid || !mount || i >= argc) {
        fprintf(stderr, "usage: nsenter -t PID -m [--] COMMAND...\n");
        return 1;
    }
    char path[64];
    snprintf(path, sizeof(path), "/proc/%s/ns/mnt", pid);
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0 || setns(fd, CLONE_NEWNS) != 0) {
        perror("nsenter: cannot enter the mount namespace");
        return 1;
    }
    execvp(argv[i], argv + i);
    perror("nsenter: cannot run the command");
    return 127;
}
