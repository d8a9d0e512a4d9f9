#include "ExportFormatter.h"

#include "model/AppPreferences.h"
#include "model/CheckedMath.h"
#include "model/Format.h"
#include "model/SessionCodec.h"
#include "store/DayKeys.h"
#include "store/DayStore.h"
#include "store/LoadMetrics.h"

#include <QHash>
#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <cmath>

namespace {

const QString separator = QStringLiteral("  \u00b7  ");

// Weighted tokens per local start hour; the busiest hour, the earliest among equals.
std::optional<int> peakHour(const QList<ActivitySession>& sessions) {
    if (sessions.isEmpty())
        return std::nullopt;
    std::array<qint64, 24> byHour{};
    for (const ActivitySession& s : sessions) {
        const int h = LoadMetrics::localHour(s.startTime);
        byHour[size_t(h)] = checkedAdd(byHour[size_t(h)], s.weightedTokens());
    }
    return int(std::max_element(byHour.begin(), byHour.end()) - byHour.begin());
}

// The application with the most weighted tokens; among equals, the first one met.
std::optional<QString> topApp(const QList<ActivitySession>& sessions) {
    if (sessions.isEmpty())
        return std::nullopt;
    QHash<QString, qint64> byApp;
    QStringList order;
    for (const ActivitySession& s : sessions) {
        if (!byApp.contains(s.appName))
            order.append(s.appName);
        byApp[s.appName] = checkedAdd(byApp.value(s.appName), s.weightedTokens());
    }
    QString best = order.first();
    for (const QString& name : std::as_const(order))
        if (byApp.value(name) > byApp.value(best))
            best = name;
    return best;
}

} // namespace

ExportFormatter::ExportFormatter(const DayStore& store, const Defaults& defaults,
                                 const Clock& clock)
    : m_store(store)
    , m_defaults(defaults)
    , m_clock(clock) {}

QString ExportFormatter::suggestedFileName() const {
    return QStringLiteral("mindmeter-%1.csv").arg(DayKeys::dayText(m_clock.now()));
}

QString ExportFormatter::csvField(const QString& text) {
    if (!text.contains(u',') && !text.contains(u'"') && !text.contains(u'\n'))
        return text;
    QString quoted = text;
    quoted.replace(QStringLiteral("\""), QStringLiteral("\"\""));
    return u'"' + quoted + u'"';
}

QString ExportFormatter::csv() const {
    const double divisor = double(std::max<qint64>(AppPreferences::dailyBaseline(m_defaults), 1));
    QStringList lines{csvHeader};
    for (const DayRow& row : m_store.history().extendedHistory) {
        const QString day = DayKeys::dayText(row.date);
        // Today's sessions are the store's; a past day's are read back from storage.
        QList<ActivitySession> sessions;
        if (row.isToday) {
            sessions = m_store.sessions();
        } else if (const auto bytes = m_defaults.data(DayKeys::sessions(day))) {
            sessions = SessionCodec::decodeDay(*bytes).value_or(QList<ActivitySession>{});
        }
        QMap<TokenType, qint64> byType;
        qint64 raw = 0;
        for (const ActivitySession& s : std::as_const(sessions)) {
            byType[s.tokenType] = checkedAdd(byType.value(s.tokenType), s.weightedTokens());
            raw = checkedAdd(raw, s.rawTokens);
        }
        const std::optional<int> hour = peakHour(sessions);
        const std::optional<QString> app = topApp(sessions);
        const double saturation = std::min(double(row.tokens) / divisor * 100.0, 100.0);
        // The total and saturation are the history's; the other columns are recomputed from
        // the sessions, so the two may differ for a day.
        lines.append(QStringList{
            day, QString::number(row.tokens), QString::number(byType.value(TokenType::ai)),
            QString::number(byType.value(TokenType::reasoning)),
            QString::number(byType.value(TokenType::output)),
            QString::number(byType.value(TokenType::input)), QString::number(raw),
            QString::number(sessions.size()), hour ? LoadMetrics::hourLabel(*hour) : QString(),
            app ? csvField(*app) : QString(), printfDouble("%.1f", saturation)}
                         .join(u','));
    }
    return lines.join(u'\n');
}

QString ExportFormatter::mediumDate(const QDate& date, const QLocale& locale) {
    // Qt has no medium style: take the long date, drop the weekday and shorten the month.
    QString format = locale.dateFormat(QLocale::LongFormat);
    static const QRegularExpression weekday(QStringLiteral("[,\\s]*dddd[,.\\s]*"));
    format.remove(weekday);
    format.replace(QStringLiteral("MMMM"), QStringLiteral("MMM"));
    return locale.toString(date, format.trimmed());
}

QString ExportFormatter::markdownSummary(const QLocale& locale) const {
    const QList<ActivitySession>& sessions = m_store.sessions();
    const qint64 total = m_store.totalWeighted();
    const HistoryResult& history = m_store.history();

    QStringList lines;
    lines << QStringLiteral("## Mindmeter \u2014 ") +
                 mediumDate(m_clock.now().toLocalTime().date(), locale)
          << QString()
          << QStringLiteral("**Total:** %1%2**Saturation:** %3%%2**Temperature:** %4%%2"
                            "**Sessions:** %5")
                 .arg(formatK(total), separator,
                      printfDouble("%.0f", m_store.contextSaturation() * 100.0),
                      printfDouble("%.0f", m_store.temperature() * 100.0))
                 .arg(sessions.size())
          << QString() << QStringLiteral("| Type | Tokens | Share |")
          << QStringLiteral("|------|--------|-------|");
    for (TokenType type :
         {TokenType::ai, TokenType::reasoning, TokenType::output, TokenType::input}) {
        const qint64 tokens = m_store.tokensByType().value(type, 0);
        if (tokens <= 0)
            continue;
        // Truncated as a double: a gross type total far above a small net total need not fit.
        const double share = total < 1 ? 0.0 : std::trunc(double(tokens) / double(total) * 100.0);
        lines << QStringLiteral("| %1 | %2 | %3% |")
                     .arg(TokenTypes::label(type), formatK(tokens), printfDouble("%.0f", share));
    }

    QStringList highlights;
    if (const std::optional<int> hour = peakHour(sessions))
        highlights << QStringLiteral("**Peak hour:** ") + LoadMetrics::hourLabel(*hour);
    if (const std::optional<QString> app = topApp(sessions))
        highlights << QStringLiteral("**Top app:** ") + *app;
    if (history.cachedVelocity >= 1)
        highlights << QStringLiteral("**Last hour:** ") + formatK(history.cachedVelocity);
    if (!highlights.isEmpty())
        lines << QString() << highlights.join(separator);

    if (const std::optional<WeekOverWeek>& w = history.weekOverWeekData) {
        const bool up = w->change >= 0;
        lines << QString()
              << QStringLiteral("**Week-over-week:** %1%2%3%  (%4 this week vs %5 last week)")
                     .arg(up ? QStringLiteral("\u2191") : QStringLiteral("\u2193"),
                          up ? QStringLiteral("+") : QString(),
                          printfDouble("%.0f", w->change * 100.0), formatK(w->thisWeek),
                          formatK(w->lastWeek));
    }
    return lines.join(u'\n');
}
