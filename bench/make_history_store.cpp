// Fills a settings database with a history for the command-line benchmark:
//
//   build/bench/make_history_store PATH PAST_DAYS [SESSIONS_PER_DAY]
//
// Writes today (up to now, at most SESSIONS_PER_DAY sessions of a working day from 08:00)
// and PAST_DAYS whole days before it, each of SESSIONS_PER_DAY sessions, in one transaction
// per day as the app would.

#include "model/SessionCodec.h"
#include "store/DayKeys.h"
#include "store/SqliteDefaults.h"

#include <QCoreApplication>
#include <QDateTime>

#include <cstdio>
#include <cstdlib>

namespace {

// A working day: one session every 90 s from 08:00, across five applications and all types.
QList<ActivitySession> makeDay(const QDate& date, int count, const QDateTime& until) {
    static const char* const apps[] = {"com.microsoft.VSCode", "org.gnome.Terminal",
                                       "com.slack.Slack", "org.mozilla.firefox", "claude"};
    static const TokenType types[] = {TokenType::reasoning, TokenType::reasoning, TokenType::output,
                                      TokenType::input, TokenType::ai};
    QList<ActivitySession> day;
    const QDateTime start(date, QTime(8, 0));
    for (int i = 0; i < count; ++i) {
        const QDateTime begin = start.addSecs(qint64(i) * 90);
        if (begin.addSecs(60) > until)
            break;
        const Timestamp t = Timestamp::fromDateTime(begin);
        const int k = i % 5;
        day.append({QUuid::createUuid(), QString::fromLatin1(apps[k]),
                    QString::fromLatin1(apps[k]).section(u'.', -1), types[k], t, t.addSeconds(60),
                    8 + i % 40});
    }
    return day;
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    if (argc < 3) {
        std::fprintf(stderr, "usage: make_history_store PATH PAST_DAYS [SESSIONS_PER_DAY]\n");
        return 2;
    }
    const int pastDays = std::atoi(argv[2]);
    const int perDay = argc > 3 ? std::atoi(argv[3]) : 400;
    QString error;
    auto db = SqliteDefaults::open(QString::fromLocal8Bit(argv[1]), &error);
    if (!db) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    const QDateTime now = QDateTime::currentDateTime();
    // Today holds the same sessions whatever the history, so the stores differ only in it.
    const QDateTime todayEnd(now.date(), QTime(12, 0));
    for (int i = 0; i <= pastDays; ++i) {
        const QDate d = now.date().addDays(-i);
        const QDateTime until = i == 0 ? todayEnd : QDateTime(d.addDays(1), QTime(0, 0));
        if (!db->setData(DayKeys::sessions(DayKeys::dayText(d)),
                         SessionCodec::encodeDay(makeDay(d, perDay, until))))
            return 1;
    }
    return 0;
}
