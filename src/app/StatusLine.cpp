#include "StatusLine.h"

#include "StatusPresenter.h"
#include "platform/linux/StatusLabel.h"

#include "model/AppPreferences.h"
#include "model/Format.h"
#include "platform/Clock.h"
#include "store/DayStore.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace {

QString percent(double fraction) {
    return printfDouble("%.0f%%", fraction * 100.0);
}

} // namespace

StatusLine::Facts StatusLine::read(const DayStore& store, const Defaults& defaults,
                                   const Clock& clock) {
    Facts f;
    f.total = store.totalWeighted();
    f.baseline = AppPreferences::dailyBaseline(defaults);
    f.saturation = store.contextSaturation();
    f.temperature = store.temperature();
    f.lastHour = store.velocityLastHour();
    f.display = AppPreferences::menuBarDisplay(defaults);

    const ActivitySession* latest = nullptr;
    for (const ActivitySession& s : store.sessions())
        if (!latest || s.endTime > latest->endTime)
            latest = &s;
    if (latest) {
        const double age = Timestamp::fromDateTime(clock.now()) - latest->endTime;
        f.type = latest->tokenType;
        if (age >= 0 && age <= double(recentSeconds))
            f.rate = latest->rawTokens;
    }
    return f;
}

QString StatusLine::label(const Facts& facts) {
    const StatusPresenter::Title t =
        StatusPresenter::title(facts.total, facts.type, facts.rate, facts.display);
    return StatusLabel::text(t.text, t.symbol);
}

QString StatusLine::colourClass(double saturation) {
    switch (StatusPresenter::icon(saturation, MenuBarDisplay::iconAndCount)) {
    case StatusItem::Icon::red:
        return QStringLiteral("red");
    case StatusItem::Icon::orange:
        return QStringLiteral("orange");
    case StatusItem::Icon::normal:
    case StatusItem::Icon::none:
        break;
    }
    return QStringLiteral("normal");
}

QString StatusLine::tooltip(const Facts& facts) {
    return QStringLiteral("Mindmeter: %1 of %2 tokens today\n"
                          "Saturation %3\n"
                          "Temperature %4\n"
                          "Last hour %5")
        .arg(formatK(facts.total), formatK(facts.baseline), percent(facts.saturation),
             percent(facts.temperature), formatK(facts.lastHour));
}

QByteArray StatusLine::waybar(const Facts& facts) {
    const QJsonObject o{
        {QStringLiteral("text"), label(facts)},
        {QStringLiteral("tooltip"), tooltip(facts)},
        {QStringLiteral("class"), colourClass(facts.saturation)},
        {QStringLiteral("percentage"), qint64(std::lround(facts.saturation * 100.0))},
    };
    return QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
}
