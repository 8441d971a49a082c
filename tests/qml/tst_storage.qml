// SPDX-License-Identifier: BSD-3-Clause
// The storage objects: the figures of the daemon's answers, busy while a
// delayed reply is out, and asked again on refresh() and by refreshInterval.
import QtQuick 2.15
import QtTest 1.2
import org.norvu.plinth 1.0

TestCase {
    name: "Storage"

    UserPartition { id: user }
    SystemStorage { id: system }
    InternalStorage { id: internal }
    SignalSpy { id: userBusy; target: user; signalName: "busyChanged" }

    function init() {
        tryCompare(user, "busy", false, harness.timeout)
        tryCompare(system, "busy", false, harness.timeout)
        tryCompare(internal, "busy", false, harness.timeout)
    }

    function test_figures_are_the_daemons() {
        var expected = harness.call("UserPartition")
        compare(user.available, true)
        compare(user.bytesTotal, 16 * 1024 * 1024)
        compare(user.bytesTotal, expected.bytesTotal)
        compare(user.bytesAvailable, expected.bytesAvailable)
        compare(user.bytesUsed, expected.bytesUsed)
        compare(user.deviceLabel, "alice partition")
        compare(user.filesystemType, "tmpfs")
        verify(user.hasBreakdown)
        compare(user.bytesUsedMusic, 200)
        compare(user.bytesUsedVideos, 0)
        compare(user.hasOtherUsers, true)
        compare(user.bytesUsedOtherUsers, 0)
        compare(user.values.deviceLabel, "alice partition")

        compare(system.bytesUsedSystemLogs, 3000)
        compare(system.bytesUsedCoreDumps, 2000)
        compare(system.bytesUsedSDK, 0)
        verify(system.bytesTotal > 0)
        compare(internal.deviceLabel, "internal memory")
        verify(internal.bytesTotal > 0)
    }

    function test_busy_while_the_answer_is_held() {
        compare(user.bytesUsedPictures, 1000)
        harness.call("HoldWalks")
        harness.call("AddPicture", ["b.jpg", 4000])
        user.refresh()
        verify(user.busy)
        // The daemon's walk waits; the UI goes on, and so do the daemon's
        // other answers.
        wait(300)
        verify(user.busy)
        Features.refresh()
        tryCompare(Features, "busy", false, harness.timeout)
        verify(user.busy)
        compare(user.bytesUsedPictures, 1000)
        // A refresh while busy is not lost: one more question follows.
        userBusy.clear()
        user.refresh()
        harness.call("ReleaseWalks")
        tryCompare(user, "busy", false, harness.timeout)
        compare(userBusy.count, 1)
        compare(user.bytesUsedPictures, 5000)
    }

    function test_refresh_interval() {
        userBusy.clear()
        user.refreshInterval = 50
        compare(user.refreshInterval, 50)
        // Up and down at least three times.
        tryVerify(function() { return userBusy.count >= 6 }, harness.timeout)
        user.refreshInterval = 0
        tryCompare(user, "busy", false, harness.timeout)
        userBusy.clear()
        wait(300)
        compare(userBusy.count, 0)
    }
}
