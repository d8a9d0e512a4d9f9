#include "DemoWorkspace.h"

std::optional<RunningApp> DemoWorkspace::frontmostApplication() const {
    return RunningApp{QStringLiteral("com.microsoft.VSCode"), QStringLiteral("Visual Studio Code"),
                      true, 1};
}

QList<RunningApp> DemoWorkspace::runningApplications() const {
    return {*frontmostApplication(),
            {QStringLiteral("com.tinyspeck.slackmacgap"), QStringLiteral("Slack"), true, 2},
            {QStringLiteral("org.mozilla.firefox"), QStringLiteral("Firefox"), true, 3}};
}
