#pragma once

#include "StandardInstance.h"

#include <QUrl>

// Opens a file or address with the desktop's handler for it.
class Opener {
public:
    virtual ~Opener() = default;

    // False when no handler could be started.
    virtual bool open(const QUrl& url) = 0;

    static Opener& standard() { return StandardInstance<Opener>::get("Opener::standard()"); }
    static void setStandard(Opener* opener) { StandardInstance<Opener>::set(opener); }
};
