// SPDX-License-Identifier: BSD-3-Clause
// On a bus that starts the daemon on demand, the module's first use starts
// it: no daemon runs before.
import QtQuick 2.15
import QtTest 1.2
import org.norvu.plinth 1.0

TestCase {
    name: "Activation"

    function test_first_use_starts_the_daemon() {
        compare(harness.call("DaemonRunning"), false)
        tryCompare(Features, "available", true, harness.timeout)
        tryCompare(Features, "busy", false, harness.timeout)
        verify(Features.numberCpuCores > 0)
        verify(harness.call("DaemonRunning"))
    }
}
