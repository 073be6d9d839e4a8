import QtQuick 2.15
import QtQuick.Controls 2.15
import "../widgets"

// Frame of a maintenance panel: a header with the device's name and link state,
// the panel's own content below, and updateData on a period while the device is
// connected and the panel shown.
Control {
    id: idBasePanel

    property string name: ""
    property bool connected: false
    signal updateData()

    padding: Style.margin
    topPadding: Style.headerHeight + 2 * Style.margin
    spacing: Style.spacing
    font.pixelSize: Style.fontSize
    implicitWidth: Math.max(Style.panelMinWidth, implicitContentWidth + leftPadding + rightPadding)
    implicitHeight: implicitContentHeight + topPadding + bottomPadding

    background: Rectangle {
        color: Style.panelColor
        border.width: Style.borderWidth
        border.color: Style.borderColor
        radius: Style.radius

        Rectangle {
            id: idHeader
            width: parent.width
            height: Style.headerHeight + Style.margin
            color: Style.headerColor
            radius: Style.radius

            UiGlyph {
                id: idGlyphLink
                glyph: idBasePanel.connected ? "icon-connected" : "icon-disconnected"
                color: idBasePanel.connected ? "#81c784" : "#ef9a9a"
                x: Style.margin
                anchors.verticalCenter: parent.verticalCenter
            }
            Text {
                text: idBasePanel.name
                color: Style.headerTextColor
                font.pixelSize: Style.titleFontSize
                font.bold: true
                anchors.left: idGlyphLink.right
                anchors.leftMargin: Style.spacing
                anchors.verticalCenter: parent.verticalCenter
            }
            Text {
                text: idBasePanel.connected ? "Connected" : "Not connected"
                color: Style.headerTextColor
                font.pixelSize: Style.fontSize
                anchors.right: parent.right
                anchors.rightMargin: Style.margin
                anchors.verticalCenter: parent.verticalCenter
            }
        }
    }

    Timer {
        interval: Style.updateIntervalMs
        repeat: true
        running: idBasePanel.visible && idBasePanel.connected
        onTriggered: idBasePanel.updateData()
    }
}
