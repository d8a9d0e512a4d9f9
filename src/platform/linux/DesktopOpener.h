#pragma once

#include "platform/Opener.h"

// Opens with the desktop's handler for the file type or scheme (xdg-open, the portal).
class DesktopOpener final : public Opener {
public:
    bool open(const QUrl& url) override;
};
