// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "runninghost.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QTest>

#include <httplib.h>

inline QString textIn(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}
inline bool isIn(const QJsonObject &object, const char *key) { return object.value(QLatin1String(key)).toBool(); }
inline int numberIn(const QJsonObject &object, const char *key) { return object.value(QLatin1String(key)).toInt(-1); }

/// What the door has answered; a status of 0 if that is nothing.
struct Answered
{
    int status = 0;
    QByteArray body;
    httplib::Headers headers;

    QJsonObject object() const { return QJsonDocument::fromJson(body).object(); }
    QJsonArray array() const { return QJsonDocument::fromJson(body).array(); }
    QString error() const { return object().value(QStringLiteral("error")).toString(); }
};

/// A host with a door at a Unix socket of its own.
class DoorHost
{
public:
    QJsonObject configuration() const
    {
        QJsonObject result = loaderOf(deployed, hotDeploy, loadList);
        result.insert(QStringLiteral("door"), door);
        result.insert(QStringLiteral("schedule"), schedule);
        result.insert(QStringLiteral("guard"), QJsonObject{{QStringLiteral("probation"), probation}});
        for (auto section = sections.begin(); section != sections.end(); ++section)
            result.insert(section.key(), section.value());
        return result;
    }
    /// Starts it with these plugins, and waits until they are loaded.
    bool startsWith(const QStringList &plugins, const QString &deed = QString(),
                    const QString &variable = QStringLiteral("UNRULY"))
    {
        for (const QString &plugin : plugins)
            deployed.drop(plugin);
        loadList = plugins;
        start(deed, variable);
        return isReady();
    }
    void start(const QString &deed = QString(), const QString &variable = QStringLiteral("UNRULY"))
    {
        running = std::make_unique<Running>(
            configuration(),
            QMap<QString, QString>{{QStringLiteral("RUNTIME_DIRECTORY"), folder.path()}, {variable, deed}},
            QStringList());
    }
    /// Has it listen at a port that the system chooses, from its next start on, as well. False if there is no token.
    bool listenByTcp()
    {
        const QString file = folder.filePath(QStringLiteral("token"));
        door = QJsonObject{{QStringLiteral("listen"), QStringLiteral("127.0.0.1:0")},
                           {QStringLiteral("token-file"), file}};
        return folder.write(QStringLiteral("token"), Token) &&
               QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner);
    }
    /// By which it is asked by TCP; 0 if it is not.
    int port() const
    {
        const QString place = get("/v1/report/host").object().value(QStringLiteral("door")).toArray().at(1).toString();
        return place.section(QLatin1Char(':'), -1).toInt();
    }
    /// Waits until the plugins are loaded.
    bool isReady()
    {
        return QTest::qWaitFor([this] { return get("/readyz").status == 200; }, Patience);
    }

    /// The one socket in the runtime folder; empty if there is none yet.
    QString socket() const
    {
        const QStringList sockets = QDir(folder.path()).entryList({QStringLiteral("*.sock")}, QDir::System);
        return sockets.size() == 1 ? folder.filePath(sockets.first()) : QString();
    }
    httplib::Client client() const
    {
        httplib::Client client(QFile::encodeName(socket()).toStdString());
        client.set_address_family(AF_UNIX);
        client.set_read_timeout(Patience / 1000);
        return client;
    }
    Answered get(const char *path, const httplib::Headers &headers = {}) const
    {
        return answered(client().Get(path, headers));
    }
    Answered post(const std::string &path, const QByteArray &body = "{}") const
    {
        return answered(client().Post(path, body.toStdString(), "application/json"));
    }
    Answered call(const char *url, const QByteArray &in = "{}", int deadline = Patience) const
    {
        return post("/v1/call?url=" + std::string(url) + "&deadline=" + std::to_string(deadline), in);
    }
    Answered put(const char *path, const QByteArray &body) const
    {
        return answered(client().Put(path, body.toStdString(), "application/json"));
    }
    static Answered answered(const httplib::Result &result)
    {
        return result ? Answered{result->status, QByteArray::fromStdString(result->body), result->headers} : Answered();
    }

    /// The object of a list of the report in which `key` is `value`; empty if there is none.
    QJsonObject find(const char *part, const char *key, const QJsonValue &value) const
    {
        const QJsonArray list = get((std::string("/v1/report/") + part).c_str()).array();
        for (const auto &element : list) {
            if (element.toObject().value(QLatin1String(key)) == value)
                return element.toObject();
        }
        return {};
    }
    QJsonObject plugin(const QString &file) const { return find("plugins", "file", file); }
    bool isInMemory(const QString &file) const { return plugin(file).value(QStringLiteral("inMemory")).toBool(); }

    static constexpr char Token[] = "the token of the tests";

    const Folder folder, deployed, hotDeploy;
    QStringList loadList;
    QJsonArray schedule;
    QJsonValue door = QJsonObject();
    QJsonObject sections; ///< Further ones, or in place of those above.
    int probation = 1;
    std::unique_ptr<Running> running;
};
