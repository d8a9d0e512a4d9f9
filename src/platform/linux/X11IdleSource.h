#pragma once

#include "platform/IdleSource.h"

#include <QString>

#include <memory>

struct xcb_connection_t;

// Seconds since the last keyboard or mouse input, from the X server's MIT-SCREEN-SAVER
// extension, which counts any input device.
class X11IdleSource final : public IdleSource {
public:
    ~X11IdleSource() override;

    // Null, with the reason in *error, when there is no display or no such extension.
    static std::unique_ptr<X11IdleSource> open(QString* error);

    double secondsSinceLastInput() const override;

private:
    X11IdleSource(xcb_connection_t* connection, quint32 root);

    xcb_connection_t* m_connection;
    quint32 m_root;
};
