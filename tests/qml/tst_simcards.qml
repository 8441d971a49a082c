// SPDX-License-Identifier: BSD-3-Clause
// SimCards follows the daemon's SIM signals: a card that comes, a name that
// arrives, a card pulled; rows move as cards do, and the preferred SIMs follow.
import QtQuick 2.15
import QtTest 1.2
import org.norvu.plinth 1.0

TestCase {
    name: "SimCards"

    SimCards { id: sims }
    SignalSpy { id: inserted; target: sims; signalName: "rowsInserted" }
    SignalSpy { id: removed; target: sims; signalName: "rowsRemoved" }
    SignalSpy { id: dataChanged; target: sims; signalName: "dataChanged" }

    // A view sees the roles by name.
    Repeater {
        id: view
        model: sims
        Item {
            required property string simName
            required property string operatorName
            required property bool enabled
            required property bool preferredDataTransfer
            required property bool preferredVoiceCall
            required property string key
        }
    }

    function test_follows_the_cards() {
        tryCompare(sims, "available", true, harness.timeout)
        tryCompare(sims, "count", 1, harness.timeout)
        compare(sims.get(0).simName, "SIM1")
        compare(sims.get(0).key, "SIM1")
        compare(sims.get(0).enabled, true)
        compare(sims.preferredDataSim, "SIM1")
        compare(sims.preferredVoiceSim, "SIM1")
        compare(view.count, 1)
        compare(view.itemAt(0).simName, "SIM1")
        compare(view.itemAt(0).preferredVoiceCall, true)

        // A second modem: its card is added below, without the first row
        // being made again.
        inserted.clear()
        removed.clear()
        var second = harness.call("AddModem", ["ril_1"])
        tryCompare(sims, "count", 2, harness.timeout)
        compare(sims.get(1).simName, "SIM2")
        compare(inserted.count, 1)
        compare(removed.count, 0)
        compare(view.itemAt(1).simName, "SIM2")

        // The card's operator name arrives with the next list.
        dataChanged.clear()
        harness.call("SetOperatorName", [second, "Tele Two"])
        tryCompare(view.itemAt(1), "operatorName", "Tele Two", harness.timeout)
        verify(dataChanged.count >= 1)

        // The first card is pulled: its row goes, and the data SIM moves.
        removed.clear()
        harness.call("PullCard", ["/ril_0"])
        tryCompare(sims, "count", 1, harness.timeout)
        compare(removed.count, 1)
        compare(sims.get(0).simName, "SIM2")
        tryCompare(sims, "preferredDataSim", "SIM2", harness.timeout)
        tryCompare(sims, "preferredVoiceSim", "SIM2", harness.timeout)
    }
}
