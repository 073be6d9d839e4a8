import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import PlgLibDeviceHytorc 1.0
import "../../../applications/AppWorkplace/gui/panels"
import "../../../applications/AppWorkplace/gui/widgets"

// Maintenance panel of a HYTORC tool: program and lock setting, tool information.
BasePanelMaintenance {
    id: idPanel
    objectName: "maintenance_panel_device_hytorc"
    name: be.name
    connected: be.isConnected
    spacing: Style.spacing

    property bool toolInfoLoading: false
    property string statusText: ""
    property bool statusFailed: false
    property string appliedProgram: ""

    onUpdateData: be.updateChannelsValue()

    function showStatus(text, failed) {
        statusText = text
        statusFailed = failed
    }

    // With the tool answering, setProgram fails for a program that the list read from the
    // tool at connection does not hold; the link is not at fault then.
    function failureText(name) {
        if (name === "setProgram" && idPanel.connected)
            return name + " failed: program " + appliedProgram + " is not in the program list read from the tool"
        return name + " failed: check that the tool is on, in range and connected"
    }

    function fillToolInfo(text) {
        toolInfoListModel.clear()
        var lines = text.split("\n")
        for (var i = 0; i < lines.length; ++i) {
            var line = lines[i].trim()
            if (line === "")
                continue
            var parts = line.split(": ")
            toolInfoListModel.append({"property": parts[0], "value": parts.slice(1).join(": ")})
        }
    }

    BeMaintenanceDeviceHytorc {
        id: be
        objectName: idPanel.objectName + ".be"
        name: "{OBJECT_NAME}"
        objectId: "{OBJECT_ID}"
        reference: "{OBJECT_REFERENCE}"
    }

    ListModel {
        id: toolInfoListModel
        objectName: idPanel.objectName + ".toolInfoListModel"
    }

    Connections {
        target: be
        function onToolInfoChanged() {
            idPanel.toolInfoLoading = false
            idPanel.fillToolInfo(be.toolInfo)
        }
        function onSigInstructionFailed(instruction, reason) {
            idPanel.toolInfoLoading = false
            idPanel.showStatus(instruction + " failed: " + reason, true)
        }
        function onTreatmentReleased(kind, name, ok) {
            if (kind >= 100)
                idPanel.showStatus(ok ? name + ": done" : idPanel.failureText(name), !ok)
        }
    }

    // One line of the tool information: property on 40 % of the width, value on 60 %.
    component ToolInfoRow: Rectangle {
        id: idToolInfoRow
        property alias propertyText: idCellProperty.text
        property alias valueText: idCellValue.text
        property bool heading: false

        implicitHeight: Style.rowHeight
        color: heading ? Style.borderColor : Style.panelColor

        Label {
            id: idCellProperty
            objectName: parent.objectName + ".idCellProperty"
            x: Style.margin
            width: parent.width * 0.4 - Style.margin
            anchors.verticalCenter: parent.verticalCenter
            font.bold: idToolInfoRow.heading
            elide: Text.ElideRight
        }
        Label {
            id: idCellValue
            objectName: parent.objectName + ".idCellValue"
            x: parent.width * 0.4
            width: parent.width * 0.6 - Style.margin
            anchors.verticalCenter: parent.verticalCenter
            font.bold: idToolInfoRow.heading
            elide: Text.ElideRight
        }
    }

    contentItem: ColumnLayout {
        id: idColumnCommands
        objectName: idPanel.objectName + ".idColumnCommands"
        spacing: idPanel.spacing

        Label {
            id: idLabelTitle
            objectName: parent.objectName + ".idLabelTitle"
            text: qsTrId("maintenance_panel_Controller_commands")
            font.pixelSize: Style.titleFontSize
            font.bold: true
        }

        // The host's status channels: the link, in words.
        Repeater {
            id: idRepeaterChannels
            objectName: parent.objectName + ".idRepeaterChannels"
            model: be.statusChannelsModel
            delegate: Label {
                objectName: idRepeaterChannels.objectName + ".idLabelChannel"
                text: model.modelData.name + ": " + model.modelData.value
            }
        }

        RowLayout {
            id: idRowSetProgram
            objectName: parent.objectName + ".idRowSetProgram"
            spacing: idPanel.spacing

            UiGlyph {
                id: idGlyphSetProgram
                objectName: parent.objectName + ".idGlyphSetProgram"
                glyph: "icon-uploadsettings"
            }
            Label {
                id: idLabelSetProgram
                objectName: parent.objectName + ".idLabelSetProgram"
                text: qsTrId("maintenance_panel_Set_program")
                Layout.preferredWidth: Style.rowTitleWidth
            }
            TextField {
                id: idTextFieldProgram
                objectName: parent.objectName + ".idTextFieldProgram"
                placeholderText: "1"
                validator: IntValidator { bottom: 1 }
                Layout.fillWidth: true
            }
            Button {
                id: idButtonApply
                objectName: parent.objectName + ".idButtonApply"
                text: qsTrId("maintenance_panel_Apply")
                onClicked: {
                    idPanel.appliedProgram = idTextFieldProgram.text
                    be.setProgram(idTextFieldProgram.text)
                }
            }
        }

        RowLayout {
            id: idRowSetLock
            objectName: parent.objectName + ".idRowSetLock"
            spacing: idPanel.spacing

            Item {
                id: idSpacerSetLock
                objectName: parent.objectName + ".idSpacerSetLock"
                implicitWidth: idGlyphSetProgram.implicitWidth
            }
            Label {
                id: idLabelSetLock
                objectName: parent.objectName + ".idLabelSetLock"
                text: qsTrId("maintenance_panel_Set_lock")
                Layout.preferredWidth: Style.rowTitleWidth
            }
            Button {
                id: idButtonLock
                objectName: parent.objectName + ".idButtonLock"
                text: qsTrId("maintenance_panel_Lock")
                Layout.fillWidth: true
                onClicked: be.setLock(true)
            }
            Button {
                id: idButtonUnlock
                objectName: parent.objectName + ".idButtonUnlock"
                text: qsTrId("maintenance_panel_Unlock")
                Layout.fillWidth: true
                onClicked: be.setLock(false)
            }
        }

        Button {
            id: idButtonGetToolInfo
            objectName: parent.objectName + ".idButtonGetToolInfo"
            text: "Get Tool Info"
            enabled: !idPanel.toolInfoLoading
            onClicked: {
                idPanel.toolInfoLoading = true
                be.refreshToolInfo()
            }
        }

        ToolInfoRow {
            id: idRowToolInfoHeader
            objectName: parent.objectName + ".idRowToolInfoHeader"
            visible: toolInfoListModel.count > 0
            heading: true
            propertyText: "Property"
            valueText: "Value"
            Layout.fillWidth: true
        }

        ListView {
            id: idListViewToolInfo
            objectName: parent.objectName + ".idListViewToolInfo"
            model: toolInfoListModel
            visible: count > 0
            interactive: false
            implicitHeight: contentHeight
            Layout.fillWidth: true
            delegate: ToolInfoRow {
                id: idRowToolInfo
                objectName: idListViewToolInfo.objectName + ".idRowToolInfo"
                width: idListViewToolInfo.width
                color: index % 2 ? Style.alternateRowColor : Style.panelColor
                propertyText: model.property
                valueText: model.value
            }
        }

        BusyIndicator {
            id: idBusyToolInfo
            objectName: parent.objectName + ".idBusyToolInfo"
            running: idPanel.toolInfoLoading && toolInfoListModel.count === 0
            visible: running
            Layout.alignment: Qt.AlignHCenter
        }

        Label {
            id: idLabelStatus
            objectName: parent.objectName + ".idLabelStatus"
            text: idPanel.statusText
            visible: text !== ""
            color: idPanel.statusFailed ? Style.errorColor : Style.okColor
            wrapMode: Text.Wrap
            Layout.fillWidth: true
        }
    }
}
