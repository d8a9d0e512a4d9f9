#pragma once

#include <QString>

// `mindmeter --snapshot DIR`: renders the popover, the whole dashboard, each card and the
// welcome page, in light and dark, from demo data held in memory, and writes them as PNG
// files into DIR. Needs no display. Returns the process's exit status.
namespace SnapshotMode {

int run(int argc, char* argv[], const QString& directory);

} // namespace SnapshotMode
