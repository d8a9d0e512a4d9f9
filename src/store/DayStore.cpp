#include "DayStore.h"

#include "DayKeys.h"
#include "LoadMetrics.h"

#include "model/AppPreferences.h"
#include "model/CheckedMath.h"
#include "model/SessionCodec.h"

#include <QCoreApplication>
#include <QSet>

#include <algorithm>

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
    // The worker stays for the next refresh rather than ending after 30 s idle and being
    // started again: a refresh a minute would otherwise make a thread a minute.
    m_historyPool.setExpiryTimeout(-1);

    loadToday();
    refreshHistoryNow();
    scheduleMidnightReset();

    // A day written from outside while this store runs is taken in at once, so the views
    // show it and the next write keeps it.
    connect(&m_defaults, &Defaults::valueChanged, this, [this](const QString& key) {
        if (m_writing || !(key.isEmpty() || key == DayKeys::sessions(dayText())))
            return;
        bool adopted = false;
        if (takeStoredChanges(&adopted) && adopted)
            rebuildTotals();
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
    // A day written meanwhile from outside is taken in first (persist would do it too), so
    // the totals are rebuilt once, and a sum that overflows stops before anything is written.
    takeStoredChanges();
    m_sessions.append(sessions);
    rebuildTotals();
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
            noteWrite(m_defaults.setInteger(DayKeys::recovery(dayText()), m_recoveredTokens));
            rebuildTotals();
            scheduleHistoryRefresh();
        },
        Qt::QueuedConnection);
}

void DayStore::rebuildTotals() {
    qint64 gross = 0;
    QMap<TokenType, qint64> byType;
    for (const ActivitySession& s : std::as_const(m_sessions)) {
        const qint64 w = s.weightedTokens();
        gross = checkedAdd(gross, w);
        byType[s.tokenType] = checkedAdd(byType.value(s.tokenType, 0), w);
    }
    m_grossTokens = gross;
    m_tokensByType = std::move(byType);
    m_totalWeighted = std::max<qint64>(m_grossTokens - m_recoveredTokens, 0);
    emit todayChanged();
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

bool DayStore::takeStoredChanges(bool* adopted) {
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
    if (adopted)
        *adopted = true;
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
    // The recovery is loaded only beside a day stored, readable and decodable; as stored,
    // but values no day can reach are held at a bound, so the total and later recovery
    // cannot overflow.
    if (takeStoredChanges() && m_storedRevision != 0 && !m_undecodable)
        m_recoveredTokens = std::clamp(m_defaults.integer(DayKeys::recovery(dayText())),
                                       -SessionCodec::maxDayTokens, SessionCodec::maxDayTokens);
    rebuildTotals();
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
    m_recoveredTokens = 0;
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

void DayStore::resetToday() {
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_defaults.remove(DayKeys::recovery(dayText()));
            // The reset is meant to discard the stored day, whatever it holds.
            clearDay();
            m_storedRevision = m_defaults.revision(DayKeys::sessions(dayText()));
            persist();
            rebuildTotals();
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
    m_history = std::move(result);
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
