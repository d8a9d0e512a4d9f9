#pragma once

// The fixed palette the model speaks in; views map each name onto a real colour.
enum class NamedColor { purple, blue, green, orange, red, yellow, cyan, gray };
