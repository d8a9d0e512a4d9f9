#pragma once

#include "HistoryCalculator.h"
#include "HistoryTypes.h"

#include "model/ActivitySession.h"
#include "model/TokenType.h"
#include "platform/Clock.h"
#include "platform/Defaults.h"

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QObject>
#include <QThreadPool>
#include <QTimer>

#include <memory>
#include <optional>

// Today's ledger and the history derived from the stored days: the sessions recorded since
// local midnight, their totals and recovery, persisted in the settings store after every
// change. The views read it through DaySummary; C++ readers use the typed accessors.
//
// Every mutation runs on the thread the store lives on (the main thread): the public
// operations post their work there and return at once, so they may be called from any
// thread. After each mutation the totals are rebuilt once and todayChanged is emitted once.
class DayStore : public QObject {
    Q_OBJECT

public:
    struct Options {
        int historyDebounceMs = 1000;
    };

    // Loads today, starts a history computation and arms the midnight timer.
    DayStore(Defaults& defaults, const Clock& clock, Options options, QObject* parent = nullptr);
    DayStore(Defaults& defaults, const Clock& clock, QObject* parent = nullptr)
        : DayStore(defaults, clock, Options{}, parent) {}
    ~DayStore() override;

    void addSession(const ActivitySession& session);
    void addSessions(const QList<ActivitySession>& sessions);
    void recoverTokens(qint64 amount);
    void handleWake();
    // Clears today, in memory and stored ("Reset Today" in the menu).
    void resetToday();
    void refreshHistoryNow();

    const QList<ActivitySession>& sessions() const { return m_sessions; }
    qint64 totalWeighted() const { return m_totalWeighted; }
    const QMap<TokenType, qint64>& tokensByType() const { return m_tokensByType; }
    qint64 recoveredTokens() const { return m_recoveredTokens; }
    qint64 grossTokens() const { return m_grossTokens; }
    // The local calendar day being recorded, and its start.
    QDate day() const { return m_day; }
    QDateTime lastResetDate() const { return m_day.startOfDay(); }

    // What became of today's stored record when it was last read: a record the database
    // could not read (a damaged file, say) is never written over; one that did not decode
    // counts as empty, and its bytes are kept aside before the first write replaces them.
    enum class StoredDay { Readable, Unreadable, Undecodable };
    StoredDay storedDay() const;
    const HistoryResult& history() const { return m_history; }

    double contextSaturation() const;
    double temperature() const;
    qint64 velocityLastHour() const;
    QList<HourBucket> hourlyBuckets(int last = 8) const;

    // Milliseconds until the armed midnight timer fires, or -1 when none is armed.
    int midnightTimerRemaining() const;
    // Blocks until every started history computation has finished and been published.
    void waitForHistory();

signals:
    // Today's sessions, totals or recovery changed (once per mutation).
    void todayChanged();
    // After a computation's results have been published in history().
    void historyPublished();

    // Hand-offs to the notification manager: the threshold check after every recorded
    // session, and the end-of-day digest after every history computation (emitted from
    // the worker thread).
    void thresholdCheckRequested(qint64 totalWeighted);
    void endOfDayDigestRequested(qint64 totalWeighted);
    // The first write of today that failed (disk full, store read-only, ...): the day is
    // kept in memory and written whole with every later change. Then the first write that
    // succeeded again.
    void writeFailed();
    void writeRestored();

private slots:
    void midnightTick();

private:
    struct Snapshot {
        qint64 total = 0;
        QList<ActivitySession> sessions;
    };

    void record(const QList<ActivitySession>& sessions);
    // Requests within the debounce interval coalesce into one computation.
    void scheduleHistoryRefresh();
    void persist();
    void noteWrite(bool ok);
    void loadToday();
    // Takes the stored day as it is now when it changed since this store last read or wrote
    // it (another process wrote it, or it could not be read); false while it cannot be read.
    // Sets *adopted when the stored sessions replaced those in memory (totals not rebuilt).
    bool takeStoredChanges(bool* adopted = nullptr);
    // Today becomes the stored day's sessions that began today, then those of unsaved that
    // it lacks; the others stay stored with the day, uncounted.
    void adoptStoredDay(const QList<ActivitySession>& stored,
                        const QList<ActivitySession>& unsaved);
    // Sessions minus copies of ones stored under the day before.
    QList<ActivitySession> withoutTheDayBefore(const QList<ActivitySession>& sessions) const;
    bool startNewDayIfNeeded();
    void scheduleMidnightReset();
    void clearDay();
    void startHistoryComputation(Snapshot snapshot);
    void publishHistory(HistoryResult result);
    // The one place the totals are set: gross and split from the sessions, the total net of
    // recovery; then todayChanged.
    void rebuildTotals();
    Snapshot snapshot() const { return {m_totalWeighted, m_sessions}; }
    QDate currentDate() const;
    QString dayText() const;

    Defaults& m_defaults;
    const Clock& m_clock;

    QList<ActivitySession> m_sessions;
    qint64 m_totalWeighted = 0;
    QMap<TokenType, qint64> m_tokensByType;
    qint64 m_recoveredTokens = 0;
    qint64 m_grossTokens = 0;
    QDate m_day;
    HistoryResult m_history;

    // Set when today's stored day could not be read: the next write first merges in what
    // was stored, so an unreadable moment never overwrites the day.
    bool m_storedDayUnread = false;
    // The stored day as last read or written here: its revision, how many of m_sessions it
    // holds, the sessions it holds that began before today, and the bytes of a day that
    // did not decode (kept aside before they are replaced).
    quint64 m_storedRevision = 0;
    qsizetype m_savedCount = 0;
    QList<ActivitySession> m_heldBack;
    std::optional<QByteArray> m_undecodable;
    bool m_writing = false;
    bool m_writeFailing = false;

    QTimer m_midnightTimer;
    QTimer m_historyDebounce;
    Snapshot m_pendingSnapshot;
    std::shared_ptr<HistoryCalculator> m_calculator;
    QThreadPool m_historyPool;
};
