// SPDX-License-Identifier: Apache-2.0
#include "broker.h"
#include "nodeprocess.h"
#include "rawclient.h"
#include "testcase.h"

#include <QElapsedTimer>
#include <QRegularExpression>

#include <memory>

namespace {

const QString Remote = QStringLiteral("remote");

QString text(const char *utf8) { return QString::fromUtf8(utf8); }

QJsonObject kind(const char *name, const QJsonObject &more = {})
{
    QJsonObject options = more;
    options.insert(QStringLiteral("kind"), QLatin1String(name));
    return options;
}

QStringList textsIn(const QJsonValue &array)
{
    QStringList texts;
    const QJsonArray all = array.toArray();
    for (const auto &each : all)
        texts << each.toString();
    texts.sort();
    return texts;
}

} // namespace

/// What a caller sees of endpoints in another process: two hosts, "near" and "far", and a broker.
class tst_Nats : public TestCase
{
    Q_OBJECT

protected Q_SLOTS:
    void init() override;

private Q_SLOTS:
    void aCallReachesTheOtherProcess_data();
    void aCallReachesTheOtherProcess();
    void aHostMayBeSplitBetweenProcesses();
    void anAddressIsTheHostAndThePath_data();
    void anAddressIsTheHostAndThePath();
    void nullStaysNull_data();
    void nullStaysNull();
    void aRefusalIsFalse();
    void whatIsHeldHereAndRefusesIsNotSentOn();
    void whatIsHeldHereIsCalledHere();
    void anInThatIsChangedComesBack();
    void anOutIsAnsweredOnlyWhereItIsAskedFor();
    void bodiesOfSomeSizePass_data();
    void bodiesOfSomeSizePass();
    void severalProvidersShareTheCalls();
    void endpointsThatComeLaterAreReached();
    void onlyWhatIsServedIsReached();
    void theHostItselfIsServedOnlyWhereItIsNamedInFull();
    void aFragmentIsPassedOn();

    void aUserNamesTheProcess();
    void aUserThatIsNobodyReachesNobody();
    void twoProcessesOfOneNameRunACallOnce();
    void domainsDoNotMeet();

    void aBroadcastStaysHere();
    void aBroadcastGoesToAllWhereItIsTold();
    void findAsksTheOthers_data();
    void findAsksTheOthers();
    void findAllGathers_data();
    void findAllGathers();
    void hostsAreListed();
    void natsToolsListTheHosts();

    void withoutASectionNothingPasses();
    void aMistakeInTheSectionIsNamed_data();
    void aMistakeInTheSectionIsNamed();

private:
    NodeProcess &node(const QString &name, const QJsonObject &more = {});

    std::unique_ptr<Broker> m_broker;
    std::unique_ptr<NodeProcess> m_near, m_far, m_third;
};

void tst_Nats::init()
{
    TestCase::init();
    if (!m_broker) {
        m_broker = std::make_unique<Broker>();
        QVERIFY(m_broker->start());
    }
    // Each test has hosts of its own: what one has bound the next must not see.
    m_third.reset();
    QVERIFY(!m_near || m_near->quit() >= 0);
    QVERIFY(!m_far || m_far->quit() >= 0);
    m_near = std::make_unique<NodeProcess>(QStringLiteral("near"), sectionFor(m_broker->url()));
    m_far = std::make_unique<NodeProcess>(QStringLiteral("far"), sectionFor(m_broker->url()));
    QVERIFY(m_near->startConnected());
    QVERIFY(m_far->startConnected());
    m_near->takeLog();
}

NodeProcess &tst_Nats::node(const QString &name, const QJsonObject &more)
{
    m_third = std::make_unique<NodeProcess>(name, sectionFor(m_broker->url(), more));
    m_third->startConnected();
    return *m_third;
}

void tst_Nats::aCallReachesTheOtherProcess_data()
{
    QTest::addColumn<QString>("bound");
    QTest::addColumn<QString>("called");
    QTest::addColumn<bool>("handled");
    QTest::newRow("exact") << "//w/x"
                           << "//w/x" << true;
    QTest::newRow("bare host") << "//w"
                               << "//w" << true;
    QTest::newRow("any path of a bare host") << "//w"
                                             << "//w/x/y" << true;
    QTest::newRow("slash of a bare host") << "//w"
                                          << "//w/" << true;
    QTest::newRow("slash") << "//w/"
                           << "//w/" << true;
    QTest::newRow("slash is not the bare host") << "//w/"
                                                << "//w" << false;
    QTest::newRow("another path") << "//w/x"
                                  << "//w/y" << false;
    QTest::newRow("more of the path") << "//w/x"
                                      << "//w/x/y" << false;
    QTest::newRow("less of the path") << "//w/x/y"
                                      << "//w/x" << false;
    QTest::newRow("slash at the end") << "//w/x"
                                      << "//w/x/" << false;
    QTest::newRow("two slashes") << "//w/x"
                                 << "//w//x" << false;
    QTest::newRow("another host") << "//w/x"
                                  << "//v/x" << false;
    QTest::newRow("case of the path") << "//w/x"
                                      << "//w/X" << false;
    QTest::newRow("underscore, which stands for a bare host") << "//w"
                                                              << "//w/_" << true;
    QTest::newRow("a path like that") << "//w/_"
                                      << "//w" << false;
}

void tst_Nats::aCallReachesTheOtherProcess()
{
    QFETCH(QString, bound);
    QFETCH(QString, called);
    QFETCH(bool, handled);
    QVERIFY(m_far->bind(bound));
    const QJsonObject answer = m_near->call(called, {{QStringLiteral("number"), 1}});
    QCOMPARE(at(answer, "handled").toBool(), handled);
    QCOMPARE(m_far->calls(bound), handled ? 1 : 0);
    QCOMPARE(at(answer, "outcome", "code").toInt(), handled ? 200 : 503);
    if (handled) {
        QCOMPARE(at(answer, "out", "name").toString(), QStringLiteral("far"));
        QCOMPARE(at(answer, "out", "url").toString(), called);
        QCOMPARE(at(answer, "out", "in", "number").toInt(), 1);
        QCOMPARE(at(answer, "outcome", "host").toString(), QStringLiteral("far"));
        QVERIFY(!answer.value(QStringLiteral("outcome")).toObject().contains(QStringLiteral("reason")));
    }
    // The same without saying why.
    QCOMPARE(at(m_near->ask(QStringLiteral("call"), {{QStringLiteral("url"), called}}), "handled").toBool(), handled);
}

void tst_Nats::aHostMayBeSplitBetweenProcesses()
{
    QVERIFY(m_near->bind(QStringLiteral("//w")));
    QVERIFY(m_far->bind(QStringLiteral("//w/x")));
    NodeProcess &third = node(QStringLiteral("third"));
    QCOMPARE(at(third.call(QStringLiteral("//w/x")), "out", "name").toString(), QStringLiteral("far"));
    QCOMPARE(at(third.call(QStringLiteral("//w/y")), "out", "name").toString(), QStringLiteral("near"));
    QCOMPARE(at(third.call(QStringLiteral("//w")), "out", "name").toString(), QStringLiteral("near"));
    QCOMPARE(at(m_far->call(QStringLiteral("//w/y")), "out", "name").toString(), QStringLiteral("near"));
    QCOMPARE(at(m_far->call(QStringLiteral("//w/x")), "out", "name").toString(), QStringLiteral("far"));
    // What is bound here to the bare host handles the call: it ends here.
    QCOMPARE(at(m_near->call(QStringLiteral("//w/x")), "out", "name").toString(), QStringLiteral("near"));
}

void tst_Nats::anAddressIsTheHostAndThePath_data()
{
    QTest::addColumn<QString>("bound");
    QTest::addColumn<QString>("called");
    QTest::newRow("scheme, port and query") << "//w/x"
                                            << "scheme://w:80/x?q=1";
    QTest::newRow("host in upper case") << "//WORKER/Run"
                                        << "//worker/Run";
    QTest::newRow("encoded path") << "//w/a b"
                                  << "//w/a%20b";
    QTest::newRow("encoded slash") << "//w/a/b"
                                   << "//w/a%2Fb";
    QTest::newRow("dots and stars") << "//w/a.b/*/>"
                                    << "//w/a.b/*/>";
    QTest::newRow("host with dots") << "//w.example/x"
                                    << "//w.example/x";
    QTest::newRow("percent sign") << "//w/50%25"
                                  << "//w/50%25";
    QTest::newRow("delimiters") << "//w/a%3Fb%23c"
                                << "//w/a%3Fb%23c";
    QTest::newRow("letters in the path") << text("//w/\xc3\xbc\xe4\xb8\xad") << "//w/%C3%BC%E4%B8%AD";
    QTest::newRow("letters in the host") << "//xn--bcher-kva.de/x"
                                         << text("//b\xc3\xbc"
                                                 "cher.de/x");
    QTest::newRow("underscore and hyphen") << "//a_b-c/d_e-f"
                                           << "//a_b-c/d_e-f";
    QTest::newRow("empty pieces") << "//w//x//"
                                  << "//w//x//";
    QTest::newRow("long") << QStringLiteral("//w/") + QString(2000, QLatin1Char('a'))
                          << QStringLiteral("//w/") + QString(2000, QLatin1Char('a'));
}

void tst_Nats::anAddressIsTheHostAndThePath()
{
    QFETCH(QString, bound);
    QFETCH(QString, called);
    QVERIFY(m_far->bind(bound));
    const QJsonObject answer = m_near->call(called);
    QVERIFY2(at(answer, "handled").toBool(), qPrintable(at(answer, "outcome", "reason").toString()));
    QCOMPARE(QUrl(at(answer, "out", "url").toString()), QUrl(called));
    QCOMPARE(m_far->calls(bound), 1);
}

void tst_Nats::nullStaysNull_data()
{
    QTest::addColumn<bool>("withIn");
    QTest::addColumn<bool>("withOut");
    QTest::newRow("both") << true << true;
    QTest::newRow("no question") << false << true;
    QTest::newRow("no answer") << true << false;
    QTest::newRow("neither") << false << false;
}

void tst_Nats::nullStaysNull()
{
    QFETCH(bool, withIn);
    QFETCH(bool, withOut);
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    QJsonObject arguments{{QStringLiteral("url"), QStringLiteral("//w")}};
    if (withIn)
        arguments.insert(QStringLiteral("in"), QJsonObject{{QStringLiteral("a"), 1}});
    if (withOut)
        arguments.insert(QStringLiteral("out"), QJsonObject{{QStringLiteral("before"), 2}});
    const QJsonObject answer = m_near->ask(QStringLiteral("call"), arguments);
    QVERIFY(at(answer, "handled").toBool());
    const QJsonObject calls = m_far->ask(QStringLiteral("calls"), {{QStringLiteral("url"), QStringLiteral("//w")}});
    QCOMPARE(at(calls, "last", "in"), withIn ? arguments.value(QStringLiteral("in")) : QJsonValue());
    // What "out" has had before the call the endpoint sees, as it does in one process.
    QCOMPARE(at(calls, "last", "out"), withOut ? arguments.value(QStringLiteral("out")) : QJsonValue());
    if (withOut) {
        QCOMPARE(at(answer, "out", "name").toString(), QStringLiteral("far"));
        QCOMPARE(at(answer, "out", "before").toInt(), 2);
    }
}

void tst_Nats::aRefusalIsFalse()
{
    QVERIFY(m_far->bind(QStringLiteral("//w"), kind("refuse")));
    const QJsonObject answer = m_near->call(QStringLiteral("//w/x"));
    QVERIFY(!at(answer, "handled").toBool());
    QCOMPARE(at(answer, "outcome", "code").toInt(), 404);
    QCOMPARE(at(answer, "outcome", "reason").toString(), QStringLiteral("refused"));
    QCOMPARE(at(answer, "outcome", "called"), QJsonValue(true));
    QCOMPARE(m_far->calls(QStringLiteral("//w")), 1);
    QVERIFY2(!m_near->hasLogged(QStringLiteral("(!)")), qPrintable(m_near->log().join(QLatin1Char('\n'))));
}

void tst_Nats::whatIsHeldHereAndRefusesIsNotSentOn()
{
    QVERIFY(m_near->bind(QStringLiteral("//w"), kind("refuse")));
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    QVERIFY(m_far->bind(QStringLiteral("//w/x")));
    QCOMPARE(m_near->code(QStringLiteral("//w")), 404);
    QCOMPARE(m_near->code(QStringLiteral("//w/x")), 404);
    QCOMPARE(m_near->calls(QStringLiteral("//w")), 2);
    QCOMPARE(m_far->calls(QStringLiteral("//w")), 0);
    QCOMPARE(m_far->calls(QStringLiteral("//w/x")), 0);
}

void tst_Nats::whatIsHeldHereIsCalledHere()
{
    QVERIFY(m_near->bind(QStringLiteral("//w")));
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    for (int i = 0; i < 20; ++i) {
        const QJsonObject answer = m_near->call(QStringLiteral("//w"));
        QCOMPARE(at(answer, "out", "name").toString(), QStringLiteral("near"));
        QVERIFY(!answer.value(QStringLiteral("outcome")).toObject().contains(QStringLiteral("host")));
    }
    QCOMPARE(m_far->calls(QStringLiteral("//w")), 0);
}

void tst_Nats::anInThatIsChangedComesBack()
{
    QVERIFY(m_far->bind(QStringLiteral("//changes"), kind("changes")));
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    const QJsonObject in{{QStringLiteral("a"), 1}};
    QCOMPARE(at(m_near->call(QStringLiteral("//changes"), in), "in").toObject(),
             QJsonObject({{QStringLiteral("a"), 1}, {QStringLiteral("changed"), true}}));
    QCOMPARE(at(m_near->call(QStringLiteral("//w"), in), "in").toObject(), in);
}

void tst_Nats::anOutIsAnsweredOnlyWhereItIsAskedFor()
{
    QVERIFY(m_far->bind(QStringLiteral("//w"), kind("silent")));
    const QJsonObject answer = m_near->call(QStringLiteral("//w"));
    QVERIFY(at(answer, "handled").toBool());
    QCOMPARE(at(answer, "out").toObject(), QJsonObject());
}

void tst_Nats::bodiesOfSomeSizePass_data()
{
    QTest::addColumn<int>("bytes");
    QTest::newRow("4 KiB") << 4096;
    QTest::newRow("900 KiB") << 900 * 1024;
}

void tst_Nats::bodiesOfSomeSizePass()
{
    QFETCH(int, bytes);
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    const QJsonObject answer = m_near->ask(QStringLiteral("outcome"), {{QStringLiteral("url"), QStringLiteral("//w")},
                                                                       {QStringLiteral("bytes"), bytes},
                                                                       {QStringLiteral("out"), QJsonObject()}});
    QVERIFY(at(answer, "handled").toBool());
    QCOMPARE(at(answer, "out", "in", "data").toString().size(), bytes);
}

void tst_Nats::severalProvidersShareTheCalls()
{
    QVERIFY(m_near->bind(QStringLiteral("//w")));
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    NodeProcess &third = node(QStringLiteral("third"));
    constexpr int Count = 100;
    for (int i = 0; i < Count; ++i)
        QVERIFY(third.handles(QStringLiteral("//w")));
    const int here = m_near->calls(QStringLiteral("//w"));
    const int there = m_far->calls(QStringLiteral("//w"));
    QCOMPARE(here + there, Count);
    QVERIFY2(here > Count / 10 && there > Count / 10, qPrintable(QString::number(here)));
}

void tst_Nats::endpointsThatComeLaterAreReached()
{
    QVERIFY(!m_near->handles(QStringLiteral("//w/x")));
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    QVERIFY(m_near->handles(QStringLiteral("//w/x"))); // as soon as the binding has come back
    QVERIFY(m_far->bind(QStringLiteral("//w/x"), kind("changes")));
    QVERIFY(m_near->handles(QStringLiteral("//w/x")));
    QCOMPARE(m_far->calls(QStringLiteral("//w/x")), 1); // and no more the one of the bare host
    m_far->ask(QStringLiteral("unbind"), {{QStringLiteral("url"), QStringLiteral("//w/x")}});
    QVERIFY(QTest::qWaitFor([this] { return m_near->handles(QStringLiteral("//w/x")); }, 10000));
    QCOMPARE(m_far->calls(QStringLiteral("//w")), 2);
}

void tst_Nats::onlyWhatIsServedIsReached()
{
    NodeProcess &third = node(QStringLiteral("third"),
                              {{QStringLiteral("serve"), QJsonArray{QStringLiteral("a"), QStringLiteral("b*")}}});
    for (const char *url : {"//a", "//bc", "//c", "//ab"})
        QVERIFY(third.bind(QLatin1String(url)));
    QVERIFY(m_near->handles(QStringLiteral("//a/x")));
    QVERIFY(m_near->handles(QStringLiteral("//bc")));
    QCOMPARE(m_near->code(QStringLiteral("//c")), 503);
    QCOMPARE(m_near->code(QStringLiteral("//ab")), 503);
    QCOMPARE(m_near->code(QStringLiteral("//third@c")), 403);
    QCOMPARE(third.calls(QStringLiteral("//c")), 0);
    QVERIFY(third.handles(QStringLiteral("//c"))); // in its own process
}

void tst_Nats::theHostItselfIsServedOnlyWhereItIsNamedInFull()
{
    for (const char *url : {"//zhost", "//zscheduler"})
        QVERIFY(m_far->bind(QLatin1String(url))); // which serves "*"
    QCOMPARE(m_near->code(QStringLiteral("//zhost/printd")), 503);
    QVERIFY(!m_near->handles(QStringLiteral("//far@zscheduler/shutdown"))); // which each has itself
    QVERIFY(!m_near->handles(QStringLiteral("//far@zhost/printd")));
    NodeProcess &third =
        node(QStringLiteral("third"), {{QStringLiteral("serve"), QJsonArray{QStringLiteral("zhost")}}});
    QVERIFY(third.bind(QStringLiteral("//zhost")));
    QCOMPARE(at(m_near->call(QStringLiteral("//third@zhost/printd")), "out", "name").toString(),
             QStringLiteral("third"));
    QCOMPARE(m_far->calls(QStringLiteral("//zhost")), 0);
    QCOMPARE(m_far->calls(QStringLiteral("//zscheduler")), 0);
    QVERIFY(!m_near->handles(QStringLiteral("//third@nats/printd"))); // for its own process alone
}

void tst_Nats::aFragmentIsPassedOn()
{
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    const QJsonObject answer = m_near->call(QStringLiteral("//w/x?q=1#quiet"));
    QCOMPARE(at(answer, "out", "url").toString(), QStringLiteral("//w/x?q=1#quiet"));
    m_near->call(QStringLiteral("//nobody#quiet"));
    QTRY_VERIFY(m_near->hasLogged(QStringLiteral("(!) //nobody#quiet nobody"))); // a failure is told all the same
}

void tst_Nats::aUserNamesTheProcess()
{
    NodeProcess &third = node(QStringLiteral("third"));
    for (NodeProcess *each : {m_near.get(), m_far.get(), &third})
        QVERIFY(each->bind(QStringLiteral("//w")));
    for (const char *name : {"near", "far", "third"}) {
        const QJsonObject answer = m_near->call(QStringLiteral("//%1@w/x").arg(QLatin1String(name)));
        QCOMPARE(at(answer, "out", "name").toString(), QLatin1String(name));
    }
    QVERIFY(m_far->bind(QStringLiteral("//only/far")));
    QVERIFY(!m_near->handles(QStringLiteral("//third@only/far")));
    QVERIFY(!m_near->handles(QStringLiteral("//near@only/far"))); // by its own name: it is not sent on
    QVERIFY(m_near->handles(QStringLiteral("//far@only/far")));
}

void tst_Nats::aUserThatIsNobodyReachesNobody()
{
    QVERIFY(m_near->bind(QStringLiteral("//w")));
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    const QJsonObject answer = m_near->call(QStringLiteral("//nobody@w"));
    QVERIFY(!at(answer, "handled").toBool());
    QCOMPARE(at(answer, "outcome", "code").toInt(), 503);
    QCOMPARE(at(answer, "outcome", "called"), QJsonValue(false));
    QCOMPARE(m_near->calls(QStringLiteral("//w")) + m_far->calls(QStringLiteral("//w")), 0);
}

void tst_Nats::twoProcessesOfOneNameRunACallOnce()
{
    NodeProcess &third = node(QStringLiteral("far"));
    QVERIFY(third.bind(QStringLiteral("//w")));
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    for (int i = 0; i < 20; ++i)
        QVERIFY(m_near->handles(QStringLiteral("//far@w")));
    QCOMPARE(third.calls(QStringLiteral("//w")) + m_far->calls(QStringLiteral("//w")), 20);
}

void tst_Nats::domainsDoNotMeet()
{
    NodeProcess &third = node(QStringLiteral("third"), {{QStringLiteral("domain"), QStringLiteral("other.domain")}});
    QVERIFY(third.bind(QStringLiteral("//w")));
    QCOMPARE(m_near->code(QStringLiteral("//w")), 503);
    QCOMPARE(m_near->code(QStringLiteral("//third@w")), 503);
    QVERIFY(m_far->bind(QStringLiteral("//v")));
    QCOMPARE(third.code(QStringLiteral("//v")), 503);
}

void tst_Nats::aBroadcastStaysHere()
{
    QVERIFY(m_near->bind(QStringLiteral("//w")));
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    QVERIFY(m_near->handles(QStringLiteral("/all")));
    QCOMPARE(m_near->calls(QStringLiteral("//w")), 1);
    QCOMPARE(m_far->calls(QStringLiteral("//w")), 0);
}

void tst_Nats::aBroadcastGoesToAllWhereItIsTold()
{
    const QJsonObject all{{QStringLiteral("broadcast"), QStringLiteral("all")}};
    NodeProcess &third = node(QStringLiteral("third"), all);
    NodeProcess fourth(QStringLiteral("fourth"), sectionFor(m_broker->url(), all));
    QVERIFY(fourth.startConnected());
    for (NodeProcess *each : {&third, &fourth}) {
        QVERIFY(each->bind(QStringLiteral("//w")));
        QVERIFY(each->bind(QStringLiteral("//w/x")));
    }
    QVERIFY(third.handles(QStringLiteral("/all")));
    for (NodeProcess *each : {&third, &fourth}) {
        QCOMPARE(each->calls(QStringLiteral("//w")), 1);
        QCOMPARE(each->calls(QStringLiteral("//w/x")), 1);
    }
    third.ask(QStringLiteral("unbind"), {{QStringLiteral("url"), QStringLiteral("//w")}});
    third.ask(QStringLiteral("unbind"), {{QStringLiteral("url"), QStringLiteral("//w/x")}});
    QVERIFY(third.handles(QStringLiteral("/all"))); // by the others alone
    QCOMPARE(fourth.calls(QStringLiteral("//w")), 2);
}

void tst_Nats::findAsksTheOthers_data()
{
    QTest::addColumn<QString>("bound");
    QTest::addColumn<QString>("asked");
    QTest::addColumn<bool>("found");
    QTest::newRow("exact") << "//w/x"
                           << "//w/x" << true;
    QTest::newRow("bare host") << "//w"
                               << "//w" << true;
    QTest::newRow("path of a bare host") << "//w"
                                         << "//w/x" << false;
    QTest::newRow("another path") << "//w/x"
                                  << "//w/y" << false;
    QTest::newRow("another host") << "//w"
                                  << "//v" << false;
    QTest::newRow("by name") << "//w/x"
                             << "//far@w/x" << true;
    QTest::newRow("by another name") << "//w/x"
                                     << "//nobody@w/x" << false;
}

void tst_Nats::findAsksTheOthers()
{
    QFETCH(QString, bound);
    QFETCH(QString, asked);
    QVERIFY(m_far->bind(bound));
    const QJsonObject answer = m_near->ask(QStringLiteral("find"), {{QStringLiteral("url"), asked}});
    QTEST(at(answer, "found").toBool(), "found");
    QVERIFY(at(answer, "ms").toInt() < 2000);
    QCOMPARE(m_far->calls(bound), 0); // it asks, and calls nobody
}

void tst_Nats::findAllGathers_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<int>("options");
    QTest::addColumn<QStringList>("found");
    QTest::newRow("prefix") << "^//t-" << 0 << QStringList({"//t-far", "//t-far/X", "//t-near"});
    QTest::newRow("end") << "^//t.*r$" << 0 << QStringList({"//t-far", "//t-near"});
    QTest::newRow("another case") << "^//t.*/x$" << 0 << QStringList();
    QTest::newRow("without case") << "^//t.*/x$" << int(QRegularExpression::CaseInsensitiveOption)
                                  << QStringList{"//t-far/X"};
    QTest::newRow("with spaces that do not count")
        << "^ //t-far  $" << int(QRegularExpression::ExtendedPatternSyntaxOption) << QStringList{"//t-far"};
    QTest::newRow("no pattern") << "(" << 0 << QStringList();
}

void tst_Nats::findAllGathers()
{
    QFETCH(QString, pattern);
    QFETCH(int, options);
    for (const char *url : {"//t-far", "//t-far/X", "//t-near"})
        QVERIFY(m_far->bind(QLatin1String(url)));
    QVERIFY(m_near->bind(QStringLiteral("//t-near"))); // told once
    const QJsonObject answer = m_near->ask(
        QStringLiteral("findall"), {{QStringLiteral("pattern"), pattern}, {QStringLiteral("options"), options}});
    QTEST(textsIn(at(answer, "urls")), "found");
}

void tst_Nats::hostsAreListed()
{
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    const QJsonObject answer = m_near->call(QStringLiteral("//nats/hosts"));
    QVERIFY(at(answer, "handled").toBool());
    QStringList names;
    const QJsonArray hosts = at(answer, "out", "hosts").toArray();
    for (const auto &host : hosts) {
        names << at(host, "name").toString();
        if (names.last() == QLatin1String("far"))
            QVERIFY(textsIn(at(host, "urls")).contains(QStringLiteral("//w")));
        QVERIFY(!at(host, "id").toString().isEmpty());
    }
    names.sort();
    QVERIFY2(names == QStringList{"far"}, qPrintable(names.join(QLatin1Char(' ')))); // the others
}

void tst_Nats::natsToolsListTheHosts()
{
    RawClient client(m_broker->url());
    QVERIFY(client.isConnected());
    for (const char *verb : {"PING", "INFO", "STATS"}) {
        for (const char *name : {"", ".zdefault-default"}) {
            QVERIFY(client.subscribe("answers"));
            QVERIFY(client.publish(QByteArray("$SRV.") + verb + name, {}, {}, "answers"));
            QStringList hosts;
            for (int i = 0; i < 2; ++i) {
                const RawMessage answer = client.next();
                QVERIFY(answer.isThere);
                QCOMPARE(at(answer.json(), "name").toString(), QStringLiteral("zdefault-default"));
                QVERIFY(at(answer.json(), "type").toString().startsWith(QLatin1String("io.nats.micro.v1.")));
                QVERIFY(!at(answer.json(), "version").toString().isEmpty());
                hosts << at(answer.json(), "metadata", "host").toString();
            }
            hosts.sort();
            QCOMPARE(hosts, QStringList({"far", "near"}));
        }
    }
}

void tst_Nats::withoutASectionNothingPasses()
{
    NodeProcess alone(QStringLiteral("alone"), QJsonValue::Undefined);
    alone.setMask(0xff);
    QVERIFY(alone.start());
    QVERIFY(m_far->bind(QStringLiteral("//w")));
    QCOMPARE(alone.code(QStringLiteral("//w")), 503);
    QVERIFY(alone.bind(QStringLiteral("//w")));
    QCOMPARE(alone.code(QStringLiteral("//w")), 200);
    QVERIFY2(alone.hasLogged(QStringLiteral("no section \"nats\": the bus stays within this process")),
             qPrintable(alone.log().join(QLatin1Char('\n'))));
    QVERIFY(alone.quit() >= 0);
}

void tst_Nats::aMistakeInTheSectionIsNamed_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QJsonValue>("value");
    QTest::newRow("a text for a number") << "timeout" << QJsonValue(QStringLiteral("long"));
    QTest::newRow("too small") << "timeout" << QJsonValue(0);
    QTest::newRow("too large") << "workers" << QJsonValue(257);
    QTest::newRow("a key that there is not") << "tiemout" << QJsonValue(5);
    QTest::newRow("a word that there is not") << "broadcast" << QJsonValue(QStringLiteral("some"));
    QTest::newRow("no list") << "servers" << QJsonValue(QStringLiteral("nats://127.0.0.1:4222"));
    QTest::newRow("no server") << "servers" << QJsonValue(QJsonArray{QStringLiteral("http://127.0.0.1")});
}

void tst_Nats::aMistakeInTheSectionIsNamed()
{
    QFETCH(QString, key);
    QFETCH(QJsonValue, value);
    NodeProcess alone(QStringLiteral("alone"), sectionFor(m_broker->url(), {{key, value}}));
    alone.setMask(0xff);
    QVERIFY(alone.start());
    QVERIFY2(alone.hasLogged(QStringLiteral("nats.") + key), qPrintable(alone.log().join(QLatin1Char('\n'))));
    QVERIFY(alone.bind(QStringLiteral("//w")));
    QVERIFY(alone.handles(QStringLiteral("//w"))); // the bus itself goes on
}

QTEST_GUILESS_MAIN(tst_Nats)
#include "tst_nats.moc"
