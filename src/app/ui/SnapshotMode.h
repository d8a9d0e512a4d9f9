#pragma once

#include "app/DashboardWindows.h"

#include <QString>

// `mindmeter --snapshot DIR`: renders the popover, the whole dashboard, each card and the
// welcome page, in light and dark, from demo data held in memory, and writes them as PNG
// files into DIR. Needs no display. Returns the process's exit status. The demo data and
// the objects over it come from makeModels.
namespace SnapshotMode {

int run(int argc, char* argv[], const QString& directory, MakeSnapshotModels makeModels);

} // namespace SnapshotMode
