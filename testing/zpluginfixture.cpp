// SPDX-License-Identifier: Apache-2.0
#include "zpluginfixture.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QMutexLocker>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <exception>
#include <functional>
#include <utility>
#include <vector>

namespace {

constexpr int PatienceMs = 10000;    // for a file to be unloaded
constexpr int CallersMs = 30000;     // for the calls before and after the exchange
constexpr int CallsOfEach = 25;      // before the exchange, and after it
constexpr int LinesOfTheReport = 20; // the last ones

bool isMapped(const QString &file)
{
    QFile maps(QStringLiteral("/proc/self/maps"));
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains(' ' + QFile::encodeName(file));
}

/// Threads that make a call until they are told to end. If it returns false, the call was missed.
class Callers
{
public:
    Callers(std::function<bool()> call, QString miss, int count) : m_call(std::move(call)), m_miss(std::move(miss))
    {
        for (int i = 0; i < count; ++i) {
            m_threads.emplace_back(QThread::create([this] { run(); }));
            m_threads.back()->start();
        }
    }
    ~Callers() { end(); }

    /// Handles events until the threads have made so many more calls.
    bool goOn()
    {
        const int goal = m_calls + CallsOfEach * static_cast<int>(m_threads.size());
        return QTest::qWaitFor([&] { return m_calls >= goal; }, CallersMs);
    }
    void end()
    {
        m_isOver = true;
        for (const auto &thread : m_threads)
            thread->wait();
    }

    int calls() const { return m_calls; }
    int missed() const { return m_missed; }
    QString firstMiss() const
    {
        const QMutexLocker locker(&m_mutex);
        return m_firstMiss;
    }

private:
    void run()
    {
        while (!m_isOver) {
            const QString miss = call();
            if (!miss.isNull()) {
                const QMutexLocker locker(&m_mutex);
                if (m_missed++ == 0)
                    m_firstMiss = miss;
            }
            ++m_calls;
        }
    }

    /// Makes the call. Returns null if it was not missed.
    QString call() const
    {
        try {
            return m_call() ? QString() : m_miss;
        } catch (const std::exception &exception) {
            return QStringLiteral("it threw \"%1\"").arg(QString::fromLocal8Bit(exception.what()));
        } catch (...) {
            return QStringLiteral("it threw something");
        }
    }

    const std::function<bool()> m_call;
    const QString m_miss;
    std::atomic_bool m_isOver{false};
    std::atomic_int m_calls{0}, m_missed{0};
    mutable QMutex m_mutex;
    QString m_firstMiss;
    std::vector<std::unique_ptr<QThread>> m_threads;
};

/// The line as the report shows it: a tagged line, or a warning or worse; null for other lines.
QString reported(const ZRecordingLogger::Line &line)
{
    if (!line.category.isEmpty())
        return line.category + QStringLiteral(": ") + line.text;
    if (line.severity == QtInfoMsg || line.severity == QtDebugMsg)
        return {};
    return QStringLiteral("warning: ") + line.text;
}

} // namespace

ZPluginFixture::ZPluginFixture(const QVector<QObject *> &own, const ZTestPlace &place)
    : m_place(place), m_libraryPaths(QCoreApplication::libraryPaths()), m_log(new ZRecordingLogger),
      m_logShare(m_log->shared())
{
    QJsonObject configuration;
    QVector<QObject *> handedIn{m_log.data()};
    for (QObject *const each : own) {
        if (qobject_cast<ZLogger *>(each) || qobject_cast<ZLoader *>(each)) {
            fail(place, QStringLiteral("A logger or a loader cannot be handed in: the fixture needs its own."));
            delete each;
        } else if (auto *config = qobject_cast<ZConfig *>(each)) {
            configuration = config->toJson0();
            delete each;
        } else {
            handedIn.append(each);
            if (auto *scheduler = qobject_cast<ZHandScheduler *>(each))
                m_scheduler = scheduler;
        }
    }

    QJsonObject section = configuration.value(QStringLiteral("loader")).toObject();
    section.insert(QStringLiteral("deployed"), QFileInfo(m_folder.path()).canonicalFilePath());
    configuration.insert(QStringLiteral("loader"), section);
    m_host = std::make_unique<ZHost>(configuration, handedIn);
    m_host->begin();
}

ZPluginFixture::~ZPluginFixture()
{
    QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
    m_host.reset();
    QCoreApplication::setLibraryPaths(m_libraryPaths);
    const QStringList files = m_files;
    for (const QString &file : files)
        leaves(file, PatienceMs, m_place);
}

bool ZPluginFixture::load(const QString &file, const ZTestPlace &place)
{
    m_plugin = QFileInfo(file).baseName();
    return loadNext(file, place);
}

/// Loads `file` as the next version of the plugin that was loaded last.
bool ZPluginFixture::loadNext(const QString &file, const ZTestPlace &place)
{
    QString name = m_plugin;
    for (int version = 1; QFile::exists(deployed(name)); ++version)
        name = QStringLiteral("%1.%2").arg(m_plugin).arg(version, 4, 10, QLatin1Char('0'));
    QFile from(file);
    if (!from.copy(deployed(name)))
        return fail(place, QStringLiteral("%1 cannot be copied: %2.").arg(file, from.errorString()));
    m_files.append(deployed(name));
    const QString failure = QStringLiteral("failed to load %1: ").arg(name);
    // A plugin that nobody holds may be gone already when the loader returns.
    return services().loader->load0(name) || !m_log->has(failure) ||
           fail(place, QStringLiteral("%1 does not load.").arg(file));
}

QString ZPluginFixture::deployed(const QString &name) const
{
    return QFileInfo(m_folder.path()).canonicalFilePath() + QStringLiteral("/%1.so").arg(name);
}

QJsonObject ZPluginFixture::call(const QUrl &url, QJsonObject in, const ZTestPlace &place)
{
    QJsonObject out;
    if (!services().dbus->invoke0(url, &in, &out))
        fail(place, QStringLiteral("Nobody has handled the call of %1.").arg(url.toString()));
    return out;
}

bool ZPluginFixture::replace(const QString &next, const QUrl &url, const QJsonObject &in, int callers,
                             const ZTestPlace &place)
{
    const auto call = [&] {
        QJsonObject copy = in, out;
        return services().dbus->invoke0(url, &copy, &out);
    };
    return replace(next, {url.toString(), QStringLiteral("nobody handled it"), call}, callers, place);
}

bool ZPluginFixture::replace(const QString &next, const std::function<bool()> &call, int callers,
                             const ZTestPlace &place)
{
    return replace(next, {QStringLiteral("the test"), QStringLiteral("it answered false"), call}, callers, place);
}

bool ZPluginFixture::replace(const QString &next, const Call &call, int callers, const ZTestPlace &place)
{
    if (m_files.isEmpty())
        return fail(place, QStringLiteral("There is nothing to be replaced: load a plugin first."));
    const QString before = m_files.constLast();
    Activities activities = m_scheduler ? m_scheduler->all() : Activities();

    Callers calling(call.make, call.miss, callers);
    const auto missed = [&](const char *when) {
        calling.end();
        return fail(place, QStringLiteral("%1 of %2 calls of %3 were missed, %4. Of the first: %5.")
                               .arg(calling.missed())
                               .arg(calling.calls())
                               .arg(call.of, QLatin1String(when), calling.firstMiss()));
    };
    const auto stuck = [&](const char *when) {
        return fail(place, QStringLiteral("The calls of %1 do not come to an end %2: there were %3 in %4 s.")
                               .arg(call.of, QLatin1String(when))
                               .arg(calling.calls())
                               .arg(CallersMs / 1000));
    };
    if (!calling.goOn())
        return stuck("before the exchange");
    if (calling.missed() > 0)
        return missed("before anything was replaced");
    if (!loadNext(next, place))
        return false;
    if (!calling.goOn())
        return stuck("after the exchange");
    calling.end();
    if (calling.missed() > 0)
        return missed("as the next version took over");
    // Ends the activities that were cancelled, by running them once more: a scheduler by hand never asks their
    // schedule, which would tell them.
    if (m_scheduler)
        m_scheduler->run(std::exchange(activities, {}));
    return leaves(before, PatienceMs, place);
}

bool ZPluginFixture::leavesMemory(int msecs, const ZTestPlace &place)
{
    if (m_files.isEmpty())
        return fail(place, QStringLiteral("There is nothing to leave memory: load a plugin first."));
    if (m_scheduler)
        m_scheduler->tick();
    return leaves(m_files.constLast(), msecs, place);
}

/// Takes a copy of the name, which may be the one that it forgets.
bool ZPluginFixture::leaves(QString file, int msecs, const ZTestPlace &place)
{
    const bool isGone = QTest::qWaitFor([&] { return !isMapped(file); }, msecs);
    m_files.removeOne(file); // so that it is reported only once
    return isGone || fail(place, QStringLiteral("%1 stays in memory. Something holds it: a pointer to it, a thread, "
                                                "an activity, a subscriber that is bound.")
                                     .arg(QFileInfo(file).fileName()));
}

bool ZPluginFixture::fail(const ZTestPlace &place, const QString &text) const
{
    place.fail(text + QLatin1Char('\n') + report().join(QStringLiteral("\n    ")));
    return false;
}

/// The lines of the log, but for the plain messages of plugins.
QStringList ZPluginFixture::report() const
{
    QStringList lines;
    const QVector<ZRecordingLogger::Line> all = m_log->all();
    for (const ZRecordingLogger::Line &line : all) {
        const QString text = reported(line);
        if (!text.isNull())
            lines.append(text);
    }
    if (lines.isEmpty())
        return {QStringLiteral("The log has said nothing of it.")};
    return QStringList(QStringLiteral("The log has said:")) + lines.mid(qMax(0, lines.size() - LinesOfTheReport));
}
