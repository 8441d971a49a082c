// SPDX-License-Identifier: BSD-3-Clause
// The Features singleton: every value of the daemon's Features object, as
// the daemon answers it, arrives on its own.
import QtQuick 2.15
import QtTest 1.2
import org.norvu.plinth 1.0

TestCase {
    name: "Features"

    function test_every_value_is_the_daemons() {
        tryCompare(Features, "available", true, harness.timeout)
        tryCompare(Features, "busy", false, harness.timeout)
        var expected = harness.call("FeaturesAnswers")
        var names = Object.keys(expected)
        compare(names.length, 25)
        for (var i = 0; i < names.length; ++i) {
            // The free memory changes from one read to the next.
            if (names[i] !== "ramFreeSize")
                compare(Features[names[i]], expected[names[i]], names[i])
        }
        // Not the neutral values: the daemon answered.
        verify(Features.ramTotalSize > 0)
        compare(Features.osType, 64)
    }

    SignalSpy { id: busy; target: Features; signalName: "busyChanged" }

    // The cameras are measured after the daemon starts, and whenever the
    // daemon says the cameras changed their resolutions are asked again.
    function test_cameras_asked_again_when_the_daemon_says_so() {
        tryCompare(Features, "mainCameraResolution", 12, harness.timeout)
        tryCompare(Features, "frontalCameraResolution", 2, harness.timeout)
        tryCompare(Features, "busy", false, harness.timeout)
        busy.clear()
        harness.call("AnnounceCameraPolicy")
        tryVerify(function() { return busy.count >= 2 && !Features.busy }, harness.timeout)
        compare(Features.mainCameraResolution, 12)
    }

    function test_refresh_asks_again() {
        tryCompare(Features, "busy", false, harness.timeout)
        var free = Features.ramFreeSize
        Features.refresh()
        verify(Features.busy)
        tryCompare(Features, "busy", false, harness.timeout)
        verify(Features.ramFreeSize > 0)
        verify(Features.ramFreeSize <= Features.ramTotalSize)
    }
}
