# SPDX-License-Identifier: BSD-3-Clause
"""The storage walk written the plain way, for tests that hold the daemon's
figures to it: what one owner has under a folder.

    plainwalk.size('/var/log', 0)
    plainwalk.size(home, uid, excluded={home + '/Pictures'})

Apparent sizes of the entries the owner owns; a link counts its own length
for the owner of what it points to (a dangling one for UNKNOWN_OWNER); a
folder of another owner is not entered, nor one whose path is excluded
(exact strings); names a UTF-8 listing cannot decode are not listed, so not
counted.
"""

import os
import stat

# The owner a Qt listing gives an entry it cannot stat (a dangling link).
UNKNOWN_OWNER = 2 ** 32 - 2


def size(root, owner, excluded=()):
    if root in excluded or not os.path.isdir(root):
        return 0
    total = 0
    pending = [os.fsencode(root)]
    excluded = {os.fsencode(path) for path in excluded}
    while pending:
        folder = pending.pop()
        try:
            names = os.listdir(folder)
        except OSError:
            continue
        for name in names:
            try:
                name.decode('utf-8')
            except UnicodeDecodeError:
                continue
            path = os.path.join(folder, name)
            try:
                status = os.lstat(path)
            except OSError:
                continue
            if stat.S_ISLNK(status.st_mode):
                try:
                    target_owner = os.stat(path).st_uid
                except OSError:
                    target_owner = UNKNOWN_OWNER
                if target_owner == owner:
                    total += status.st_size
            elif status.st_uid != owner:
                continue
            elif stat.S_ISDIR(status.st_mode):
                if path not in excluded:
                    pending.append(path)
            else:
                total += status.st_size
    return total
