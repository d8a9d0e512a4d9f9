#pragma once

// `mindmeter` with no arguments: the tray application, until it is quit or stopped by a
// signal. Returns the process's exit status.
namespace TrayApplication {

int run(int argc, char* argv[]);

} // namespace TrayApplication
