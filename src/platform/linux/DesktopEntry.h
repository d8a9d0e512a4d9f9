#pragma once

#include <QString>

#include <optional>

// The parts of a desktop entry file that identify an application.
struct DesktopEntry {
    QString id;             // file name below applications/, '/' as '-', without ".desktop"
    QString name;           // Name, localized for the user's language where the file has it
    QString startupWMClass; // StartupWMClass, empty when absent
    bool hidden = false;    // Hidden=true: the entry is deleted

    // Reads the [Desktop Entry] group of `text`; `languages` are locale names to try for the
    // localized Name, most specific first (e.g. "de_DE@euro", "de_DE", "de@euro", "de").
    static std::optional<DesktopEntry> parse(const QString& id, const QByteArray& text,
                                             const QStringList& languages);

    // The user's message languages in lookup order, from LC_ALL, LC_MESSAGES or LANG.
    static QStringList userLanguages();
};
