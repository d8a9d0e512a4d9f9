import QtQuick
import Mindmeter
import QtQuick.Layouts

// The small caption at the top of a card.
RowLayout {
    property string title
    property string icon: ""
    spacing: 4
    Symbol {
        visible: icon.length > 0
        name: icon
        size: 10
        color: Theme.secondary
    }
    TextLabel {
        text: title
        size: 10
        secondary: true
        font.weight: Font.DemiBold
        font.letterSpacing: 0.4
    }
}
