#pragma once

#include "platform/IdleSource.h"
#include "platform/Workspace.h"

// A desktop that stands still: a code editor in front with a few applications open, and
// a user at the keyboard. Drives the real models in the snapshot mode.
class DemoWorkspace final : public Workspace, public IdleSource {
    Q_OBJECT
public:
    using Workspace::Workspace;
    std::optional<RunningApp> frontmostApplication() const override;
    QList<RunningApp> runningApplications() const override;
    double secondsSinceLastInput() const override { return 0; }
};
