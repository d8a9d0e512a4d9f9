#pragma once

#include <QString>

#include <optional>

// What a save dialog is asked for: its title, the file name it proposes, and the kind of file
// it saves (a name such as "Comma-separated values" and the suffix without the dot).
struct SaveRequest {
    QString title;
    QString suggestedName;
    QString fileTypeName;
    QString suffix;
};

// Asks the user where to save a file. Runs modally on the main thread.
class FileChooser {
public:
    virtual ~FileChooser() = default;

    // The chosen path, or none when the user cancels.
    virtual std::optional<QString> chooseSaveLocation(const SaveRequest& request) = 0;
};
