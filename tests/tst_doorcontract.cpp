// SPDX-License-Identifier: Apache-2.0
#include "door/contract.h"
#include "door/doorhost.h"
#include "place.h"
#include "testcase.h"

#include <QRegularExpression>

/// What the contract says of the door is so: each request in it is made, and what is answered is what it says.
class tst_DoorContract : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void isTheOneThatTheHostHandsOut();
    void namesEveryRoute();
    void isKept_data();
    void isKept();
    void isAskedAsAWhole();

private:
    const Contract m_contract{QJsonDocument::fromJson(textAt(CONTRACT)).object()};
    DoorHost m_host;
    QStringList m_asked;

    static QByteArray textAt(const char *path)
    {
        QFile file(QString::fromLocal8Bit(path));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    QStringList requests() const;
};

QStringList tst_DoorContract::requests() const
{
    QStringList result;
    const QJsonObject paths = m_contract.paths();
    for (auto path = paths.begin(); path != paths.end(); ++path) {
        for (const QString &method : path->toObject().keys())
            result.append(method.toUpper() + QLatin1Char(' ') + path.key());
    }
    return result;
}

void tst_DoorContract::initTestCase()
{
    m_host.loadList = QStringList{QStringLiteral("libecho"), QStringLiteral("libgreeter"), QStringLiteral("libafar")};
    QJsonObject often = entry("//echo/often");
    often.insert(QStringLiteral("every"), 1000); // else it may be running when it is to be run
    m_host.schedule = QJsonArray{often, entry("//echo/once", false)};
    QVERIFY(m_host.deployed.drop(QStringLiteral("echo")));
    QVERIFY(m_host.deployed.drop(QStringLiteral("afar")));
    QVERIFY(m_host.deployed.write(QStringLiteral("libgreeter.so"),
                                  contentOf(pluginFile(QStringLiteral("greeter"))) + "another"));
    m_host.start();
    QVERIFY(m_host.isReady());
    const auto isGood = [&](const char *file) {
        return m_host.find("plugins", "file", QLatin1String(file)).value(QStringLiteral("state")) ==
               QLatin1String("good");
    };
    QTRY_VERIFY_WITH_TIMEOUT(isGood("libgreeter.so"), Patience);
    QVERIFY(m_host.hotDeploy.drop(QStringLiteral("greeter"), QStringLiteral("libgreeter.0001.so")));
    QTRY_VERIFY_WITH_TIMEOUT(isGood("libgreeter.0001.so"), Patience);
}

void tst_DoorContract::isTheOneThatTheHostHandsOut() { QCOMPARE(m_host.get("/openapi.json").body, textAt(CONTRACT)); }

/// The program's list of them, in its source: there a star stands for a name, and one for all parts of the report.
void tst_DoorContract::namesEveryRoute()
{
    QStringList named;
    const QStringList all = requests();
    for (QString request : all) {
        request.replace(QRegularExpression(QStringLiteral("\\{\\w+\\}|(?<=/report/)\\w+")), QStringLiteral("*"));
        named.append(request);
    }
    named.removeDuplicates();
    QStringList routes;
    auto found = QRegularExpression(QStringLiteral("add\\(\"(\\w+)\", \"([^\"]+)\""))
                     .globalMatch(QString::fromUtf8(textAt(ROUTES)));
    while (found.hasNext()) {
        const QRegularExpressionMatch match = found.next();
        routes.append(match.captured(1) + QLatin1Char(' ') + match.captured(2));
    }
    named.sort();
    routes.sort();
    QVERIFY(!routes.isEmpty());
    QCOMPARE(named, routes);
}

void tst_DoorContract::isKept_data()
{
    QTest::addColumn<QString>("request"); // as the contract has it
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");

    const auto add = [](const char *request, const char *path, int status = 200, const char *body = "") {
        QTest::addRow("%s: %s %s, %d", request, path, body, status)
            << QString::fromLatin1(request) << QByteArray(path) << QByteArray(body) << status;
    };
    add("GET /v1/report", "/v1/report");
    for (const char *part :
         {"/v1/report/host", "/v1/report/plugins", "/v1/report/services", "/v1/report/endpoints", "/v1/report/schedule",
          "/v1/report/threads", "/v1/report/configuration", "/v1/report/events", "/v1/report/bus", "/healthz",
          "/readyz", "/metrics", "/openapi.json", "/v1/log", "/"})
        add(qPrintable(QStringLiteral("GET ") + QLatin1String(part)), part);
    add("GET /page/{name}", "/page/page.css");
    add("GET /page/{name}", "/page/none", 404);
    add("GET /v1/log", "/v1/log?lines=1000");
    add("POST /v1/call", "/v1/call?url=//echo/x", 200, R"({"a":1})");
    add("POST /v1/call", "/v1/call?url=//nobody/x");
    add("POST /v1/call", "/v1/call?url=//echo/throw&deadline=60000");
    add("PUT /v1/log", "/v1/log", 200, R"({"log":{"zdefault":7},"severities":{"info":true}})");
    add("PUT /v1/log", "/v1/log", 400, "{}");
    add("POST /v1/schedule/{index}/restart", "/v1/schedule/0/restart", 409);
    add("POST /v1/schedule/{index}/run", "/v1/schedule/0/run");
    add("POST /v1/schedule/{index}/run", "/v1/schedule/9/run", 404);
    add("POST /v1/schedule/{index}/cancel", "/v1/schedule/0/cancel");
    add("POST /v1/schedule/{index}/cancel", "/v1/schedule/9/cancel", 404);
    add("POST /v1/schedule/{index}/restart", "/v1/schedule/9/restart", 404);
    add("POST /v1/schedule/{index}/restart", "/v1/schedule/1/restart");
    add("POST /v1/plugins/{name}/release", "/v1/plugins/greeter/release");
    add("POST /v1/plugins/{name}/release", "/v1/plugins/none/release", 404);
    add("POST /v1/plugins/{name}/rollback", "/v1/plugins/none/rollback", 404);
    add("POST /v1/plugins/{name}/rollback", "/v1/plugins/greeter/rollback");
    add("GET /v1/report", "/v1/report"); // after all that
    add("POST /v1/reload", "/v1/reload", 202);
    add("POST /v1/stop", "/v1/stop", 202);
}

void tst_DoorContract::isKept()
{
    QFETCH(QString, request);
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, body);
    QFETCH(int, status);

    m_asked.append(request);
    const QString method = request.section(QLatin1Char(' '), 0, 0);
    if (path.endsWith("/1/restart"))
        QTRY_VERIFY_WITH_TIMEOUT(
            m_host.find("schedule", "index", 1).value(QStringLiteral("state")) == QLatin1String("ended"), Patience);
    const Answered answer = method == QLatin1String("GET")   ? m_host.get(path.constData())
                            : method == QLatin1String("PUT") ? m_host.put(path.constData(), body)
                                                             : m_host.post(path.toStdString(), body);
    QCOMPARE(answer.status, status);
    const QJsonObject operation =
        m_contract.paths().value(request.section(QLatin1Char(' '), 1)).toObject().value(method.toLower()).toObject();
    const QJsonObject responses = operation.value(QStringLiteral("responses")).toObject();
    QVERIFY(responses.contains(QString::number(status)));
    const QJsonObject content = m_contract.resolved(responses.value(QString::number(status)).toObject())
                                    .value(QStringLiteral("content"))
                                    .toObject();
    const auto type = answer.headers.find("Content-Type");
    QVERIFY(type != answer.headers.end());
    const QString told = QString::fromStdString(type->second).section(QLatin1Char(';'), 0, 0);
    if (content.isEmpty()) // any
        return;
    QVERIFY2(content.contains(told), qPrintable(told));
    if (told != QLatin1String("application/json"))
        return;
    const QJsonDocument document = QJsonDocument::fromJson(answer.body);
    const QJsonValue value = document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
    QCOMPARE(m_contract.whyNot(value, content.value(told).toObject().value(QStringLiteral("schema")).toObject()),
             QString());
}

void tst_DoorContract::isAskedAsAWhole()
{
    m_asked.removeDuplicates();
    m_asked.sort();
    QStringList all = requests();
    all.sort();
    QCOMPARE(m_asked, all);
}

QTEST_GUILESS_MAIN(tst_DoorContract)
#include "tst_doorcontract.moc"
