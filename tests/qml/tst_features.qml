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
