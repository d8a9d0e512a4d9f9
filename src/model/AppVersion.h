#pragma once

// The version shown in the interface and compared by the update check.
namespace AppVersion {

inline constexpr char number[] = "1.4.5";
inline constexpr char date[] = "2026-05-30";
// Held whole rather than formatted; change it together with the two above.
inline constexpr char displayString[] = "v1.4.5 \u00b7 2026-05-30";

} // namespace AppVersion
