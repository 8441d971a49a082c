#!/bin/sh
# SPDX-License-Identifier: BSD-3-Clause
# plinthd from the shell, with busctl (systemd) and gdbus (Debian:
# libglib2.0-bin). Both use the system bus, or the one DBUS_SYSTEM_BUS_ADDRESS
# names.
#
#   plinth-query.sh
set -e

dest=org.norvu.plinth

# busctl prints the signature, then the values: s "SDM845"
busctl --system call $dest /org/norvu/plinth/Features org.norvu.plinth.Features getCpuModel
# a property: u 64
busctl --system get-property $dest /org/norvu/plinth/Features org.norvu.plinth.Features osType
# "av": every element shows its own type: av 2 u 1804 u 2208
busctl --system call $dest /org/norvu/plinth/Features org.norvu.plinth.Features getMaxCpuCoresClockSpeed
# The external drives, quick to answer: aa{sv} 0 without any
busctl --system call $dest /org/norvu/plinth/Storages org.norvu.plinth.Storages getExternalStorageDrivesInfo

# gdbus prints a GVariant tuple: (uint32 8,)
gdbus call --system --dest $dest --object-path /org/norvu/plinth/Features \
    --method org.norvu.plinth.Features.getNumberCpuCores
gdbus call --system --dest $dest --object-path /org/norvu/plinth/SIM \
    --method org.norvu.plinth.SIM.getSimCardsInfo

# Storage questions answered later, from a worker, take minutes on a full
# device: give them a long time-out (seconds for both tools).
busctl --system --timeout=300 call $dest /org/norvu/plinth/Storages org.norvu.plinth.Storages \
    getInternalStorageInfo
gdbus call --system --timeout 300 --dest $dest --object-path /org/norvu/plinth/Storages \
    --method org.norvu.plinth.Storages.getSystemStorageInfo

# Following the signals runs until it is interrupted, so it is not done here:
#   gdbus monitor --system --dest org.norvu.plinth --object-path /org/norvu/plinth/Storages
#   busctl --system monitor org.norvu.plinth
