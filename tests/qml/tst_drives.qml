// SPDX-License-Identifier: BSD-3-Clause
// ExternalDrives and ExternalStorage follow a card that is inserted, mounted
// and pulled: the signals name the drive, although the daemon announces a
// removal with an empty map.
import QtQuick 2.15
import QtTest 1.2
import org.norvu.plinth 1.0

TestCase {
    name: "ExternalDrives"

    readonly property int mebibyte: 1024 * 1024

    ExternalDrives { id: drives }
    ExternalStorage { id: external }
    SignalSpy { id: added; target: drives; signalName: "driveAdded" }
    SignalSpy { id: removed; target: drives; signalName: "driveRemoved" }
    SignalSpy { id: changed; target: drives; signalName: "driveChanged" }

    function test_a_card_comes_and_goes() {
        tryCompare(drives, "available", true, harness.timeout)
        tryCompare(drives, "busy", false, harness.timeout)
        tryCompare(external, "busy", false, harness.timeout)
        compare(drives.count, 0)
        compare(external.mounted, false)
        compare(external.deviceLabel, "external storage")

        // The card's two partitions appear one after the other: one drive.
        harness.call("PlugDrive", ["sdcard"])
        tryCompare(added, "count", 1, harness.timeout)
        compare(added.signalArguments[0][0], "SD16G")
        tryCompare(drives, "count", 1, harness.timeout)
        tryVerify(function() { return drives.get(0).partitionsInfo.length === 2 }, harness.timeout)
        var card = drives.get(0)
        compare(card.key, "SD16G")
        compare(card.driveName, "SD16G")
        compare(card.driveType, "SD")
        compare(card.partitionsInfo[0].partitionName, "PHOTOS 2024")
        compare(card.partitionsInfo[0].mountPoint, "")

        // Mounted: the same drive changes, and the summary counts it.
        changed.clear()
        var where = harness.call("Mount", ["mmcblk1p1", 8 * mebibyte])
        tryVerify(function() { return drives.get(0).partitionsInfo[0].mountPoint === where }, harness.timeout)
        verify(changed.count >= 1)
        compare(changed.signalArguments[changed.count - 1][0], "SD16G")
        compare(drives.get(0).partitionsInfo[0].bytesAvailable, 8 * mebibyte)
        tryCompare(external, "mounted", true, harness.timeout)
        compare(external.countMountedPartitions, 1)
        compare(external.bytesTotal, 8 * mebibyte)

        // Pulled: the list says which drive went.
        harness.call("UnplugDrive", ["sdcard"])
        tryCompare(removed, "count", 1, harness.timeout)
        compare(removed.signalArguments[0][0], "SD16G")
        tryCompare(drives, "count", 0, harness.timeout)
        tryCompare(external, "mounted", false, harness.timeout)
        compare(external.bytesTotal, 0)
        compare(added.count, 1)
    }
}
