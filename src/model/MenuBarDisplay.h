#pragma once

#include <QString>
#include <QStringView>

#include <array>
#include <optional>

// How the status item presents itself.
enum class MenuBarDisplay { iconAndCount, iconOnly, countOnly };

namespace MenuBarDisplays {

inline constexpr std::array<MenuBarDisplay, 3> allCases{
    MenuBarDisplay::iconAndCount, MenuBarDisplay::iconOnly, MenuBarDisplay::countOnly};

QString rawValue(MenuBarDisplay display);
// Exact, case-sensitive match; anything else gives no value.
std::optional<MenuBarDisplay> fromRawValue(QStringView raw);

} // namespace MenuBarDisplays
