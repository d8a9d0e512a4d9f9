#pragma once

#include "DashboardWindows.h"

#include <memory>

// The snapshot mode's composition root: demo data in an in-memory store at a fixed time,
// with the real store, monitor and working-mode engine over it and stand-ins for the
// services. Made by the executable, which holds the core, once the UI library has made the
// application; the library only renders what it is handed.
class SnapshotWorld final : public SnapshotModels {
public:
    SnapshotWorld();
    ~SnapshotWorld() override;

    QVariantMap popoverModels() const override;
    QObject* categories() const override;

    // For the UI library: made and deleted on this side of the library boundary.
    static SnapshotModels* make();

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};
