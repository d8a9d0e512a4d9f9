#include "DesktopEntry.h"

#include <QStringList>

std::optional<DesktopEntry> DesktopEntry::parse(const QString& id, const QByteArray& text,
                                                const QStringList& languages) {
    DesktopEntry entry;
    entry.id = id;
    bool inMainGroup = false;
    bool sawMainGroup = false;
    int bestRank = std::numeric_limits<int>::max(); // lower is better; Name without locale last
    for (const QByteArray& rawLine : text.split('\n')) {
        const QByteArray line = rawLine.trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        if (line.startsWith('[')) {
            inMainGroup = line == "[Desktop Entry]";
            sawMainGroup |= inMainGroup;
            continue;
        }
        if (!inMainGroup)
            continue;
        const qsizetype eq = line.indexOf('=');
        if (eq <= 0)
            continue;
        const QString key = QString::fromUtf8(line.left(eq)).trimmed();
        const QString value = QString::fromUtf8(line.mid(eq + 1)).trimmed();
        if (key == QLatin1String("Name")) {
            if (bestRank > languages.size()) {
                entry.name = value;
                bestRank = int(languages.size()) + 1;
            }
        } else if (key.startsWith(QLatin1String("Name[")) && key.endsWith(u']')) {
            const QString locale = key.mid(5, key.size() - 6);
            const int rank = int(languages.indexOf(locale));
            if (rank >= 0 && rank < bestRank) {
                entry.name = value;
                bestRank = rank;
            }
        } else if (key == QLatin1String("StartupWMClass")) {
            entry.startupWMClass = value;
        } else if (key == QLatin1String("Hidden")) {
            entry.hidden = value == QLatin1String("true");
        }
    }
    if (!sawMainGroup)
        return std::nullopt;
    return entry;
}

QStringList DesktopEntry::userLanguages() {
    QString locale;
    for (const char* var : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        locale = qEnvironmentVariable(var);
        if (!locale.isEmpty())
            break;
    }
    // lang_COUNTRY.ENCODING@MODIFIER: the encoding plays no part in the lookup.
    QString modifier;
    if (const qsizetype at = locale.indexOf(u'@'); at >= 0) {
        modifier = locale.mid(at + 1);
        locale.truncate(at);
    }
    if (const qsizetype dot = locale.indexOf(u'.'); dot >= 0)
        locale.truncate(dot);
    if (locale.isEmpty() || locale == QLatin1String("C") || locale == QLatin1String("POSIX"))
        return {};
    const QString lang = locale.section(u'_', 0, 0);
    const QString country = locale.contains(u'_') ? locale.section(u'_', 1) : QString();
    QStringList result;
    if (!country.isEmpty() && !modifier.isEmpty())
        result << lang + u'_' + country + u'@' + modifier;
    if (!country.isEmpty())
        result << lang + u'_' + country;
    if (!modifier.isEmpty())
        result << lang + u'@' + modifier;
    result << lang;
    return result;
}
