#include "CommandLine.h"
#include "DefaultsValue.h"

#include "StatusLine.h"

#include "model/AppPreferences.h"
#include "model/AppVersion.h"
#include "model/Format.h"
#include "platform/Clock.h"
#include "store/DayKeys.h"
#include "store/DayStore.h"
#include "store/HistoryRows.h"
#include "store/SqliteDefaults.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

QString printableValue(const QVariant& v) {
    if (v.typeId() == QMetaType::QByteArray)
        return QStringLiteral("{length = %1}").arg(v.toByteArray().size());
    if (v.typeId() == QMetaType::QString)
        return QStringLiteral("\"%1\"").arg(v.toString());
    return Defaults::toString(v).value_or(QString());
}

// The history's fields as the views read them (HistoryRows), written as JSON.
QJsonValue jsonOf(const QVariant& value) {
    return QJsonValue::fromVariant(value);
}

QString percent(double fraction) {
    return printfDouble("%.0f%%", fraction * 100.0);
}

// Why today's stored record cannot be shown; empty when it can.
QString damage(const DayStore& day, const Defaults& store) {
    const QString key = DayKeys::sessions(DayKeys::dayText(day.day()));
    switch (day.storedDay()) {
    case DayStore::StoredDay::Readable:
        return {};
    case DayStore::StoredDay::Unreadable:
        return QStringLiteral("today's sessions (%1) in %2 cannot be read: %3")
            .arg(key, store.path(), store.lastError());
    case DayStore::StoredDay::Undecodable:
        break;
    }
    return QStringLiteral("today's sessions (%1) in %2 are damaged and do not read as a day; "
                          "the app keeps them aside before it records over them")
        .arg(key, store.path());
}

// Why a key reads as absent: it is not there, or the store could not be read.
QString absence(const Defaults& store, const QString& key, bool readable) {
    return readable ? QStringLiteral("no value for %1").arg(key)
                    : QStringLiteral("cannot read %1: %2").arg(key, store.lastError());
}

} // namespace

CommandLine::CommandLine(const Clock& clock, StoreOpener openStore, FILE* out, FILE* err, FILE* in)
    : m_clock(clock)
    , m_openStore(std::move(openStore))
    , m_out(out)
    , m_err(err)
    , m_in(in) {}

std::unique_ptr<Defaults> CommandLine::openUserStore(QString* error) {
    return SqliteDefaults::open(SqliteDefaults::defaultPath(), error);
}

QString CommandLine::usage() {
    return QStringLiteral(
        "Usage: mindmeter [VERB [ARGS...]]\n"
        "\n"
        "Without a verb, mindmeter starts the tray app. Verbs (details in mindmeter(1)):\n"
        "  status [--json | --format F]  today's load; F is text, json, plain or waybar\n"
        "  history [--json] [--days N]   the day-by-day history, newest first (N <= 90)\n"
        "  export --csv PATH             the history as CSV (PATH - for standard output)\n"
        "  summary                       today's summary as Markdown\n"
        "  update --check [--json]       ask the vendor's site for the latest version\n"
        "  defaults read [KEY]           print one setting, or all of them\n"
        "  defaults write KEY -T VALUE   store; -T: -int -float -bool -string -data-file\n"
        "  defaults delete KEY           remove a setting\n"
        "  track [--tick-ms N]           record sessions without the tray until stopped\n"
        "  categories                    the categories, recent applications and your rules\n"
        "  categories set [--site] ID C  count application id prefix ID (or a domain) as C\n"
        "  categories set ... ID T N     or as token type T earning N (1 to 1000) a minute\n"
        "  categories remove [--site] ID remove your rule: the built-in category applies\n"
        "  help, --help                  this text\n"
        "  --version                     the version\n"
        "  --snapshot DIR                render the dashboard from demo data into DIR\n"
        "\n"
        "Data lives in $XDG_DATA_HOME/mindmeter/mindmeter.sqlite3.\n");
}

void CommandLine::print(const QString& text) {
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), m_out);
}

void CommandLine::printBytes(const QByteArray& bytes) {
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), m_out);
}

int CommandLine::usageError(const QString& message) {
    std::fprintf(m_err, "mindmeter: %s\nTry 'mindmeter help' for usage.\n",
                 message.toUtf8().constData());
    return 2;
}

int CommandLine::failure(const QString& message) {
    std::fprintf(m_err, "mindmeter: %s\n", message.toUtf8().constData());
    return 1;
}

void CommandLine::say(const QString& line) {
    std::fprintf(m_err, "mindmeter: %s\n", qUtf8Printable(line));
    std::fflush(m_err);
}

int CommandLine::withStore(const std::function<int(Defaults&)>& verb) {
    QString error;
    const std::unique_ptr<Defaults> store = m_openStore(&error);
    if (!store)
        return failure(error);
    return verb(*store);
}

int CommandLine::withToday(const std::function<int(Defaults&, DayStore&)>& verb) {
    return withStore([&](Defaults& store) {
        DayStore day(store, m_clock);
        if (const QString why = damage(day, store); !why.isEmpty())
            return failure(why);
        return verb(store, day);
    });
}

int CommandLine::run(const QStringList& args) {
    if (args.isEmpty())
        return usageError(QStringLiteral("no verb given"));
    const QString verb = args.first();
    const QStringList rest = args.mid(1);
    if (verb == QLatin1String("help") || verb == QLatin1String("--help") ||
        verb == QLatin1String("-h")) {
        print(usage());
        return 0;
    }
    if (verb == QLatin1String("--version")) {
        print(QString::fromUtf8(AppVersion::displayString) + u'\n');
        return 0;
    }
    if (verb == QLatin1String("defaults"))
        return defaults(rest);
    if (verb == QLatin1String("status"))
        return status(rest);
    if (verb == QLatin1String("history"))
        return history(rest);
    if (verb == QLatin1String("export"))
        return exportHistory(rest);
    if (verb == QLatin1String("summary"))
        return summary(rest);
    if (verb == QLatin1String("update"))
        return update(rest);
    if (verb == QLatin1String("track"))
        return track(rest);
    if (verb == QLatin1String("categories"))
        return categories(rest);
    // Handled before the command line starts when it is the whole command.
    if (verb == QLatin1String("--snapshot"))
        return usageError(QStringLiteral("--snapshot takes one argument, DIR"));
    return usageError(QStringLiteral("unknown verb '%1'").arg(verb));
}

// --- defaults ----------------------------------------------------------------------------

int CommandLine::defaults(const QStringList& args) {
    if (args.isEmpty())
        return usageError(QStringLiteral("defaults needs read, write or delete"));
    const QString action = args.first();
    const int expected = action == QLatin1String("write")    ? 4
                         : action == QLatin1String("delete") ? 2
                         : action == QLatin1String("read")   ? -1
                                                             : 0;
    if (expected == 0)
        return usageError(QStringLiteral("unknown defaults action '%1'").arg(action));
    if (action == QLatin1String("read") && args.size() > 2)
        return usageError(QStringLiteral("defaults read takes at most one key"));
    if (expected > 0 && args.size() != expected)
        return usageError(action == QLatin1String("write")
                              ? QStringLiteral("defaults write needs KEY TYPE VALUE")
                              : QStringLiteral("defaults delete needs KEY"));
    if (args.size() > 1 && args[1].isEmpty())
        return usageError(QStringLiteral("the key is empty"));

    // Check the value before opening the store, so a bad command line writes nothing.
    QVariant newValue;
    if (action == QLatin1String("write")) {
        QString error;
        newValue = DefaultsValue::parse(args[2], args[3], m_in, &error);
        if (!newValue.isValid())
            return usageError(error);
        const QString reason = DefaultsValue::rejectReason(args[1], newValue);
        if (!reason.isEmpty())
            return usageError(reason);
    }

    return withStore([&](Defaults& store) {
        const QString key = args.value(1);
        if (action == QLatin1String("write")) {
            if (!store.setValue(key, newValue))
                return failure(QStringLiteral("cannot write %1: %2").arg(key, store.lastError()));
            return 0;
        }
        if (action == QLatin1String("delete")) {
            bool ok = false;
            if (!store.value(key, &ok).isValid())
                return failure(absence(store, key, ok));
            if (!store.remove(key))
                return failure(QStringLiteral("cannot delete %1: %2").arg(key, store.lastError()));
            return 0;
        }
        return readDefaults(store, key);
    });
}

// One value as its type prints it, or, without a key, every value.
int CommandLine::readDefaults(Defaults& store, const QString& key) {
    if (!key.isEmpty()) {
        bool ok = false;
        const QVariant v = store.value(key, &ok);
        if (!v.isValid())
            return failure(absence(store, key, ok));
        if (v.typeId() == QMetaType::QByteArray) {
            // Data is written out as it is stored, so a day can be piped into a JSON tool.
            printBytes(v.toByteArray());
            if (!v.toByteArray().endsWith('\n'))
                print(QStringLiteral("\n"));
        } else {
            print(Defaults::toString(v).value_or(QString()) + u'\n');
        }
        return 0;
    }
    QString listing = QStringLiteral("{\n");
    for (const QString& key : store.keys())
        listing += QStringLiteral("    \"%1\" = %2;\n").arg(key, printableValue(store.value(key)));
    listing += QStringLiteral("}\n");
    print(listing);
    return 0;
}

// --- status and history ------------------------------------------------------------------

int CommandLine::status(const QStringList& args) {
    static const QStringList formats = {QStringLiteral("text"), QStringLiteral("json"),
                                        QStringLiteral("plain"), QStringLiteral("waybar")};
    QString format;
    for (qsizetype i = 0; i < args.size(); ++i) {
        QString chosen;
        if (args[i] == QLatin1String("--json")) {
            chosen = QStringLiteral("json");
        } else if (args[i] == QLatin1String("--format")) {
            if (i + 1 >= args.size() || !formats.contains(args[i + 1]))
                return usageError(
                    QStringLiteral("--format takes %1").arg(formats.join(QStringLiteral(", "))));
            chosen = args[++i];
        } else {
            return usageError(QStringLiteral("status does not take '%1'").arg(args[i]));
        }
        if (!format.isEmpty() && format != chosen)
            return usageError(QStringLiteral("status takes one output format"));
        format = chosen;
    }
    return withToday([&](Defaults& store, DayStore& day) {
        if (format == QLatin1String("plain") || format == QLatin1String("waybar")) {
            const StatusLine::Facts facts = StatusLine::read(day, store, m_clock);
            if (format == QLatin1String("plain"))
                print(StatusLine::label(facts) + u'\n');
            else
                printBytes(StatusLine::waybar(facts));
            return 0;
        }
        day.waitForHistory();
        return format == QLatin1String("json") ? printStatusJson(day) : printStatusText(store, day);
    });
}

int CommandLine::printStatusJson(DayStore& day) {
    const HistoryResult& h = day.history();
    const QJsonObject o{
        {QStringLiteral("day"), DayKeys::dayText(m_clock.now())},
        {QStringLiteral("totalWeighted"), day.totalWeighted()},
        {QStringLiteral("tokensByType"), jsonOf(HistoryRows::tokensByType(day.tokensByType()))},
        {QStringLiteral("contextSaturation"), day.contextSaturation()},
        {QStringLiteral("temperature"), day.temperature()},
        {QStringLiteral("sessionCount"), qint64(day.sessions().size())},
        {QStringLiteral("recoveredTokens"), day.recoveredTokens()},
        {QStringLiteral("velocityLastHour"), day.velocityLastHour()},
        {QStringLiteral("hourlyBuckets"), jsonOf(HistoryRows::hours(day.hourlyBuckets(8)))},
        {QStringLiteral("peakHour"), jsonOf(HistoryRows::peakHour(h.peakHourData))},
        {QStringLiteral("peakDayOfWeek"), jsonOf(HistoryRows::peakDay(h.peakDayOfWeek))},
        {QStringLiteral("weekOverWeek"), jsonOf(HistoryRows::weekOverWeek(h.weekOverWeekData))},
    };
    printBytes(QJsonDocument(o).toJson(QJsonDocument::Indented));
    return 0;
}

int CommandLine::printStatusText(Defaults& store, DayStore& day) {
    const HistoryResult& h = day.history();
    const QString dayText = DayKeys::dayText(m_clock.now());
    const qint64 baseline = AppPreferences::dailyBaseline(store);
    QString text = QStringLiteral("Today %1: %2 of %3 tokens (%4)\n")
                       .arg(dayText, formatK(day.totalWeighted()), formatK(baseline),
                            percent(day.contextSaturation()));
    QStringList parts;
    for (TokenType t : TokenTypes::allCases)
        if (day.tokensByType().contains(t))
            parts << QStringLiteral("%1 %2").arg(TokenTypes::label(t),
                                                 formatK(day.tokensByType().value(t)));
    if (!parts.isEmpty())
        text += QStringLiteral("  %1\n").arg(parts.join(QStringLiteral(" · ")));
    text += QStringLiteral("  Temperature %1 · %2 sessions · %3 recovered · %4 in the last hour\n")
                .arg(percent(day.temperature()))
                .arg(day.sessions().size())
                .arg(formatK(day.recoveredTokens()), formatK(day.velocityLastHour()));
    if (h.peakHourData)
        text += QStringLiteral("  Peak hour %1").arg(h.peakHourData->label);
    if (h.peakDayOfWeek)
        text += QStringLiteral("%1Peak day %2")
                    .arg(h.peakHourData ? QStringLiteral(" · ") : QStringLiteral("  "),
                         *h.peakDayOfWeek);
    if (h.peakHourData || h.peakDayOfWeek)
        text += u'\n';
    if (h.weekOverWeekData)
        text +=
            QStringLiteral("  This week %1 · last week %2 (%3%4)\n")
                .arg(formatK(h.weekOverWeekData->thisWeek), formatK(h.weekOverWeekData->lastWeek),
                     h.weekOverWeekData->change >= 0 ? QStringLiteral("+") : QString(),
                     percent(h.weekOverWeekData->change));
    print(text);
    return 0;
}

int CommandLine::history(const QStringList& args) {
    bool json = false;
    int days = HistoryCalculator::historyDays;
    for (qsizetype i = 0; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--json")) {
            json = true;
        } else if (args[i] == QLatin1String("--days")) {
            if (i + 1 >= args.size())
                return usageError(QStringLiteral("--days needs a number"));
            bool ok = false;
            days = args[++i].toInt(&ok);
            if (!ok || days < 1 || days > HistoryCalculator::historyDays)
                return usageError(QStringLiteral("--days takes a number from 1 to %1")
                                      .arg(HistoryCalculator::historyDays));
        } else {
            return usageError(QStringLiteral("history does not take '%1'").arg(args[i]));
        }
    }
    return withToday([&](Defaults&, DayStore& day) {
        day.waitForHistory();
        const HistoryResult& h = day.history();
        const QDate oldest = m_clock.now().toLocalTime().date().addDays(-(days - 1));
        QList<DayRow> rows;
        for (const DayRow& r : h.extendedHistory)
            if (r.date.toLocalTime().date() >= oldest)
                rows.append(r);

        if (json) {
            const QJsonObject o{
                {QStringLiteral("days"), jsonOf(HistoryRows::days(rows))},
                {QStringLiteral("weekOverWeek"),
                 jsonOf(HistoryRows::weekOverWeek(h.weekOverWeekData))},
                {QStringLiteral("peakHour"), jsonOf(HistoryRows::peakHour(h.peakHourData))},
                {QStringLiteral("peakDayOfWeek"), jsonOf(HistoryRows::peakDay(h.peakDayOfWeek))}};
            printBytes(QJsonDocument(o).toJson(QJsonDocument::Indented));
            return 0;
        }
        QString text;
        for (const DayRow& r : rows)
            text += QStringLiteral("%1  %2  %3\n")
                        .arg(DayKeys::dayText(r.date), r.label.leftJustified(6), formatK(r.tokens));
        print(text);
        return 0;
    });
}
