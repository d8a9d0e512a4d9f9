#include "AppAliases.h"

#include <QFile>
#include <QSet>

AppAliases AppAliases::fromTable(const QByteArray& table) {
    AppAliases aliases;
    for (const QByteArray& rawLine : table.split('\n')) {
        const QByteArray line = rawLine.trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const QList<QByteArray> columns = line.split('\t');
        if (columns.size() != 3 || columns[0].isEmpty())
            continue;
        const Alias alias{QString::fromUtf8(columns[0]), QString::fromUtf8(columns[1])};
        bool any = false;
        for (const QByteArray& name : columns[2].simplified().split(' ')) {
            if (name.isEmpty())
                continue;
            const QString key = QString::fromUtf8(name).toLower();
            if (aliases.m_byName.contains(key))
                aliases.m_shadowed.append(key); // the later row wins; a mistake in the table
            aliases.m_byName.insert(key, alias);
            any = true;
        }
        aliases.m_applications += any;
    }
    return aliases;
}

const AppAliases& AppAliases::builtIn() {
    static const AppAliases table = [] {
        QFile file(QStringLiteral(":/mindmeter/app-aliases.tsv"));
        if (!file.open(QIODevice::ReadOnly))
            qFatal("the built-in application table is missing");
        return fromTable(file.readAll());
    }();
    return table;
}

std::optional<AppAliases::Alias> AppAliases::find(const QString& linuxName) const {
    if (linuxName.isEmpty())
        return std::nullopt;
    const auto it = m_byName.constFind(linuxName.toLower());
    if (it == m_byName.constEnd())
        return std::nullopt;
    return *it;
}

QList<AppAliases::Alias> AppAliases::aliases() const {
    QList<Alias> result;
    QSet<QString> seen;
    for (const Alias& a : m_byName)
        if (!seen.contains(a.identifier)) {
            seen.insert(a.identifier);
            result.append(a);
        }
    return result;
}
