// SPDX-License-Identifier: Apache-2.0
// What the door has for a browser, and what it answers to who asks for what is not there.
#include "door/doorhost.h"
#include "testcase.h"

#include <QRegularExpression>

class tst_DoorPage : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void servesThePageWithAllOfIt();
    void servesItsContract();
    void saysThatThereIsNothing_data();
    void saysThatThereIsNothing();
    void saysHowItCannotBeAsked_data();
    void saysHowItCannotBeAsked();
    void answersHeadLikeGetWithoutABody();

private:
    static std::string typeOf(const Answered &answered)
    {
        const auto type = answered.headers.find("Content-Type");
        return type == answered.headers.end() ? std::string() : type->second;
    }
};

void tst_DoorPage::servesThePageWithAllOfIt()
{
    DoorHost host;
    QVERIFY(host.startsWith({}));
    const Answered page = host.get("/");
    QCOMPARE(page.status, 200);
    QCOMPARE(typeOf(page), std::string("text/html; charset=utf-8"));
    // Whatever the page names, and what that names.
    const QRegularExpression name(
        QStringLiteral("(?:href=\"|src=\"|from '\\./)(?:/?page/)?([a-z]+\\.(js|css|svg))[\"']"));
    const QHash<QString, std::string> types = {{QStringLiteral("js"), "text/javascript; charset=utf-8"},
                                               {QStringLiteral("css"), "text/css; charset=utf-8"},
                                               {QStringLiteral("svg"), "image/svg+xml"}};
    QStringList files, left{QStringLiteral("")};
    QByteArray text = page.body;
    while (!left.isEmpty()) {
        const QString file = left.takeFirst();
        if (!file.isEmpty()) {
            const Answered part = host.get(qPrintable(QStringLiteral("/page/") + file));
            QVERIFY2(part.status == 200, qPrintable(file));
            QCOMPARE(typeOf(part), types.value(file.section(QLatin1Char('.'), -1)));
            text = part.body;
        }
        for (auto matches = name.globalMatch(QString::fromUtf8(text)); matches.hasNext();) {
            const QString next = matches.next().captured(1);
            if (!files.contains(next))
                left.append(next);
            files.append(next);
        }
    }
    files.removeDuplicates();
    for (const char *const file : {"page.css", "page.js", "icon.svg", "door.js"})
        QVERIFY2(files.contains(QLatin1String(file)), file);
}

void tst_DoorPage::servesItsContract()
{
    DoorHost host;
    QVERIFY(host.startsWith({}));
    const Answered contract = host.get("/openapi.json");
    QCOMPARE(contract.status, 200);
    QCOMPARE(typeOf(contract), std::string("application/json"));
    QFile file(QStringLiteral(CONTRACT));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(contract.body, file.readAll());
}

void tst_DoorPage::saysThatThereIsNothing_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QString>("reason");
    const auto nothing = [](const char *path) {
        QTest::newRow(path) << QByteArray(path) << QStringLiteral("there is nothing at %1").arg(QLatin1String(path));
    };
    for (const char *const path : {"/v1", "/v1/", "/v2/report", "/v1/report/host/loop", "/page", "/page/",
                                   "/page/none.js", "/page/..", "/index.html", "/metrics/", "//"})
        nothing(path);
    QTest::newRow("a part") << QByteArray("/v1/report/weather") << "the report has no part \"weather\"";
}

void tst_DoorPage::saysThatThereIsNothing()
{
    QFETCH(QByteArray, path);
    DoorHost host;
    QVERIFY(host.startsWith({}));
    const Answered answered = host.get(path.constData());
    QCOMPARE(answered.status, 404);
    QTEST(answered.error(), "reason");
}

void tst_DoorPage::saysHowItCannotBeAsked_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("path");
    const auto add = [](const char *method, const char *path) {
        QTest::addRow("%s %s", method, path) << QByteArray(method) << QByteArray(path);
    };
    add("GET", "/v1/call");
    add("GET", "/v1/stop");
    add("GET", "/v1/schedule/0/run");
    add("HEAD", "/v1/stop");
    add("POST", "/v1/report");
    add("POST", "/v1/log");
    add("PUT", "/v1/stop");
    add("DELETE", "/v1/plugins/lodger/release");
    add("PATCH", "/v1/log");
    add("OPTIONS", "/v1/log");
    add("POST", "/page/page.js");
}

void tst_DoorPage::saysHowItCannotBeAsked()
{
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, path);
    DoorHost host;
    QVERIFY(host.startsWith({}));
    httplib::Request request;
    request.method = method.toStdString();
    request.path = path.toStdString();
    request.headers = {{"Content-Type", "application/json"}};
    const Answered answered = DoorHost::answered(host.client().send(request));
    QCOMPARE(answered.status, 405);
    if (method != "HEAD")
        QCOMPARE(
            answered.error(),
            QStringLiteral("%1 cannot be asked for with %2").arg(QString::fromUtf8(path), QString::fromUtf8(method)));
    QCOMPARE(host.get("/readyz").status, 200);
}

void tst_DoorPage::answersHeadLikeGetWithoutABody()
{
    DoorHost host;
    QVERIFY(host.startsWith({}));
    const Answered head = DoorHost::answered(host.client().Head("/v1/report/services"));
    QCOMPARE(head.status, 200);
    QCOMPARE(head.body, QByteArray());
    QCOMPARE(typeOf(head), std::string("application/json"));
}

QTEST_GUILESS_MAIN(tst_DoorPage)
#include "tst_doorpage.moc"
