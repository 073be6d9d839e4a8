pragma Singleton
import QtQuick 2.15

// Sizes, fonts and colours shared by the workstation's panels.
QtObject {
    readonly property int margin: 10
    readonly property int spacing: 8
    readonly property int radius: 4
    readonly property int borderWidth: 1
    readonly property int fontSize: 14
    readonly property int titleFontSize: 16
    readonly property int headerHeight: 28
    readonly property int rowHeight: 26
    readonly property int rowTitleWidth: 110
    readonly property int glyphSize: 20
    readonly property int panelMinWidth: 480
    readonly property int updateIntervalMs: 1000

    readonly property color backgroundColor: "#eceff1"
    readonly property color panelColor: "#ffffff"
    readonly property color alternateRowColor: "#f5f7f8"
    readonly property color headerColor: "#37474f"
    readonly property color headerTextColor: "#ffffff"
    readonly property color borderColor: "#cfd8dc"
    readonly property color textColor: "#263238"
    readonly property color accentColor: "#1565c0"
    readonly property color okColor: "#2e7d32"
    readonly property color errorColor: "#c62828"
}
