import QtQuick 2.15

// An icon by its glyph name ("icon-uploadsettings", ...); an unknown name shows "?".
Text {
    id: idGlyph

    property string glyph: ""
    readonly property var glyphs: ({
        "icon-uploadsettings": "\u21ea",
        "icon-settings": "\u2699",
        "icon-connected": "\u25cf",
        "icon-disconnected": "\u25cb",
        "icon-info": "\u2139"
    })

    text: glyphs[glyph] !== undefined ? glyphs[glyph] : "?"
    color: Style.accentColor
    font.pixelSize: Style.glyphSize
    horizontalAlignment: Text.AlignHCenter
    verticalAlignment: Text.AlignVCenter
    width: Style.glyphSize
    height: Style.glyphSize
}
