#pragma once

#include "platform/FileChooser.h"

// A modal Qt save dialog. It opens in the given folder (the home folder when empty), asks
// before replacing a file and adds the suffix when the name has none. It belongs to the
// window that asked (the dashboard), so window managers keep it above that window.
class DialogFileChooser final : public FileChooser {
public:
    explicit DialogFileChooser(QString startFolder = {});

    std::optional<QString> chooseSaveLocation(const SaveRequest& request) override;

private:
    QString m_startFolder;
};
