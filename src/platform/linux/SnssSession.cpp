#include "SnssSession.h"

#include <QHash>
#include <QMap>
#include <QtEndian>

#include <algorithm>

namespace {

// The file versions: 1 and 3 (3 adds a marker after the initial state) are plain; 2 and 4
// are their encrypted forms, which cannot be read.
constexpr qint32 plainVersion = 1;
constexpr qint32 plainVersionWithMarker = 3;

// The commands that decide which page is in front; every other command is skipped.
enum Command : quint8 {
    setTabWindow = 0,               // window id, tab id
    setTabIndexInWindow = 2,        // tab id, index
    pathPrunedFromBack = 5,         // tab id, index: navigations from index on are gone
    updateTabNavigation = 6,        // pickle: tab id, navigation index, address, ...
    setSelectedNavigationIndex = 7, // tab id, index
    setSelectedTabInIndex = 8,      // window id, index
    pathPrunedFromFront = 11,       // tab id, count
    tabClosed = 16,                 // tab id, time
    windowClosed = 17,              // window id, time
    setActiveWindow = 20,           // window id
    pathPruned = 24,                // tab id, index, count
};

// Reads little-endian 32-bit numbers from a command's payload; reading past the end fails.
class Payload {
public:
    explicit Payload(QByteArrayView bytes)
        : m_bytes(bytes) {}

    std::optional<qint32> int32() {
        if (m_pos + 4 > m_bytes.size())
            return std::nullopt;
        const qint32 v = qFromLittleEndian<qint32>(m_bytes.data() + m_pos);
        m_pos += 4;
        return v;
    }
    // A pickled string: its length, then its bytes padded to a multiple of four.
    std::optional<QByteArray> string() {
        const std::optional<qint32> length = int32();
        if (!length || *length < 0 || *length > m_bytes.size() - m_pos)
            return std::nullopt;
        const QByteArray s = m_bytes.sliced(m_pos, *length).toByteArray();
        m_pos += (qsizetype(*length) + 3) & ~qsizetype(3);
        return s;
    }
    void skip(qsizetype n) { m_pos += n; }

private:
    QByteArrayView m_bytes;
    qsizetype m_pos = 0;
};

struct Tab {
    qint32 window = 0;
    qint32 index = 0;
    qint32 selectedNavigation = 0;
    QMap<qint32, QByteArray> navigations; // by navigation index
    qint64 order = 0;                     // when the tab was last mentioned, for ties
};

struct Window {
    qint32 selectedTab = 0;
    qint64 order = 0; // when the window was last selected or written to
};

// Replaying costs one step per command plus one per entry a command walks through (closing a
// window walks the tabs, pruning a history walks its entries). A real log needs a few steps
// per command; a log that needs more than this is not one, and is given up on.
constexpr qint64 maxSteps = 16 * 1024 * 1024;

class Replay {
public:
    void apply(quint8 id, QByteArrayView bytes);
    std::optional<QString> selectedTabURL() const;
    bool exhausted() const { return m_steps > maxSteps; }

private:
    Tab& tab(qint32 id) {
        Tab& t = m_tabs[id];
        t.order = ++m_clock;
        return t;
    }
    Window& window(qint32 id) {
        Window& w = m_windows[id];
        w.order = ++m_clock;
        return w;
    }
    void prune(Tab& t, qint32 index, qint32 count);

    QHash<qint32, Tab> m_tabs;
    QHash<qint32, Window> m_windows;
    std::optional<qint32> m_activeWindow;
    qint64 m_clock = 0;
    qint64 m_steps = 0;
};

void Replay::prune(Tab& t, qint32 index, qint32 count) {
    if (index < 0 || count <= 0)
        return;
    m_steps += t.navigations.size();
    QMap<qint32, QByteArray> kept;
    for (auto it = t.navigations.cbegin(); it != t.navigations.cend(); ++it) {
        if (it.key() < index)
            kept.insert(it.key(), it.value());
        else if (qint64(it.key()) >= qint64(index) + count)
            kept.insert(qint32(qint64(it.key()) - count), it.value());
    }
    t.navigations = std::move(kept);
}

void Replay::apply(quint8 id, QByteArrayView bytes) {
    ++m_steps;
    Payload p(bytes);
    switch (id) {
    case setTabWindow: {
        const auto w = p.int32(), t = p.int32();
        if (w && t) {
            tab(*t).window = *w;
            window(*w);
        }
        break;
    }
    case setTabIndexInWindow: {
        const auto t = p.int32(), index = p.int32();
        if (t && index)
            tab(*t).index = *index;
        break;
    }
    case setSelectedNavigationIndex: {
        const auto t = p.int32(), index = p.int32();
        if (t && index)
            tab(*t).selectedNavigation = *index;
        break;
    }
    case setSelectedTabInIndex: {
        const auto w = p.int32(), index = p.int32();
        if (w && index)
            window(*w).selectedTab = *index;
        break;
    }
    case setActiveWindow:
        if (const auto w = p.int32()) {
            m_activeWindow = *w;
            window(*w);
        }
        break;
    case tabClosed:
        if (const auto t = p.int32())
            m_tabs.remove(*t);
        break;
    case windowClosed:
        if (const auto w = p.int32()) {
            m_windows.remove(*w);
            m_steps += m_tabs.size();
            for (auto it = m_tabs.begin(); it != m_tabs.end();)
                it = it->window == *w ? m_tabs.erase(it) : std::next(it);
        }
        break;
    case updateTabNavigation: {
        p.skip(4); // the pickle's own payload size
        const auto t = p.int32(), index = p.int32();
        const auto url = p.string();
        if (t && index && url && *index >= 0)
            tab(*t).navigations.insert(*index, *url);
        break;
    }
    case pathPrunedFromBack: {
        const auto t = p.int32(), index = p.int32();
        if (t && index && m_tabs.contains(*t))
            prune(m_tabs[*t], *index, std::numeric_limits<qint32>::max());
        break;
    }
    case pathPrunedFromFront: {
        const auto t = p.int32(), count = p.int32();
        if (t && count && m_tabs.contains(*t))
            prune(m_tabs[*t], 0, *count);
        break;
    }
    case pathPruned: {
        const auto t = p.int32(), index = p.int32(), count = p.int32();
        if (t && index && count && m_tabs.contains(*t))
            prune(m_tabs[*t], *index, *count);
        break;
    }
    default:
        break;
    }
}

std::optional<QString> Replay::selectedTabURL() const {
    // The active window; when the log never says, the window written to last.
    std::optional<qint32> windowId;
    if (m_activeWindow && m_windows.contains(*m_activeWindow)) {
        windowId = m_activeWindow;
    } else {
        qint64 latest = -1;
        for (auto it = m_windows.cbegin(); it != m_windows.cend(); ++it)
            if (it->order > latest) {
                latest = it->order;
                windowId = it.key();
            }
    }
    if (!windowId)
        return std::nullopt;

    // Like the browser restoring a window: its tabs in the order of their stored indexes,
    // and the selected position clamped to them.
    QList<const Tab*> tabs;
    for (const Tab& t : m_tabs)
        if (t.window == *windowId)
            tabs.append(&t);
    if (tabs.isEmpty())
        return std::nullopt;
    std::sort(tabs.begin(), tabs.end(), [](const Tab* a, const Tab* b) {
        return a->index != b->index ? a->index < b->index : a->order < b->order;
    });
    const qsizetype selected =
        std::clamp<qsizetype>(m_windows.value(*windowId).selectedTab, 0, tabs.size() - 1);
    const Tab& t = *tabs.at(selected);

    // The selected navigation, else the nearest one before it, else the first.
    if (t.navigations.isEmpty())
        return std::nullopt;
    auto it = t.navigations.upperBound(t.selectedNavigation);
    if (it != t.navigations.cbegin())
        --it;
    if (it.value().isEmpty())
        return std::nullopt;
    return QString::fromUtf8(it.value());
}

} // namespace

std::optional<QString> SnssSession::selectedTabURL(const QByteArray& file) {
    if (file.size() < 8 || !file.startsWith("SNSS"))
        return std::nullopt;
    const qint32 version = qFromLittleEndian<qint32>(file.constData() + 4);
    if (version != plainVersion && version != plainVersionWithMarker)
        return std::nullopt;

    // Each command: its size (2 bytes, counting the id), its id (1 byte), its payload.
    Replay replay;
    qsizetype pos = 8;
    while (pos + 2 <= file.size()) {
        const quint16 size = qFromLittleEndian<quint16>(file.constData() + pos);
        pos += 2;
        if (size == 0 || size > file.size() - pos)
            break;
        const quint8 id = quint8(file.at(pos));
        replay.apply(id, QByteArrayView(file.constData() + pos + 1, size - 1));
        if (replay.exhausted())
            return std::nullopt;
        pos += size;
    }
    return replay.selectedTabURL();
}
