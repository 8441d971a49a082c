// SPDX-License-Identifier: BSD-3-Clause
import QtQuick 2.15
import org.norvu.plinth 1.0

Column {
    UserPartition { id: user }
    Text { text: Features.deviceModel + ": " + Math.round(user.bytesAvailable / 1e6) + " MB free" }
    Repeater { model: SimCards {} Text { required property string simName; text: simName } }
    Repeater { model: ExternalDrives {} Text { required property string driveName; text: driveName } }
}
