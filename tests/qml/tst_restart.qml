// SPDX-License-Identifier: BSD-3-Clause
// Every object survives the daemon going away and coming back: available
// follows it, and what changed meanwhile (a card added while no daemon could
// tell) is loaded from the new daemon.
import QtQuick 2.15
import QtTest 1.2
import org.norvu.plinth 1.0

TestCase {
    name: "Restart"

    SimCards { id: sims }
    UserPartition { id: user }
    ExternalDrives { id: drives }
    SignalSpy { id: userBusy; target: user; signalName: "busyChanged" }
    SignalSpy { id: featuresBusy; target: Features; signalName: "busyChanged" }
    SignalSpy { id: added; target: drives; signalName: "driveAdded" }

    function test_survives_a_restart() {
        tryCompare(sims, "count", 1, harness.timeout)
        tryCompare(user, "busy", false, harness.timeout)
        tryCompare(drives, "busy", false, harness.timeout)
        tryCompare(Features, "busy", false, harness.timeout)
        var model = Features.deviceModel
        var first = harness.call("DaemonOwner")

        harness.call("StopDaemon")
        tryCompare(Features, "available", false, harness.timeout)
        compare(sims.available, false)
        compare(user.available, false)
        compare(drives.available, false)
        // What was known stays.
        compare(sims.count, 1)
        compare(user.bytesTotal, 16 * 1024 * 1024)

        // Changes no daemon could announce.
        harness.call("AddModem", ["ril_1"])
        harness.call("PlugDrive", ["usbstick"])
        userBusy.clear()
        featuresBusy.clear()
        harness.call("StartDaemon")
        tryCompare(Features, "available", true, harness.timeout)
        verify(harness.call("DaemonOwner") !== first)
        tryCompare(sims, "count", 2, harness.timeout)
        tryCompare(drives, "count", 1, harness.timeout)
        compare(added.count, 1)
        // Asked again, up and down.
        tryVerify(function() { return userBusy.count >= 2 && !user.busy }, harness.timeout)
        tryVerify(function() { return featuresBusy.count >= 2 && !Features.busy }, harness.timeout)
        compare(user.available, true)
        compare(user.bytesTotal, 16 * 1024 * 1024)
        compare(Features.deviceModel, model)
    }
}
