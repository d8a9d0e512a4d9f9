#include "SpotlightMonitor.h"

#include "model/ActivitySession.h"

#include <QUuid>

#include <algorithm>
#include <cmath>

namespace {

// The look-back of a scan overlaps the scan interval, so no save falls between two scans;
// the paths remembered from the previous scans keep a save from counting twice.
constexpr int scanLookBackSeconds = 45;
constexpr int warmUpLookBackSeconds = 600;
constexpr qsizetype warmUpFolderLimit = 10;
constexpr qsizetype rememberedPathLimit = 30;
constexpr qsizetype commitChecksPerScan = 15;

constexpr qint64 codeTokensPerSave = 15;
constexpr qint64 docsTokensPerSave = 8;
constexpr qint64 commitLinesPerToken = 5;
constexpr qint64 minimumCommitTokens = 10;

const QSet<QString> ignoreExts = {
    QStringLiteral("swp"),  QStringLiteral("swo"),    QStringLiteral("tmp"),
    QStringLiteral("lock"), QStringLiteral("log"),    QStringLiteral("DS_Store"),
    QStringLiteral("o"),    QStringLiteral("d"),      QStringLiteral("a"),
    QStringLiteral("so"),   QStringLiteral("dylib"),  QStringLiteral("class"),
    QStringLiteral("pyc"),  QStringLiteral("icloud"), QStringLiteral("download"),
    QStringLiteral("part"),
};

// The text after the last dot of the file name, when the name has one that is not its
// first character (".env" is a hidden file without an extension).
QString extensionOf(const QString& path) {
    const qsizetype slash = path.lastIndexOf(u'/');
    const qsizetype dot = path.lastIndexOf(u'.');
    if (dot <= slash + 1)
        return {};
    return path.mid(dot + 1);
}

QString folderOf(const QString& path) {
    const qsizetype slash = path.lastIndexOf(u'/');
    return slash > 0 ? path.left(slash) : QStringLiteral("/");
}

QString lastComponent(const QString& path) {
    return path.mid(path.lastIndexOf(u'/') + 1);
}

bool liesInSkippedFolder(const QString& path) {
    const QStringList parts = path.split(u'/');
    return std::any_of(parts.cbegin(), parts.cend(), [](const QString& part) {
        return SpotlightMonitor::skipParts().contains(part);
    });
}

// trunc(count × rate × multiplier). Not finite or out of the 64-bit range: a programming
// error (the multiplier is the working mode's), which stops the process.
qint64 scaledTokens(qsizetype count, qint64 rate, double multiplier) {
    const double product = std::trunc(double(count) * double(rate) * multiplier);
    if (!std::isfinite(product) || product < -9223372036854775808.0 ||
        product >= 9223372036854775808.0)
        qFatal("save tokens out of range: %lld x %lld x %g", static_cast<long long>(count),
               static_cast<long long>(rate), multiplier);
    return qint64(product);
}

QString savesName(const QString& prefix, qsizetype count) {
    return prefix + QString::number(count) +
           (count == 1 ? QStringLiteral(" save") : QStringLiteral(" saves"));
}

// Takes at most `limit` members, in the order the set yields them.
QSet<QString> firstOf(const QSet<QString>& set, qsizetype limit) {
    QSet<QString> kept;
    for (const QString& s : set) {
        if (kept.size() == limit)
            break;
        kept.insert(s);
    }
    return kept;
}

} // namespace

SpotlightMonitor::SpotlightMonitor(DayStore& store, FileChangeIndex& index,
                                   std::function<double()> modeMultiplier, const Clock& clock,
                                   Options options, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_index(index)
    , m_modeMultiplier(std::move(modeMultiplier))
    , m_clock(clock)
    , m_options(options)
    , m_git(options.gitExecutable, options.gitTimeoutMs, m_cancelled) {
    m_worker.setObjectName(QStringLiteral("com.mindmeter.spotlight"));
    m_workerContext.moveToThread(&m_worker);
}

SpotlightMonitor::~SpotlightMonitor() {
    m_timer.stop();
    m_cancelled.store(true);
    m_worker.quit();
    m_worker.wait();
}

const QSet<QString>& SpotlightMonitor::sourceExts() {
    static const QSet<QString> set = {
        QStringLiteral("swift"),  QStringLiteral("py"),   QStringLiteral("js"),
        QStringLiteral("ts"),     QStringLiteral("jsx"),  QStringLiteral("tsx"),
        QStringLiteral("go"),     QStringLiteral("rs"),   QStringLiteral("java"),
        QStringLiteral("kt"),     QStringLiteral("c"),    QStringLiteral("cpp"),
        QStringLiteral("h"),      QStringLiteral("hpp"),  QStringLiteral("cs"),
        QStringLiteral("rb"),     QStringLiteral("php"),  QStringLiteral("vue"),
        QStringLiteral("svelte"), QStringLiteral("dart"), QStringLiteral("scala"),
        QStringLiteral("ex"),     QStringLiteral("exs"),  QStringLiteral("clj"),
        QStringLiteral("hs"),     QStringLiteral("lua"),  QStringLiteral("r"),
        QStringLiteral("jl"),     QStringLiteral("m"),    QStringLiteral("mm"),
        QStringLiteral("sh"),     QStringLiteral("bash"), QStringLiteral("fish"),
    };
    return set;
}

const QSet<QString>& SpotlightMonitor::docsExts() {
    static const QSet<QString> set = {
        QStringLiteral("md"),      QStringLiteral("txt"),        QStringLiteral("rst"),
        QStringLiteral("tex"),     QStringLiteral("html"),       QStringLiteral("css"),
        QStringLiteral("scss"),    QStringLiteral("json"),       QStringLiteral("yaml"),
        QStringLiteral("yml"),     QStringLiteral("toml"),       QStringLiteral("xml"),
        QStringLiteral("graphql"), QStringLiteral("sql"),        QStringLiteral("proto"),
        QStringLiteral("tf"),      QStringLiteral("dockerfile"), QStringLiteral("env"),
    };
    return set;
}

const QSet<QString>& SpotlightMonitor::skipParts() {
    static const QSet<QString> set = {
        QStringLiteral("node_modules"), QStringLiteral(".git"),        QStringLiteral(".build"),
        QStringLiteral("DerivedData"),  QStringLiteral("__pycache__"), QStringLiteral(".next"),
        QStringLiteral("dist"),         QStringLiteral("build"),       QStringLiteral(".gradle"),
        QStringLiteral("Pods"),         QStringLiteral(".idea"),       QStringLiteral("coverage"),
        QStringLiteral("vendor"),       QStringLiteral(".cache"),      QStringLiteral("target"),
        QStringLiteral("Carthage"),
    };
    return set;
}

// --- Lifecycle (owner's thread) ------------------------------------------------------------

void SpotlightMonitor::start() {
    if (m_timer.isActive())
        return;
    if (!m_worker.isRunning())
        m_worker.start();
    post([this] { warmUp(); });
    m_timer.start();
}

void SpotlightMonitor::stop() {
    m_timer.stop();
}

void SpotlightMonitor::timerFired() {
    const std::optional<quint64> changes = m_index.changeCount();
    if (changes && qint64(*changes) == m_emptyAtCount.load() && !m_knowsRepositories.load())
        return;
    const double multiplier = m_modeMultiplier();
    post([this, multiplier] { scan(multiplier); });
}

void SpotlightMonitor::post(std::function<void()> work) {
    QMetaObject::invokeMethod(&m_workerContext, std::move(work), Qt::QueuedConnection);
}

void SpotlightMonitor::waitUntilIdle() {
    if (m_worker.isRunning())
        QMetaObject::invokeMethod(
            &m_workerContext, [] {}, Qt::BlockingQueuedConnection);
}

void SpotlightMonitor::setActiveProject(const QString& name) {
    m_activeProject = name;
    emit activeProjectChanged();
}

// --- Worker ------------------------------------------------------------------------------

void SpotlightMonitor::rememberRepository(const QString& root) {
    if (m_knownRepos.contains(root))
        return;
    m_knownRepos.insert(root);
    m_repoRotation.append(root);
    m_knowsRepositories.store(true);
}

void SpotlightMonitor::warmUp() {
    // Learn the HEAD of recently used repositories, so the first commit seen later is
    // measured against the real previous HEAD instead of counted from nothing.
    // The folders of files saved recently, then (for what happened before the index started)
    // the folders changed most recently.
    QStringList folders;
    QSet<QString> seen;
    for (const QString& path : m_index.modifiedWithin(warmUpLookBackSeconds))
        if (const QString folder = folderOf(path); !seen.contains(folder)) {
            seen.insert(folder);
            folders.append(folder);
        }
    for (const QString& folder : m_index.foldersChangedWithin(warmUpLookBackSeconds))
        if (!seen.contains(folder)) {
            seen.insert(folder);
            folders.append(folder);
        }
    for (const QString& folder : folders.mid(0, warmUpFolderLimit)) {
        const QString root = m_git.gitRoot(folder);
        if (root.isEmpty())
            continue;
        rememberRepository(root);
        const QString head = m_git.currentHead(root);
        if (!head.isEmpty())
            m_headHashes.insert(root, head);
    }
}

void SpotlightMonitor::scan(double multiplier) {
    const std::optional<quint64> changes = m_index.changeCount();
    const QStringList listed = m_index.modifiedWithin(scanLookBackSeconds);
    // Counted before listing: a change recorded in between makes the count differ.
    m_emptyAtCount.store(changes && listed.isEmpty() ? qint64(*changes) : -1);
    const QSet<QString> files(listed.cbegin(), listed.cend());

    QSet<QString> code, docs, touched;
    QHash<QString, QString> rootOfFolder; // one git call per folder and scan
    for (const QString& path : files) {
        if (m_prevScannedPaths.contains(path) || liesInSkippedFolder(path))
            continue;
        const QString ext = extensionOf(path).toLower();
        if (ignoreExts.contains(ext))
            continue;
        if (sourceExts().contains(ext)) {
            code.insert(path);
            const QString folder = folderOf(path);
            auto root = rootOfFolder.constFind(folder);
            if (root == rootOfFolder.cend())
                root = rootOfFolder.insert(folder, m_git.gitRoot(folder));
            if (!root->isEmpty()) {
                touched.insert(*root);
                rememberRepository(*root);
            }
        } else if (docsExts().contains(ext)) {
            docs.insert(path);
        }
    }

    const QDateTime now = m_clock.now();
    const Timestamp end = Timestamp::fromDateTime(now);
    const Timestamp start = end.addSeconds(-30);
    QList<ActivitySession> sessions;
    if (!code.isEmpty())
        sessions.append({QUuid::createUuid(), QStringLiteral("spotlight.source"),
                         savesName(QStringLiteral("💻 Code — "), code.size()), TokenType::reasoning,
                         start, end, scaledTokens(code.size(), codeTokensPerSave, multiplier)});
    if (!docs.isEmpty())
        sessions.append(
            {QUuid::createUuid(), QStringLiteral("spotlight.docs"),
             savesName(QStringLiteral("📝 Docs — "), docs.size()), TokenType::output, start, end,
             std::max<qint64>(scaledTokens(docs.size(), docsTokensPerSave, multiplier), 1)});
    m_store.addSessions(sessions);

    m_prevScannedPaths.unite(files);
    if (m_prevScannedPaths.size() > rememberedPathLimit)
        m_prevScannedPaths = firstOf(m_prevScannedPaths, rememberedPathLimit);

    for (const QString& root : repositoriesToCheck(touched))
        checkCommit(root);

    if (!touched.isEmpty()) {
        const QString name = lastComponent(*touched.cbegin());
        QMetaObject::invokeMethod(
            this, [this, name] { setActiveProject(name); }, Qt::QueuedConnection);
    }
}

QStringList SpotlightMonitor::repositoriesToCheck(const QSet<QString>& touched) {
    // This scan's repositories first, then the other known ones in turn, so that with more
    // than fifteen known repositories each is still checked every few scans.
    QStringList roots;
    for (const QString& root : touched) {
        if (roots.size() == commitChecksPerScan)
            return roots;
        roots.append(root);
    }
    const qsizetype known = m_repoRotation.size();
    for (qsizetype i = 0; i < known && roots.size() < commitChecksPerScan; ++i) {
        const QString& root = m_repoRotation.at(m_rotationCursor);
        m_rotationCursor = (m_rotationCursor + 1) % known;
        if (!touched.contains(root))
            roots.append(root);
    }
    return roots;
}

void SpotlightMonitor::checkCommit(const QString& root) {
    const QString head = m_git.currentHead(root);
    if (head.isEmpty())
        return;
    const QString previous = m_headHashes.value(root);
    m_headHashes.insert(root, head);
    // A repository seen for the first time only records its HEAD.
    if (previous.isEmpty() || previous == head)
        return;
    // Also a HEAD moved back to an older commit: the move itself is the work credited.
    const qint64 lines = m_git.changedLines(root, previous, head);
    const qint64 tokens = lines / commitLinesPerToken;
    const QDateTime now = m_clock.now();
    const Timestamp end = Timestamp::fromDateTime(now);
    m_store.addSession({QUuid::createUuid(), QStringLiteral("git.autodetect"),
                        QStringLiteral("Git [") + lastComponent(root) +
                            QStringLiteral("]: commit +") + QString::number(lines) +
                            QStringLiteral(" lines"),
                        TokenType::output, end.addSeconds(-60), end,
                        tokens > minimumCommitTokens ? tokens : minimumCommitTokens});
}
