#pragma once

#include "platform/IdleSource.h"
#include "platform/Workspace.h"

// A workspace whose front and open applications the test sets; activate() signals the
// change as a desktop would.
class FakeWorkspace final : public Workspace {
public:
    std::optional<RunningApp> frontmostApplication() const override { return front; }
    QList<RunningApp> runningApplications() const override { return running; }

    void activate(const RunningApp& app) {
        front = app;
        emit applicationActivated(app);
    }
    void clearFront() {
        front.reset();
        emit nothingInFront();
    }

    std::optional<RunningApp> front;
    QList<RunningApp> running;
};

class FakeIdleSource final : public IdleSource {
public:
    double secondsSinceLastInput() const override { return seconds; }
    double seconds = 0;
};

inline RunningApp app(const QString& id, const QString& name = QStringLiteral("App")) {
    return RunningApp{id, name, true, 1};
}
