// SPDX-License-Identifier: Apache-2.0
#include "nodeprocess.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QTest>

namespace {
constexpr int PatienceMs = 60000;
const QString Ready = QStringLiteral("ready");
} // namespace

NodeProcess::NodeProcess(const QString &name, const QJsonValue &section) : m_name(name), m_section(section)
{
    connect(&m_process, &QProcess::readyReadStandardOutput, this, &NodeProcess::read);
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // Else the leak check guesses where a plugin's thread-local variables are, by an address that ends in 0x010; and it
    // crashes where it guesses wrong.
    setVariable(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("intercept_tls_get_addr=0"));
}

NodeProcess::~NodeProcess()
{
    m_process.disconnect(this);
    m_process.end();
}

void NodeProcess::setVariable(const QString &name, const QString &value) { m_environment.insert(name, value); }

bool NodeProcess::start()
{
    const auto texts = [](const QStringList &list) { return QJsonArray::fromStringList(list); };
    QJsonObject configuration{
        {QStringLiteral("logger"),
         QJsonObject{{QStringLiteral("debug"), 1},
                     {QStringLiteral("info"), 1},
                     {QStringLiteral("warning"), 1},
                     {QStringLiteral("log"), QJsonObject{{QStringLiteral("zdefault"), m_mask}}}}},
        {QStringLiteral("loader"),
         QJsonObject{{QStringLiteral("deployed"), m_deployed.path()},
                     {QStringLiteral("hot-deploy"), m_hot.path()},
                     {QStringLiteral("load-list"),
                      texts(m_isLoading ? QStringList{QStringLiteral("znats")} : QStringList())}}}};
    if (m_section.isObject()) {
        QJsonObject section = m_section.toObject();
        section.insert(QStringLiteral("name"), m_name);
        configuration.insert(QStringLiteral("nats"), section);
    } else if (!m_section.isUndefined()) {
        configuration.insert(QStringLiteral("nats"), m_section);
    }
    const QString file = m_deployed.filePath(QStringLiteral("configuration.json"));
    m_deployed.write(QStringLiteral("configuration.json"), QJsonDocument(configuration).toJson());
    QFile::copy(QStringLiteral(ZNATS), m_deployed.filePath(QStringLiteral("libznats.so")));
    m_events.clear();
    m_process.setProcessEnvironment(m_environment);
    m_process.start(QStringLiteral(NATS_NODE), {file, m_name});
    return waitUntil([this] { return m_events.contains(Ready); }, PatienceMs);
}

bool NodeProcess::startConnected()
{
    return start() && waitUntil([this] { return isConnected(); }, PatienceMs);
}

bool NodeProcess::isConnected() { return at(report(), "connection", "state").toString() == QLatin1String("connected"); }

qint64 NodeProcess::quit()
{
    QElapsedTimer timer;
    timer.start();
    begin(QStringLiteral("quit"));
    waitUntil([this] { return m_process.state() == QProcess::NotRunning; }, PatienceMs);
    return hasEndedWell() ? timer.elapsed() : -1;
}

void NodeProcess::kill() { m_process.end(); }

bool NodeProcess::hasEndedWell() const
{
    return m_process.state() == QProcess::NotRunning && m_process.exitStatus() == QProcess::NormalExit &&
           m_process.exitCode() == 0;
}

int NodeProcess::waitForExit()
{
    const bool isOver = waitUntil([this] { return m_process.state() == QProcess::NotRunning; }, PatienceMs);
    return isOver && m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

QJsonObject NodeProcess::ask(const QString &deed, QJsonObject arguments, int msecs)
{
    return answer(begin(deed, std::move(arguments)), msecs);
}

int NodeProcess::begin(const QString &deed, QJsonObject arguments)
{
    arguments.insert(QStringLiteral("do"), deed);
    arguments.insert(QStringLiteral("id"), ++m_lastId);
    m_process.write(QJsonDocument(arguments).toJson(QJsonDocument::Compact) + '\n');
    m_process.waitForBytesWritten(0);
    return m_lastId;
}

QJsonObject NodeProcess::answer(int id, int msecs)
{
    if (!waitUntil([&] { return hasAnswered(id) || m_process.state() == QProcess::NotRunning; }, msecs))
        qWarning("%s does not answer", qUtf8Printable(m_name));
    return m_answers.take(id);
}

bool NodeProcess::bind(const QString &url, const QJsonObject &options)
{
    QJsonObject arguments = options;
    arguments.insert(QStringLiteral("url"), url);
    return at(ask(QStringLiteral("bind"), arguments), "done").toBool();
}

QJsonObject NodeProcess::call(const QString &url, const QJsonObject &in)
{
    return ask(QStringLiteral("outcome"),
               {{QStringLiteral("url"), url}, {QStringLiteral("in"), in}, {QStringLiteral("out"), QJsonObject()}});
}

QJsonObject NodeProcess::report()
{
    return at(ask(QStringLiteral("call"), {{QStringLiteral("url"), QStringLiteral("//nats/printd#quiet")},
                                           {QStringLiteral("out"), QJsonObject()}}),
              "out")
        .toObject();
}

bool NodeProcess::drop(const QString &file)
{
    const QString beside = m_hot.filePath(QStringLiteral("part"));
    return QFile::copy(QStringLiteral(ZNATS), beside) && QFile::rename(beside, m_hot.filePath(file));
}

QStringList NodeProcess::mappedVersions()
{
    QStringList files;
    const QJsonArray found =
        at(ask(QStringLiteral("mapped"), {{QStringLiteral("part"), QStringLiteral("libznats")}}), "files").toArray();
    for (const auto &file : found)
        files << file.toString();
    return files;
}

bool NodeProcess::hasMapped(const QString &file) { return !mappedVersions().filter(QLatin1Char('/') + file).isEmpty(); }

qint64 NodeProcess::loopDelay()
{
    QElapsedTimer timer;
    timer.start();
    ask(QStringLiteral("calls"));
    return timer.elapsed();
}

QStringList NodeProcess::takeLog() { return std::exchange(m_log, {}); }

bool NodeProcess::hasLogged(const QString &text) const { return m_log.join(QLatin1Char('\n')).contains(text); }

void NodeProcess::read()
{
    m_unread += m_process.readAllStandardOutput();
    int begin = 0;
    for (int end = m_unread.indexOf('\n'); end >= 0; end = m_unread.indexOf('\n', begin)) {
        const QJsonObject line = QJsonDocument::fromJson(m_unread.mid(begin, end - begin)).object();
        begin = end + 1;
        if (line.contains(QStringLiteral("log")))
            m_log << at(line, "log").toString();
        else if (line.contains(QStringLiteral("event")))
            m_events << at(line, "event").toString();
        else
            m_answers.insert(at(line, "id").toInt(), line);
    }
    m_unread.remove(0, begin);
}

template <class Condition>
bool NodeProcess::waitUntil(Condition condition, int msecs)
{
    return QTest::qWaitFor(
        [&] {
            if (m_process.state() == QProcess::NotRunning)
                read();
            return condition();
        },
        msecs);
}

QJsonObject sectionFor(const QString &server, const QJsonObject &more)
{
    QJsonObject section{{QStringLiteral("servers"), QJsonArray{server}},
                        {QStringLiteral("serve"), QJsonArray{QStringLiteral("*")}}};
    for (auto entry = more.begin(); entry != more.end(); ++entry)
        section.insert(entry.key(), entry.value());
    return section;
}
