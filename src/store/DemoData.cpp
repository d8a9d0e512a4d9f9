#include "DemoData.h"

#include "DayKeys.h"

#include "model/AppPreferences.h"
#include "model/SessionCodec.h"

#include <QRandomGenerator>

namespace {

struct DemoApp {
    const char* id;
    const char* name;
    TokenType type;
    int rate;
};

const DemoApp apps[] = {
    {"com.microsoft.VSCode", "Visual Studio Code", TokenType::reasoning, 8},
    {"com.apple.Terminal.GNOME", "Terminal", TokenType::reasoning, 8},
    {"com.tinyspeck.slackmacgap", "Slack", TokenType::output, 28},
    {"org.mozilla.firefox", "Firefox", TokenType::input, 15},
    {"com.anthropic.claudefordesktop", "Claude", TokenType::ai, 50},
    {"md.obsidian", "Obsidian", TokenType::output, 32},
    {"us.zoom.xos", "Zoom", TokenType::input, 22},
};

QUuid randomUuid(QRandomGenerator& random) {
    QByteArray bytes(16, '\0');
    random.fillRange(reinterpret_cast<quint32*>(bytes.data()), 4);
    bytes[6] = char((bytes[6] & 0x0f) | 0x40); // version 4
    bytes[8] = char((bytes[8] & 0x3f) | 0x80); // RFC 4122 variant
    return QUuid::fromRfc4122(bytes);
}

QList<ActivitySession> demoDay(const QDate& date, const QDateTime& until, double intensity,
                               QRandomGenerator& random) {
    QList<ActivitySession> day;
    QDateTime t(date, QTime(9, 0));
    while (t < until && t.time() < QTime(18, 30)) {
        const DemoApp& app = apps[random.bounded(int(std::size(apps)))];
        const int minutes = 2 + random.bounded(14);
        const Timestamp start = Timestamp::fromDateTime(t);
        const qint64 raw = qMax<qint64>(1, qint64(app.rate * minutes * intensity));
        day.append({randomUuid(random), QString::fromLatin1(app.id), QString::fromLatin1(app.name),
                    app.type, start, start.addSeconds(minutes * 60.0), raw});
        t = t.addSecs((minutes + random.bounded(6)) * 60);
    }
    return day;
}

} // namespace

void DemoData::fill(Defaults& defaults, const QDateTime& now) {
    QRandomGenerator random(20260530);
    const QDate today = now.date();
    for (int offset = 13; offset >= 0; --offset) {
        const QDate date = today.addDays(-offset);
        if (date.dayOfWeek() == 7)
            continue; // a day off leaves no row
        // A lighter week before this one, so the trend has something to say.
        const double intensity = (offset >= 7 ? 0.85 : 1.0) * (0.45 + random.bounded(0.5));
        const QDateTime until = offset == 0 ? now : QDateTime(date, QTime(23, 0));
        const QString key = DayKeys::dayText(QDateTime(date, QTime(12, 0)));
        defaults.setData(DayKeys::sessions(key),
                         SessionCodec::encodeDay(demoDay(date, until, intensity, random)));
    }
    defaults.setInteger(DayKeys::recovery(DayKeys::dayText(now)), 420);
    defaults.setBool(AppPreferences::hasLaunchedBefore, true);
    defaults.setBool(AppPreferences::proDailyGoalEnabled, true);
    defaults.setInteger(AppPreferences::proDailyGoal, 18000);
}
