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

    // A day written from outside while this store runs is taken in at once, so the views
    // show it and the next write keeps it.
    connect(&m_defaults, &Defaults::valueChanged, this, [this](const QString& key) {
        if (!m_writing && (key.isEmpty() || key == DayKeys::sessions(dayText())))
            takeStoredChanges();
    });
}

DayStore::~DayStore() {
    m_historyPool.waitForDone();
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
    // A day written from outside (`defaults write`, another process) is taken in first, and
    // an unreadable one is never written over.
    if (!takeStoredChanges()) {
        noteWrite(false); // still unreadable: keep the day in memory and try again
        return;
    }
    if (m_undecodable) {
        // The bytes of a day that did not decode are kept aside before they are replaced.
        if (!m_defaults.setData(DayKeys::quarantine(dayText()), *m_undecodable)) {
            noteWrite(false);
            return;
        }
        m_undecodable.reset();
    }
    // A failed write leaves the day in memory; the next write stores it whole again, with
    // its recovery (which may have been lost with the store, or failed by itself).
    m_writing = true;
    bool ok = m_defaults.setData(key, SessionCodec::encodeDay(m_heldBack + m_sessions));
    m_writing = false;
    if (ok) {
        m_storedRevision = m_defaults.revision(key);
        m_savedCount = m_sessions.size();
    }
    const QString recoveryKey = DayKeys::recovery(dayText());
    if (ok && m_recoveredTokens != 0 && m_defaults.integer(recoveryKey) != m_recoveredTokens)
        ok = m_defaults.setInteger(recoveryKey, m_recoveredTokens);
    noteWrite(ok);
}

bool DayStore::takeStoredChanges() {
    const QString key = DayKeys::sessions(dayText());
    const quint64 revision = m_defaults.revision(key);
    if (!m_storedDayUnread && revision == m_storedRevision)
        return true;
    bool ok = false;
    const QVariant stored = m_defaults.value(key, &ok);
    if (!ok) {
        m_storedDayUnread = true;
        return false;
    }
    m_storedDayUnread = false;
    m_storedRevision = revision;
    const std::optional<QByteArray> bytes = Defaults::toData(stored);
    std::optional<QList<ActivitySession>> day =
        bytes ? SessionCodec::decodeDay(*bytes) : std::nullopt;
    if (!day) {
        // Gone (the entry deleted, the file made anew) or not a day: nothing stored can
        // replace what is in memory, which the next write stores whole.
        if (bytes)
            m_undecodable = *bytes;
        m_savedCount = 0;
        return true;
    }
    m_undecodable.reset();
    adoptStoredDay(*day, m_sessions.mid(m_savedCount));
    return true;
}

void DayStore::adoptStoredDay(const QList<ActivitySession>& stored,
                              const QList<ActivitySession>& unsaved) {
    const Timestamp startOfDay = Timestamp::fromDateTime(m_day.startOfDay());
    QList<ActivitySession> sessions;
    QList<ActivitySession> earlier;
    QSet<QUuid> storedIds;
    for (const ActivitySession& s : stored) {
        storedIds.insert(s.id);
        (s.startTime >= startOfDay ? sessions : earlier).append(s);
    }
    // A stay that began before midnight, or a day recorded before a move to a time zone
    // further west, stays stored with the day; copies of the day before do not.
    m_heldBack = withoutTheDayBefore(earlier);
    m_savedCount = sessions.size();
    for (const ActivitySession& s : unsaved)
        if (!storedIds.contains(s.id))
            sessions.append(s);
    m_sessions = std::move(sessions);
    m_grossTokens = 0;
    m_tokensByType.clear();
    for (const ActivitySession& s : std::as_const(m_sessions)) {
        m_grossTokens = checkedAdd(m_grossTokens, s.weightedTokens());
        m_tokensByType[s.tokenType] =
            checkedAdd(m_tokensByType.value(s.tokenType, 0), s.weightedTokens());
    }
    emit sessionsChanged();
    emit tokensByTypeChanged();
    setTotal(std::max<qint64>(m_grossTokens - m_recoveredTokens, 0));
}

DayStore::StoredDay DayStore::storedDay() const {
    if (m_storedDayUnread)
        return StoredDay::Unreadable;
    return m_undecodable ? StoredDay::Undecodable : StoredDay::Readable;
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
    // Reading never writes: a day that does not decode counts as empty here, and is kept
    // aside only by the write that replaces it.
    m_storedDayUnread = true; // read it whatever its revision says: it may be unreadable
    if (!takeStoredChanges() || m_storedRevision == 0 || m_undecodable)
        return; // nothing stored, readable and decodable: not even the recovery is loaded
    // The recovery as stored; only values no day can reach are held at a bound, so the
    // total and later recovery cannot overflow.
    m_recoveredTokens = std::clamp(m_defaults.integer(DayKeys::recovery(dayText())),
                                   -SessionCodec::maxDayTokens, SessionCodec::maxDayTokens);
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
    m_heldBack.clear();
    m_savedCount = 0;
    m_storedRevision = 0;
    m_undecodable.reset();
    m_storedDayUnread = false;
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
            m_defaults.remove(DayKeys::recovery(dayText()));
            // The reset is meant to discard the stored day, whatever it holds.
            clearDay();
            m_storedRevision = m_defaults.revision(DayKeys::sessions(dayText()));
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
