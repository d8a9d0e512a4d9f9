#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <optional>

// Maps the names Linux gives an application (desktop-entry ids, Flatpak and Snap ids,
// WM_CLASS values) onto the identifier it is tracked under. The table itself is data:
// app-aliases.tsv, built into the program.
class AppAliases {
public:
    struct Alias {
        QString identifier;
        QString name;
    };

    // Parses a table in the format of app-aliases.tsv; malformed lines are skipped.
    static AppAliases fromTable(const QByteArray& table);
    // The table built into the program.
    static const AppAliases& builtIn();

    // Case-insensitive lookup of one Linux name.
    std::optional<Alias> find(const QString& linuxName) const;

    qsizetype applicationCount() const { return m_applications; }
    // Names given in more than one row (lower-cased); only the last row counts for them.
    const QStringList& shadowedNames() const { return m_shadowed; }
    QList<Alias> aliases() const;

private:
    QHash<QString, Alias> m_byName;
    QStringList m_shadowed;
    qsizetype m_applications = 0;
};
