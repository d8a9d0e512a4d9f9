#include "MenuBarDisplay.h"

namespace MenuBarDisplays {

QString rawValue(MenuBarDisplay display) {
    switch (display) {
    case MenuBarDisplay::iconAndCount:
        return QStringLiteral("iconAndCount");
    case MenuBarDisplay::iconOnly:
        return QStringLiteral("iconOnly");
    case MenuBarDisplay::countOnly:
        return QStringLiteral("countOnly");
    }
    Q_UNREACHABLE();
}

std::optional<MenuBarDisplay> fromRawValue(QStringView raw) {
    for (MenuBarDisplay d : allCases)
        if (raw == rawValue(d))
            return d;
    return std::nullopt;
}

} // namespace MenuBarDisplays
