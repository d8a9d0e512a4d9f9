#include "DayStore.h"

#include "DayKeys.h"
#include "LoadMetrics.h"

#include "model/AppPreferences.h"
#include "model/CheckedMath.h"
#include "model/SessionCodec.h"

#include <QCoreApplication>
#include <QSet>

#include <algorithm>

namespace {

QVariantMap dayRowMap(const DayRow& r) {
    return {{QStringLiteral("date"), r.date},
            {QStringLiteral("label"), r.label},
            {QStringLiteral("tokens"), r.tokens},
            {QStringLiteral("isToday"), r.isToday}};
}

QVariantList dayRowList(const QList<DayRow>& rows) {
    QVariantList list;
    list.reserve(rows.size());
    for (const DayRow& r : rows)
        list.append(dayRowMap(r));
    return list;
}

} // namespace

DayStore::DayStore(Defaults& defaults, const Clock& clock, Options options, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_clock(clock)
    , m_calculator(std::make_shared<HistoryCalculator>(defaults)) {
    m_day = currentDate();
    m_midnightTimer.setSingleShot(true);
    // A coarse timer may fire minutes late over a day-long interval.
    m_midnightTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_midnightTimer, &QTimer::timeout, this, &DayStore::midnightTick);
    m_historyDebounce.setSingleShot(true);
    m_historyDebounce.setInterval(options.historyDebounceMs);
    connect(&m_historyDebounce, &QTimer::timeout, this,
            [this] { startHistoryComputation(std::move(m_pendingSnapshot)); });
    // One worker: overlapping computations would only race to publish.
    m_historyPool.setMaxThreadCount(1);

    loadToday();
    refreshHistoryNow();
    scheduleMidnightReset();
}

DayStore::~DayStore() {
    m_historyPool.waitForDone();
}

DayStore& DayStore::shared() {
    static DayStore* store = new DayStore(Defaults::standard(), Clock::system());
    return *store;
}

QDate DayStore::currentDate() const {
    return m_clock.now().toLocalTime().date();
}

QString DayStore::dayText() const {
    return DayKeys::dayText(m_day);
}

// --- Recording ---------------------------------------------------------------------------

void DayStore::addSession(const ActivitySession& session) {
    addSessions({session});
}

void DayStore::addSessions(const QList<ActivitySession>& sessions) {
    if (sessions.isEmpty())
        return;
    QMetaObject::invokeMethod(
        this, [this, sessions] { record(sessions); }, Qt::QueuedConnection);
}

void DayStore::record(const QList<ActivitySession>& sessions) {
    // Past midnight with the timer not yet run (after a sleep, say): the new day begins
    // before anything is added to the old one.
    startNewDayIfNeeded();
    for (const ActivitySession& s : sessions) {
        const qint64 w = s.weightedTokens();
        m_sessions.append(s);
        m_grossTokens = checkedAdd(m_grossTokens, w);
        m_tokensByType[s.tokenType] = checkedAdd(m_tokensByType.value(s.tokenType, 0), w);
    }
    emit sessionsChanged();
    emit tokensByTypeChanged();
    setTotal(std::max<qint64>(m_grossTokens - m_recoveredTokens, 0));
    persist();
    scheduleHistoryRefresh();
    emit thresholdCheckRequested(m_totalWeighted);
}

void DayStore::recoverTokens(qint64 amount) {
    QMetaObject::invokeMethod(
        this,
        [this, amount] {
            startNewDayIfNeeded();
            m_recoveredTokens = std::min(m_grossTokens, checkedAdd(m_recoveredTokens, amount));
            setTotal(std::max<qint64>(m_grossTokens - m_recoveredTokens, 0));
            noteWrite(m_defaults.setInteger(DayKeys::recovery(dayText()), m_recoveredTokens));
            scheduleHistoryRefresh();
        },
        Qt::QueuedConnection);
}

void DayStore::setTotal(qint64 total) {
    m_totalWeighted = total;
    emit totalWeightedChanged();
}

// --- Persistence -------------------------------------------------------------------------

void DayStore::persist() {
    // The day being recorded, not the clock's: a clock set back past midnight must not
    // write today's sessions over yesterday's.
    const QString key = DayKeys::sessions(dayText());
    if (m_storedDayUnread) {
        // Today could not be read at start; keep whatever was stored alongside our sessions.
        bool ok = false;
        const QVariant stored = m_defaults.value(key, &ok);
        if (!ok) {
            noteWrite(false); // still unreadable: keep the day in memory and try again
            return;
        }
        m_storedDayUnread = false;
        if (const auto bytes = Defaults::toData(stored)) {
            if (auto earlier = SessionCodec::decodeDay(*bytes)) {
                QSet<QUuid> known;
                for (const ActivitySession& s : m_sessions)
                    known.insert(s.id);
                QList<ActivitySession> merged;
                for (const ActivitySession& s : withoutTheDayBefore(*earlier))
                    if (!known.contains(s.id))
                        merged.append(s);
                if (!merged.isEmpty()) {
                    merged.append(m_sessions);
                    m_sessions.clear();
                    m_grossTokens = 0;
                    m_tokensByType.clear();
                    record(merged); // recomputes totals and persists the merged day
                    return;
                }
            }
        }
    }
    // A failed write leaves the day in memory; the next write stores it whole again, with
    // its recovery (which may have been lost with the store, or failed by itself).
    bool ok = m_defaults.setData(key, SessionCodec::encodeDay(m_sessions));
    const QString recoveryKey = DayKeys::recovery(dayText());
    if (ok && m_recoveredTokens != 0 && m_defaults.integer(recoveryKey) != m_recoveredTokens)
        ok = m_defaults.setInteger(recoveryKey, m_recoveredTokens);
    noteWrite(ok);
}

void DayStore::noteWrite(bool ok) {
    if (ok != m_writeFailing)
        return;
    m_writeFailing = !ok;
    if (ok)
        emit writeRestored();
    else
        emit writeFailed();
}

QList<ActivitySession> DayStore::withoutTheDayBefore(const QList<ActivitySession>& sessions) const {
    QSet<QUuid> before;
    if (const auto bytes = m_defaults.data(DayKeys::sessions(DayKeys::dayText(m_day.addDays(-1)))))
        if (const auto day = SessionCodec::decodeDay(*bytes))
            for (const ActivitySession& s : *day)
                before.insert(s.id);
    QList<ActivitySession> kept;
    for (const ActivitySession& s : sessions)
        if (!before.contains(s.id))
            kept.append(s);
    return kept;
}

void DayStore::loadToday() {
    const QString day = dayText();
    bool ok = false;
    const QVariant stored = m_defaults.value(DayKeys::sessions(day), &ok);
    if (!ok) {
        m_storedDayUnread = true;
        return;
    }
    const std::optional<QByteArray> bytes = Defaults::toData(stored);
    if (!bytes)
        return;
    const std::optional<QList<ActivitySession>> decoded = SessionCodec::decodeDay(*bytes);
    if (!decoded) {
        // Undecodable days are ignored, and the next write replaces them; keep a copy of
        // the bytes so nothing the user had is destroyed outright.
        m_defaults.setData(DayKeys::quarantine(day), *bytes);
        return;
    }

    // Every session stored under the day was recorded on it (a stay that began before
    // midnight, a sleep, a change of time zone), except copies of the day before that older
    // versions wrote just after midnight.
    m_sessions = withoutTheDayBefore(*decoded);
    m_grossTokens = 0;
    m_tokensByType.clear();
    for (const ActivitySession& s : std::as_const(m_sessions)) {
        m_grossTokens = checkedAdd(m_grossTokens, s.weightedTokens());
        m_tokensByType[s.tokenType] =
            checkedAdd(m_tokensByType.value(s.tokenType, 0), s.weightedTokens());
    }
    // Recovery is never more than the day earned; a stored value from outside is brought
    // into range, so the total cannot overflow.
    m_recoveredTokens = std::clamp(m_defaults.integer(DayKeys::recovery(day)),
                                   -SessionCodec::maxDayTokens, m_grossTokens);
    emit sessionsChanged();
    emit tokensByTypeChanged();
    setTotal(std::max<qint64>(m_grossTokens - m_recoveredTokens, 0));
}

// --- Day changes -------------------------------------------------------------------------

void DayStore::scheduleMidnightReset() {
    m_midnightTimer.stop();
    const QDateTime now = m_clock.now();
    const QDateTime nextMidnight = now.toLocalTime().date().addDays(1).startOfDay();
    if (!nextMidnight.isValid())
        return;
    const qint64 ms = now.msecsTo(nextMidnight);
    if (ms <= 0)
        return;
    m_midnightTimer.start(int(std::min<qint64>(ms, std::numeric_limits<int>::max())));
}

int DayStore::midnightTimerRemaining() const {
    return m_midnightTimer.isActive() ? m_midnightTimer.remainingTime() : -1;
}

void DayStore::clearDay() {
    m_sessions.clear();
    m_grossTokens = 0;
    m_tokensByType.clear();
    m_recoveredTokens = 0;
    emit sessionsChanged();
    emit tokensByTypeChanged();
    setTotal(0);
}

bool DayStore::startNewDayIfNeeded() {
    // Days are calendar dates and only move forward: a clock set back, or a move to a time
    // zone where it is still yesterday, keeps recording into the day in progress.
    const QDate today = currentDate();
    if (today <= m_day)
        return false;
    m_day = today;
    clearDay();
    loadToday(); // normally empty; another process may have recorded the new day already
    scheduleMidnightReset();
    refreshHistoryNow();
    return true;
}

void DayStore::midnightTick() {
    if (!startNewDayIfNeeded())
        scheduleMidnightReset(); // fired early, or the clock went back
}

void DayStore::handleWake() {
    QMetaObject::invokeMethod(
        this, [this] { startNewDayIfNeeded(); }, Qt::QueuedConnection);
}

void DayStore::resetForDebug() {
    QMetaObject::invokeMethod(
        this,
        [this] {
            clearDay();
            m_defaults.remove(DayKeys::recovery(dayText()));
            m_storedDayUnread = false; // the reset is meant to discard the stored day
            persist();
            refreshHistoryNow();
        },
        Qt::QueuedConnection);
}

// --- Measures ----------------------------------------------------------------------------

double DayStore::contextSaturation() const {
    return LoadMetrics::contextSaturation(m_totalWeighted,
                                          AppPreferences::dailyBaseline(m_defaults));
}

double DayStore::temperature() const {
    return LoadMetrics::temperature(m_tokensByType);
}

qint64 DayStore::velocityLastHour() const {
    return LoadMetrics::velocity(m_sessions, m_clock.now());
}

QList<HourBucket> DayStore::hourlyBuckets(int last) const {
    return LoadMetrics::hourlyBuckets(m_sessions, m_clock.now(), last);
}

// --- History -----------------------------------------------------------------------------

void DayStore::scheduleHistoryRefresh() {
    // Requests within the debounce interval coalesce into one run with the latest snapshot.
    m_pendingSnapshot = snapshot();
    m_historyDebounce.start();
}

void DayStore::refreshHistoryNow() {
    startHistoryComputation(snapshot());
}

void DayStore::startHistoryComputation(Snapshot snap) {
    // With the clock behind the day being recorded, the history is drawn as of that day.
    QDateTime now = m_clock.now();
    if (now.toLocalTime().date() < m_day)
        now = m_day.startOfDay();
    std::shared_ptr<HistoryCalculator> calculator = m_calculator;
    // The destructor waits for the pool, so the store outlives every running computation;
    // a result posted to a store deleted meanwhile is discarded with its queued event.
    m_historyPool.start([this, calculator, now, snap = std::move(snap)] {
        HistoryResult result = calculator->compute(now, snap.total, snap.sessions);
        QMetaObject::invokeMethod(
            this,
            [this, result = std::move(result)]() mutable { publishHistory(std::move(result)); },
            Qt::QueuedConnection);
        emit endOfDayDigestRequested(snap.total);
    });
}

void DayStore::publishHistory(HistoryResult result) {
    m_history.historicalDays = std::move(result.historicalDays);
    emit historicalDaysChanged();
    m_history.extendedHistory = std::move(result.extendedHistory);
    emit extendedHistoryChanged();
    m_history.weeklyData = std::move(result.weeklyData);
    emit weeklyDataChanged();
    m_history.peakHourData = std::move(result.peakHourData);
    emit peakHourDataChanged();
    m_history.weekOverWeekData = std::move(result.weekOverWeekData);
    emit weekOverWeekDataChanged();
    m_history.peakDayOfWeek = std::move(result.peakDayOfWeek);
    emit peakDayOfWeekChanged();
    m_history.cachedVelocity = result.cachedVelocity;
    emit cachedVelocityChanged();
    m_history.cachedHourlyBuckets = std::move(result.cachedHourlyBuckets);
    emit cachedHourlyBucketsChanged();
    emit historyPublished();
}

void DayStore::waitForHistory() {
    if (m_historyDebounce.isActive()) {
        m_historyDebounce.stop();
        startHistoryComputation(std::move(m_pendingSnapshot));
    }
    m_historyPool.waitForDone();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}

// --- QML views of the published values ---------------------------------------------------

QVariantList DayStore::sessionsVariant() const {
    QVariantList list;
    list.reserve(m_sessions.size());
    for (const ActivitySession& s : m_sessions)
        list.append(QVariantMap{{QStringLiteral("id"), s.id.toString(QUuid::WithoutBraces)},
                                {QStringLiteral("appBundleID"), s.appBundleID},
                                {QStringLiteral("appName"), s.appName},
                                {QStringLiteral("tokenType"), TokenTypes::rawValue(s.tokenType)},
                                {QStringLiteral("startTime"), s.startTime.toDateTime()},
                                {QStringLiteral("endTime"), s.endTime.toDateTime()},
                                {QStringLiteral("rawTokens"), s.rawTokens},
                                {QStringLiteral("weightedTokens"), s.weightedTokens()}});
    return list;
}

QVariantMap DayStore::tokensByTypeVariant() const {
    QVariantMap map;
    for (auto it = m_tokensByType.cbegin(); it != m_tokensByType.cend(); ++it)
        map.insert(TokenTypes::rawValue(it.key()), it.value());
    return map;
}

QVariantList DayStore::historicalDaysVariant() const {
    return dayRowList(m_history.historicalDays);
}

QVariantList DayStore::extendedHistoryVariant() const {
    return dayRowList(m_history.extendedHistory);
}

QVariantList DayStore::weeklyDataVariant() const {
    QVariantList list;
    for (const WeekdayTokens& w : m_history.weeklyData)
        list.append(QVariantMap{{QStringLiteral("label"), w.label},
                                {QStringLiteral("tokens"), w.tokens},
                                {QStringLiteral("isToday"), w.isToday}});
    return list;
}

QVariant DayStore::peakHourDataVariant() const {
    if (!m_history.peakHourData)
        return {};
    return QVariantMap{{QStringLiteral("hour"), m_history.peakHourData->hour},
                       {QStringLiteral("label"), m_history.peakHourData->label}};
}

QVariant DayStore::weekOverWeekDataVariant() const {
    if (!m_history.weekOverWeekData)
        return {};
    return QVariantMap{{QStringLiteral("this"), m_history.weekOverWeekData->thisWeek},
                       {QStringLiteral("last"), m_history.weekOverWeekData->lastWeek},
                       {QStringLiteral("change"), m_history.weekOverWeekData->change}};
}

QVariant DayStore::peakDayOfWeekVariant() const {
    return m_history.peakDayOfWeek ? QVariant(*m_history.peakDayOfWeek) : QVariant();
}

QVariantList DayStore::cachedHourlyBucketsVariant() const {
    QVariantList list;
    for (const HourBucket& b : m_history.cachedHourlyBuckets)
        list.append(QVariantMap{{QStringLiteral("hour"), b.hour},
                                {QStringLiteral("label"), b.label},
                                {QStringLiteral("tokens"), b.tokens}});
    return list;
}
