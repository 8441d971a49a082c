// SPDX-License-Identifier: BSD-3-Clause
// A storage page: the user partition, what fills it, and the memory cards
// and USB sticks inserted, kept current by the module org.norvu.plinth.
//
//     qmlscene storage.qml
//
// (with QML2_IMPORT_PATH naming the module's folder when it is not
// installed where Qt looks).
import QtQuick 2.15
import org.norvu.plinth 1.0

Rectangle {
    id: page
    width: 480
    height: 800
    color: "#f4f4f4"

    // Bytes as people read them, in binary units.
    function size(bytes) {
        var units = ["B", "KiB", "MiB", "GiB", "TiB"]
        var unit = 0
        while (bytes >= 1024 && unit < units.length - 1) {
            bytes /= 1024
            ++unit
        }
        return (unit === 0 ? bytes : bytes.toFixed(1)) + " " + units[unit]
    }

    // One line for a partition of a drive (a map with the daemon's keys).
    function partitionText(partition) {
        var name = partition.partitionName || partition.partitionLabel || "Partition"
        if (!partition.mountPoint)
            return name + ": not mounted"
        return name + ": " + size(partition.bytesAvailable) + " free of " + size(partition.bytesTotal)
               + " at " + partition.mountPoint
    }

    // Measuring the folders takes a while on a full device: asked when the
    // page opens, every minute, and when the page is tapped.
    UserPartition {
        id: user
        refreshInterval: 60 * 1000
    }

    MouseArea {
        anchors.fill: parent
        onClicked: user.refresh()
    }

    Column {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12

        Text {
            text: "Storage"
            font.pixelSize: 28
        }

        Text {
            visible: !user.available
            text: "The device information service is not running."
            color: "darkred"
        }

        Text {
            text: user.deviceLabel + (user.busy ? " (measuring\u2026)" : "")
            font.pixelSize: 20
        }

        // Used, as a share of the partition.
        Rectangle {
            width: parent.width
            height: 12
            color: "#d0d0d0"
            Rectangle {
                width: user.bytesTotal > 0 ? parent.width * user.bytesUsed / user.bytesTotal : 0
                height: parent.height
                color: "steelblue"
            }
        }

        Text {
            text: page.size(user.bytesAvailable) + " free of " + page.size(user.bytesTotal)
        }

        Repeater {
            model: user.hasBreakdown
                   ? [["Pictures", user.bytesUsedPictures], ["Videos", user.bytesUsedVideos],
                      ["Music", user.bytesUsedMusic], ["Documents", user.bytesUsedDocuments],
                      ["Downloads", user.bytesUsedDownloads], ["Other files", user.bytesUsedOther],
                      ["Other users", user.bytesUsedOtherUsers]]
                   : []
            Text {
                required property var modelData
                text: modelData[0] + ": " + page.size(modelData[1])
                leftPadding: 12
            }
        }

        Text {
            text: "Memory cards and USB sticks"
            font.pixelSize: 20
        }

        Text {
            visible: drives.count === 0
            text: "None inserted"
            color: "gray"
        }

        Repeater {
            model: ExternalDrives {
                id: drives
            }

            Column {
                id: drive
                required property string driveName
                required property string driveType
                required property var partitionsInfo

                Text {
                    text: drive.driveName + " (" + drive.driveType + ")"
                    font.bold: true
                }

                Repeater {
                    model: drive.partitionsInfo
                    Text {
                        required property var modelData
                        leftPadding: 12
                        text: page.partitionText(modelData)
                    }
                }
            }
        }
    }
}
