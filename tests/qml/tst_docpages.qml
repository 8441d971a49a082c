// SPDX-License-Identifier: BSD-3-Clause
// The pages of docs/examples/qml as an application shows them: what they
// show, and that they follow the SIM cards and a card plugged and pulled.
import QtQuick 2.15
import QtTest 1.2
import org.norvu.plinth 1.0

TestCase {
    id: testCase
    name: "DocPages"
    // A test case is hidden, and so would be the pages in it: what a page
    // hides itself is told from its own visible then.
    visible: true

    // The texts a page shows, in order.
    function texts(item) {
        var found = []
        if (!item.visible)
            return found
        if (typeof item.text === "string")
            found.push(item.text)
        for (var i = 0; i < item.children.length; ++i)
            found = found.concat(texts(item.children[i]))
        return found
    }

    function shows(page, text) {
        return texts(page).indexOf(text) >= 0
    }

    // What a failed check prints.
    function shown(page) {
        return JSON.stringify(texts(page))
    }

    function load(file) {
        var component = Qt.createComponent(Qt.resolvedUrl("../../docs/examples/qml/" + file))
        compare(component.status, Component.Ready, component.errorString())
        var page = createTemporaryObject(component, testCase)
        verify(page !== null)
        return page
    }

    // The page of ten lines: device model, free space, SIM cards, drives.
    function test_summary() {
        var page = load("summary.qml")
        var user = harness.call("UserPartition")
        tryCompare(Features, "busy", false, harness.timeout)
        var first = Features.deviceModel + ": " + Math.round(user.bytesAvailable / 1e6) + " MB free"
        tryVerify(function() { return shows(page, first) }, harness.timeout, shown(page))
        tryVerify(function() { return shows(page, "SIM1") }, harness.timeout, shown(page))

        harness.call("AddModem", ["ril_1"])
        tryVerify(function() { return shows(page, "SIM2") }, harness.timeout, shown(page))
        harness.call("PullCard", ["/ril_0"])
        tryVerify(function() { return !shows(page, "SIM1") }, harness.timeout, shown(page))

        harness.call("PlugDrive", ["sdcard"])
        tryVerify(function() { return shows(page, "SD16G") }, harness.timeout, shown(page))
        harness.call("UnplugDrive", ["sdcard"])
        tryVerify(function() { return !shows(page, "SD16G") }, harness.timeout, shown(page))
        compare(texts(page), [first, "SIM2"])
    }

    // The complete storage page of docs/qml.md.
    function test_storage_page() {
        var page = load("storage.qml")
        tryVerify(function() { return shows(page, "alice partition") }, harness.timeout, shown(page))
        tryVerify(function() { return shows(page, "16.0 MiB free of 16.0 MiB") || shows(page, "Pictures: 1000 B") },
                  harness.timeout, shown(page))
        verify(shows(page, "Music: 200 B"), shown(page))
        verify(shows(page, "None inserted"), shown(page))

        harness.call("PlugDrive", ["sdcard"])
        tryVerify(function() { return shows(page, "PHOTOS 2024: not mounted") }, harness.timeout, shown(page))
        verify(shows(page, "SD16G (SD)"), shown(page))
        verify(!shows(page, "None inserted"), shown(page))
        var where = harness.call("Mount", ["mmcblk1p1", 8 * 1024 * 1024])
        tryVerify(function() { return shows(page, "PHOTOS 2024: 8.0 MiB free of 8.0 MiB at " + where) },
                  harness.timeout, shown(page))
        harness.call("UnplugDrive", ["sdcard"])
        tryVerify(function() { return shows(page, "None inserted") }, harness.timeout, shown(page))
        verify(!shows(page, "SD16G (SD)"), shown(page))
    }
}
