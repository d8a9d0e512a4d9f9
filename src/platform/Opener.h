#pragma once

#include <QUrl>

// Opens a file or address with the desktop's handler for it.
class Opener {
public:
    virtual ~Opener() = default;

    // False when no handler could be started.
    virtual bool open(const QUrl& url) = 0;
};
