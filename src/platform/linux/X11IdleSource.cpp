#include "X11IdleSource.h"

#include "platform/Clock.h"

#include <QSocketNotifier>

#include <xcb/screensaver.h>
#include <xcb/sync.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>

namespace {

xcb_sync_int64_t syncValue(qint64 v) {
    return {qint32(v >> 32), quint32(v & 0xffffffff)};
}

qint64 fromSyncValue(const xcb_sync_int64_t& v) {
    return (qint64(v.hi) << 32) | qint64(v.lo);
}

// The IDLETIME system counter, or 0 when the server has none.
quint32 idleTimeCounter(xcb_connection_t* c) {
    xcb_sync_initialize_reply_t* init = xcb_sync_initialize_reply(
        c, xcb_sync_initialize(c, XCB_SYNC_MAJOR_VERSION, XCB_SYNC_MINOR_VERSION), nullptr);
    if (!init)
        return 0;
    std::free(init);
    xcb_sync_list_system_counters_reply_t* list =
        xcb_sync_list_system_counters_reply(c, xcb_sync_list_system_counters(c), nullptr);
    if (!list)
        return 0;
    // Read by hand: each entry is padded to four bytes, which libxcb's iterator (1.15) skips
    // wrongly, so every name after the first would be read from the wrong place.
    quint32 counter = 0;
    const auto* entry = reinterpret_cast<const quint8*>(list + 1);
    const auto* end = reinterpret_cast<const quint8*>(list) + 32 + size_t(list->length) * 4;
    for (quint32 i = 0; i < list->counters_len && entry + 14 <= end; ++i) {
        quint32 id = 0;
        quint16 length = 0;
        std::memcpy(&id, entry, 4);          // counter, then an 8-byte resolution
        std::memcpy(&length, entry + 12, 2); // then the name's length and the name
        if (entry + 14 + length > end)
            break;
        if (length == 8 && std::memcmp(entry + 14, "IDLETIME", 8) == 0)
            counter = id;
        entry += (14 + length + 3) & ~3;
    }
    std::free(list);
    return counter;
}

} // namespace

X11IdleSource::X11IdleSource(xcb_connection_t* connection, quint32 root, const Clock& clock)
    : m_connection(connection)
    , m_root(root)
    , m_clock(clock) {}

X11IdleSource::~X11IdleSource() {
    m_notifier.reset();
    xcb_disconnect(m_connection); // the server destroys the alarms with the connection
}

std::unique_ptr<X11IdleSource> X11IdleSource::open(const Clock& clock, QString* error,
                                                   int thresholdMs) {
    int screen = 0;
    xcb_connection_t* c = xcb_connect(nullptr, &screen);
    if (xcb_connection_has_error(c)) {
        xcb_disconnect(c);
        if (error)
            *error = QStringLiteral("cannot connect to the X11 display");
        return nullptr;
    }
    const xcb_query_extension_reply_t* ext = xcb_get_extension_data(c, &xcb_screensaver_id);
    if (!ext || !ext->present) {
        xcb_disconnect(c);
        if (error)
            *error = QStringLiteral("the X server has no MIT-SCREEN-SAVER extension");
        return nullptr;
    }
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = 0; i < screen && it.rem; ++i)
        xcb_screen_next(&it);
    std::unique_ptr<X11IdleSource> source(new X11IdleSource(c, it.data->root, clock));
    source->setUpAlarms(thresholdMs);
    return source;
}

bool X11IdleSource::setUpAlarms(int thresholdMs) {
    const xcb_query_extension_reply_t* sync = xcb_get_extension_data(m_connection, &xcb_sync_id);
    if (!sync || !sync->present)
        return false;
    const quint32 counter = idleTimeCounter(m_connection);
    if (!counter)
        return false;
    m_syncEventBase = sync->first_event;

    // Both alarms stay armed (delta 0): one fires each time the idle time rises past the
    // threshold, the other each time input brings it back below.
    const auto create = [&](xcb_sync_testtype_t test) {
        const quint32 alarm = xcb_generate_id(m_connection);
        xcb_sync_create_alarm_value_list_t values{};
        values.counter = counter;
        values.valueType = XCB_SYNC_VALUETYPE_ABSOLUTE;
        values.value = syncValue(thresholdMs);
        values.testType = test;
        values.delta = syncValue(0);
        values.events = 1;
        xcb_sync_create_alarm_aux(m_connection, alarm,
                                  XCB_SYNC_CA_COUNTER | XCB_SYNC_CA_VALUE_TYPE | XCB_SYNC_CA_VALUE |
                                      XCB_SYNC_CA_TEST_TYPE | XCB_SYNC_CA_DELTA |
                                      XCB_SYNC_CA_EVENTS,
                                  &values);
        return alarm;
    };
    m_idleAlarm = create(XCB_SYNC_TESTTYPE_POSITIVE_TRANSITION);
    m_resetAlarm = create(XCB_SYNC_TESTTYPE_NEGATIVE_TRANSITION);
    xcb_flush(m_connection);

    // Already idle past the threshold: no transition will say so.
    xcb_sync_query_counter_reply_t* now = xcb_sync_query_counter_reply(
        m_connection, xcb_sync_query_counter(m_connection, counter), nullptr);
    if (now) {
        const qint64 idleMs = fromSyncValue(now->counter_value);
        if (idleMs >= thresholdMs)
            m_lastInputMs = m_clock.elapsedMs() - idleMs;
        std::free(now);
    }

    m_notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_connection),
                                                   QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &X11IdleSource::readEvents);
    readEvents(); // events that came with the replies above
    return true;
}

void X11IdleSource::readEvents() {
    // A lost server leaves its socket readable for good: stop listening, or the event loop
    // would spin on it.
    if (xcb_connection_has_error(m_connection)) {
        m_notifier->setEnabled(false);
        return;
    }
    while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection)) {
        if ((event->response_type & 0x7f) == m_syncEventBase + XCB_SYNC_ALARM_NOTIFY) {
            const auto* alarm = reinterpret_cast<xcb_sync_alarm_notify_event_t*>(event);
            if (alarm->alarm == m_idleAlarm)
                m_lastInputMs = m_clock.elapsedMs() - fromSyncValue(alarm->counter_value);
            else if (alarm->alarm == m_resetAlarm)
                m_lastInputMs.reset();
        }
        std::free(event);
    }
}

QString X11IdleSource::mechanism() const {
    return m_notifier ? QStringLiteral("SYNC IDLETIME") : QStringLiteral("MIT-SCREEN-SAVER");
}

double X11IdleSource::secondsSinceLastInput() const {
    if (m_notifier) {
        // A lost server sends no more alarms: the user counts as present, as below.
        if (!m_lastInputMs || xcb_connection_has_error(m_connection))
            return 0.0;
        return double(m_clock.elapsedMs() - *m_lastInputMs) / 1000.0;
    }
    xcb_screensaver_query_info_reply_t* reply = xcb_screensaver_query_info_reply(
        m_connection, xcb_screensaver_query_info(m_connection, m_root), nullptr);
    if (!reply)
        return 0.0; // no answer (server gone): treat the user as present rather than idle
    const double seconds = double(reply->ms_since_user_input) / 1000.0;
    std::free(reply);
    return seconds;
}
