// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "child.h"
#include "folder.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QStringList>

/// Part of a JSON object: `at(answer, "outcome", "code")`.
inline QJsonValue at(const QJsonValue &value) { return value; }
template <class... Keys>
QJsonValue at(const QJsonValue &value, const char *key, Keys... keys)
{
    return at(value.toObject().value(QLatin1String(key)), keys...);
}

/**
 * A host in a process of its own, which has the plugin on its load-list and does what it is told: see `Node`. A wait
 * handles events.
 */
class NodeProcess : public QObject
{
    Q_OBJECT

public:
    /// The name, and the section "nats" with everything but the name. With an undefined section there is none.
    NodeProcess(const QString &name, const QJsonValue &section);
    ~NodeProcess() override;

    void setVariable(const QString &name, const QString &value);
    /// The kinds of lines that its log has. Before the start.
    void setMask(int mask) { m_mask = mask; }
    /// Whether the load-list has the plugin. Before the start.
    void setLoading(bool isLoading) { m_isLoading = isLoading; }
    /// Starts it, and waits until its plugins are loaded; not until they are connected.
    bool start();
    /// The same, and until it is connected.
    bool startConnected();
    bool isConnected();
    /// Has it quit, and waits for that. How long that took; -1 if it did not end well.
    qint64 quit();
    void kill();
    void signal(int number) const { m_process.signal(number); }
    bool hasEndedWell() const;
    /// Its exit code, once it has ended; -1 if it does not, or has crashed.
    int waitForExit();

    /// Tells it to do something, and waits for its answer; an empty one if that does not come.
    QJsonObject ask(const QString &deed, QJsonObject arguments = {}, int msecs = 60000);
    /// The same without waiting. The answer is at `answer` afterwards.
    int begin(const QString &deed, QJsonObject arguments = {});
    QJsonObject answer(int id, int msecs = 60000);
    bool hasAnswered(int id) const { return m_answers.contains(id); }

    bool bind(const QString &url, const QJsonObject &options = {});
    /// Calls through the interface that says the outcome; "in" and "out" are empty objects, unless they are given.
    QJsonObject call(const QString &url, const QJsonObject &in = {});
    bool handles(const QString &url) { return at(call(url), "handled").toBool(); }
    int code(const QString &url) { return at(call(url), "outcome", "code").toInt(); }
    /// How often the endpoint at this URL was called.
    int calls(const QString &url)
    {
        return at(ask(QStringLiteral("calls"), {{QStringLiteral("url"), url}}), "n").toInt();
    }
    /// What "//nats/printd" says.
    QJsonObject report();
    /// Drops the plugin into its hot-deploy folder under the name of a further version.
    bool drop(const QString &file);
    /// The files of the plugin that are in its memory.
    QStringList mappedVersions();
    bool hasMapped(const QString &file);
    bool hasMappedOnly(const QString &file) { return mappedVersions().size() == 1 && hasMapped(file); }
    /// How long its event loop takes to answer.
    qint64 loopDelay();

    QString name() const { return m_name; }
    QStringList log() const { return m_log; }
    QStringList takeLog();
    /// For QTRY_VERIFY.
    bool hasLogged(const QString &text) const;

private:
    void read();
    template <class Condition>
    bool waitUntil(Condition condition, int msecs);

    const QString m_name;
    const QJsonValue m_section;
    Folder m_deployed, m_hot;
    int m_mask = 16;
    bool m_isLoading = true;
    QProcessEnvironment m_environment = QProcessEnvironment::systemEnvironment();
    Child m_process;
    QByteArray m_unread;
    QStringList m_log, m_events;
    QMap<int, QJsonObject> m_answers;
    int m_lastId = 0;
};

/// A section "nats" for this broker, with all hosts served.
QJsonObject sectionFor(const QString &server, const QJsonObject &more = {});
