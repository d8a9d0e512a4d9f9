#include "ExportFormatter.h"

#include "model/AppPreferences.h"
#include "model/Format.h"
#include "store/DayKeys.h"
#include "store/DayStore.h"
#include "store/LoadMetrics.h"
#include "store/StoredDaySummaries.h"

#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <cmath>

namespace {

const QString separator = QStringLiteral("  \u00b7  ");

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
    // A past day's summary is the one kept beside it by the history: nothing is decoded again.
    StoredDaySummaries stored(m_defaults);
    stored.beginPass(m_clock.now().toLocalTime().date());
    for (const DayRow& row : m_store.history().extendedHistory) {
        const QString day = DayKeys::dayText(row.date);
        const StoredDaySummary summary = row.isToday
                                             ? StoredDaySummary::of(m_store.sessions())
                                             : stored.summary(day).value_or(StoredDaySummary{});
        const std::optional<int> hour = summary.busiestHour();
        const double saturation = std::min(double(row.tokens) / divisor * 100.0, 100.0);
        // The total and saturation are the history's; the other columns are the day's as
        // stored now, so the two may differ for a day.
        lines.append(QStringList{
            day, QString::number(row.tokens), QString::number(summary.tokens(TokenType::ai)),
            QString::number(summary.tokens(TokenType::reasoning)),
            QString::number(summary.tokens(TokenType::output)),
            QString::number(summary.tokens(TokenType::input)), QString::number(summary.rawTokens),
            QString::number(summary.sessionCount), hour ? LoadMetrics::hourLabel(*hour) : QString(),
            summary.topApp ? csvField(*summary.topApp) : QString(),
            printfDouble("%.1f", saturation)}
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
    const StoredDaySummary today = StoredDaySummary::of(sessions);
    if (const std::optional<int> hour = today.busiestHour())
        highlights << QStringLiteral("**Peak hour:** ") + LoadMetrics::hourLabel(*hour);
    if (today.topApp)
        highlights << QStringLiteral("**Top app:** ") + *today.topApp;
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
