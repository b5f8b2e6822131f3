// SPDX-License-Identifier: Apache-2.0
#include "node.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QTimer>

#include <algorithm>
#include <cstdlib>
#include <thread>

namespace {

constexpr int Threads = 128;
constexpr int NeverMs = -1;

QString textIn(const QJsonObject &object, const char *key) { return object.value(QLatin1String(key)).toString(); }

QJsonArray textsOf(const QList<QUrl> &urls)
{
    QStringList texts;
    for (const QUrl &url : urls)
        texts << url.toString();
    texts.sort();
    return QJsonArray::fromStringList(texts);
}

/// The files in memory whose names have `part` in them.
QJsonArray mapped(const QString &part)
{
    QFile maps(QStringLiteral("/proc/self/maps"));
    QStringList files;
    if (maps.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = maps.readAll().split('\n');
        for (const QByteArray &line : lines) {
            if (line.contains('/') && line.contains(part.toUtf8()))
                files << QString::fromUtf8(line.mid(line.indexOf('/')));
        }
    }
    files.removeDuplicates();
    return QJsonArray::fromStringList(files);
}

/// As `QThreadPool::start` of a later Qt.
class Deed : public QRunnable
{
public:
    explicit Deed(std::function<void()> deed) : m_deed(std::move(deed)) {}
    void run() override { m_deed(); }

private:
    const std::function<void()> m_deed;
};

/// Dies by its owner alone.
void keep(Node *) {}

} // namespace

Node::Node(const QString &name, Answer answer) : m_name(name), m_answer(std::move(answer)), m_self(this, keep)
{
    m_threads.setMaxThreadCount(Threads);
}

Node::~Node() { m_threads.waitForDone(NeverMs); }

void Node::obey(const QJsonObject &command)
{
    const int id = command.value(QStringLiteral("id")).toInt();
    const QString deed = textIn(command, "do");
    const auto answerWith = [this, id](QJsonObject answer) {
        answer.insert(QStringLiteral("id"), id);
        m_answer(answer);
    };
    static const QStringList waits{QStringLiteral("call"), QStringLiteral("outcome"), QStringLiteral("find"),
                                   QStringLiteral("findall"), QStringLiteral("begin")};
    if (deed == QLatin1String("async"))
        begin(id, command);
    else if (waits.contains(deed))
        m_threads.start(new Deed([this, deed, command, answerWith] { answerWith(waiting(deed, command)); }));
    else
        answerWith(atOnce(deed, command));
}

QJsonObject Node::atOnce(const QString &deed, const QJsonObject &command)
{
    const QString url = textIn(command, "url");
    const QString key = textIn(command, "key");
    if (deed == QLatin1String("bind"))
        return {{QStringLiteral("done"), bind(command)}};
    if (deed == QLatin1String("unbind"))
        return {{QStringLiteral("done"), m_places.remove(url) > 0}};
    if (deed == QLatin1String("calls"))
        return m_places.contains(url) ? m_places[url].record->report() : QJsonObject();
    if (deed == QLatin1String("swap")) {
        swap(command.value(QStringLiteral("ms")).toInt());
    } else if (deed == QLatin1String("load")) {
        m_loads[key] = std::make_unique<NodeLoad>(command, m_outcome);
    } else if (deed == QLatin1String("report")) {
        return m_loads.count(key) ? m_loads[key]->report() : QJsonObject();
    } else if (deed == QLatin1String("work")) {
        m_works[key] = std::make_unique<NodeWork>(command, m_lease);
    } else if (deed == QLatin1String("want")) {
        return {{QStringLiteral("done"),
                 m_lease && m_lease->want0(textIn(command, "lease"), command.value(QStringLiteral("ms")).toInt())}};
    } else if (deed == QLatin1String("forget")) {
        m_lease->forget0(textIn(command, "lease"));
    } else if (deed == QLatin1String("mapped")) {
        return {{QStringLiteral("files"), mapped(textIn(command, "part"))}};
    } else if (deed == QLatin1String("unload")) { // stops the callers
        QJsonObject report;
        if (m_loads.count(key)) {
            m_loads[key]->stop();
            report = m_loads[key]->report();
            m_loads.erase(key);
        }
        return report;
    } else if (deed == QLatin1String("rest")) {
        return m_works.count(key) ? m_works[key]->stop() : QJsonObject();
    } else if (deed == QLatin1String("exit")) {
        std::thread([command] { std::exit(command.value(QStringLiteral("status")).toInt()); }).detach();
    } else if (deed == QLatin1String("quit")) {
        m_loads.clear();
        m_works.clear();
        Q_EMIT isToQuit();
    } else {
        return {{QStringLiteral("error"), QStringLiteral("no such command: ") + deed}};
    }
    return {{QStringLiteral("done"), true}};
}

QJsonObject Node::waiting(const QString &deed, const QJsonObject &command) const
{
    QElapsedTimer timer;
    timer.start();
    QJsonObject answer;
    const QUrl url(textIn(command, "url"));
    if (deed == QLatin1String("call") || deed == QLatin1String("outcome")) {
        answer = call(command, deed == QLatin1String("outcome"));
    } else if (deed == QLatin1String("find")) {
        answer.insert(QStringLiteral("found"), m_bus->find0(url));
    } else if (deed == QLatin1String("findall")) {
        const auto options = QRegularExpression::PatternOptions(command.value(QStringLiteral("options")).toInt());
        answer.insert(QStringLiteral("urls"),
                      textsOf(m_bus->findAll0(QRegularExpression(textIn(command, "pattern"), options))));
    } else {
        QString reason;
        answer.insert(QStringLiteral("begun"),
                      m_lease->begin0(textIn(command, "lease"),
                                      static_cast<qint64>(command.value(QStringLiteral("slot")).toDouble()), reason));
        answer.insert(QStringLiteral("reason"), reason);
    }
    answer.insert(QStringLiteral("ms"), timer.elapsed());
    return answer;
}

/// With "in" and "out" where the command has them; "bytes" makes an "in" of that size.
QJsonObject Node::call(const QJsonObject &command, bool withOutcome) const
{
    const QUrl url(textIn(command, "url"));
    QJsonObject in = command.value(QStringLiteral("in")).toObject();
    const int bytes = command.value(QStringLiteral("bytes")).toInt();
    if (bytes > 0)
        in.insert(QStringLiteral("data"), QString(bytes, QLatin1Char('x')));
    QJsonObject out = command.value(QStringLiteral("out")).toObject();
    QJsonObject *const question = command.contains(QStringLiteral("in")) || bytes > 0 ? &in : nullptr;
    QJsonObject *const answer = command.contains(QStringLiteral("out")) ? &out : nullptr;
    QJsonObject outcome, result;
    try {
        const bool isHandled = withOutcome && m_outcome ? m_outcome->call0(url, question, answer, &outcome)
                                                        : m_bus->invoke0(url, question, answer);
        result.insert(QStringLiteral("handled"), isHandled);
    } catch (const std::exception &) {
        result.insert(QStringLiteral("thrown"), true);
    }
    if (question)
        result.insert(QStringLiteral("in"), in);
    if (answer)
        result.insert(QStringLiteral("out"), out);
    if (withOutcome)
        result.insert(QStringLiteral("outcome"), outcome);
    return result;
}

bool Node::bind(const QJsonObject &command)
{
    const QString url = textIn(command, "url");
    QJsonObject options = command;
    options.insert(QStringLiteral("name"), m_name);
    Place &place = m_places[url];
    place.url = QUrl(url);
    place.options = options;
    place.record = QSharedPointer<NodeRecord>::create(textIn(command, "journal"));
    return settle(&place);
}

/// Binds a new endpoint; the one before dies once its calls have ended.
bool Node::settle(Place *place)
{
    const QSharedPointer<ZDbusSubscriber> before = place->endpoint;
    if (place->options.value(QStringLiteral("object")).toBool())
        place->endpoint = QSharedPointer<NodeObject>::create(place->options, place->record, m_bus);
    else
        place->endpoint = QSharedPointer<NodeEndpoint>::create(place->options, place->record, m_bus);
    return m_bus->bind0(place->url, place->endpoint);
}

/// Has all endpoints take turns with new ones.
void Node::swap(int msecs)
{
    auto *const timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, [this] {
        for (Place &place : m_places)
            settle(&place);
    });
    timer->start(msecs);
}

void Node::begin(int id, const QJsonObject &command)
{
    QJsonObject request;
    for (const QString &key : {QStringLiteral("in"), QStringLiteral("out")}) {
        if (command.contains(key))
            request.insert(key, command.value(key));
    }
    const qint64 number = m_async ? m_async->begin0(QUrl(textIn(command, "url")), request, m_self) : 0;
    if (number == 0) {
        m_answer({{QStringLiteral("id"), id}, {QStringLiteral("call"), 0}});
        return;
    }
    m_begun.insert(number, id);
    if (m_early.contains(number))
        answered(number, m_early.take(number));
}

void Node::answered(qint64 call, const QJsonObject &answer)
{
    if (!m_begun.contains(call)) {
        m_early.insert(call, answer);
        return;
    }
    m_answer({{QStringLiteral("id"), m_begun.take(call)},
              {QStringLiteral("call"), call},
              {QStringLiteral("answer"), answer}});
}
