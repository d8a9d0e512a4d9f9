#pragma once

#include "platform/Clock.h"
#include "platform/Defaults.h"

#include <QDate>
#include <QLocale>
#include <QString>

class DayStore;

// The two texts the export produces from the day store: the history as CSV, one row per day
// of the extended history, and today's Markdown summary. Reads the store's published values
// (call after its history has been published) and the stored days; writes nothing.
class ExportFormatter {
public:
    inline static const QString csvHeader =
        QStringLiteral("Date,Weighted Total,AI Collab,Reasoning,Output,Input,Raw Total,Sessions,"
                       "Peak Hour,Top App,Saturation %");

    ExportFormatter(const DayStore& store, const Defaults& defaults, const Clock& clock);

    // Header and rows joined by line feeds, no line feed after the last row.
    QString csv() const;
    // The summary's lines joined by line feeds, no line feed after the last.
    QString markdownSummary(const QLocale& locale = QLocale()) const;

    // "mindmeter-yyyy-MM-dd.csv" for today.
    QString suggestedFileName() const;

    // A field written bare, or quoted with its double quotes doubled when it holds a comma,
    // a double quote or a line feed.
    static QString csvField(const QString& text);
    // A date in the locale's medium style: "Nov 15, 2026" in American English.
    static QString mediumDate(const QDate& date, const QLocale& locale);

private:
    const DayStore& m_store;
    const Defaults& m_defaults;
    const Clock& m_clock;
};
