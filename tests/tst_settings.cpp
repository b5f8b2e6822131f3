// SPDX-License-Identifier: Apache-2.0
// What a plugin reads of the configuration, and what it is told of mistakes in it.
#include "journal.h"
#include "testcase.h"

#include <QJsonDocument>
#include <QVariant>

#include <zdefaultconfig.h>
#include <zsettings.h>

using Ask = QVariant (*)(const ZSettings &);
Q_DECLARE_METATYPE(Ask)

class tst_Settings : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void answersWhatIsThere_data();
    void answersWhatIsThere();
    void tellsWhatIsWrong_data();
    void tellsWhatIsWrong();
    void tellsASectionThatIsNone_data();
    void tellsASectionThatIsNone();
    void tellsEachErrorOnce();
    void tellsUnknownKeys();
    void tellsThatThereIsNoConfiguration();
    void tellsThatARootIsNotLoaded();
    void checkTellsTheErrorsAsWarnings();
};

namespace {

const QString Name = QStringLiteral("recorder");

QString s(const char *text) { return QLatin1String(text); }

QJsonObject parsed(const char *json) { return QJsonDocument::fromJson(json).object(); }

/// Of the plugin "recorder", whose settings these are.
ZSettings settingsOf(const char *json)
{
    ZDefaultConfig config({{s("plugins"), QJsonObject{{Name, parsed(json)}}}});
    return ZSettings(&config, Name);
}

QVariant text(const ZSettings &settings) { return settings.text(s("a")); }
QVariant textOrB(const ZSettings &settings) { return settings.text(s("a"), s("b")); }
QVariant choice(const ZSettings &settings) { return settings.oneOf(s("a"), {s("fast"), s("safe")}); }
QVariant choiceOrSafe(const ZSettings &settings) { return settings.oneOf(s("a"), {s("fast"), s("safe")}, s("safe")); }
QVariant flag(const ZSettings &settings) { return settings.flag(s("a")); }
QVariant flagOrTrue(const ZSettings &settings) { return settings.flag(s("a"), true); }
QVariant number(const ZSettings &settings) { return settings.number(s("a")); }
QVariant numberOr7(const ZSettings &settings) { return settings.number(s("a"), 7, 1, 10); }
QVariant numberFrom5(const ZSettings &settings) { return settings.number(s("a"), {}, 5, 9); }
QVariant numberTo3(const ZSettings &settings) { return settings.number(s("a"), {}, -9, -3); }
QVariant numberFrom1(const ZSettings &settings) { return settings.number(s("a"), 7, 1); }
QVariant numberToAHundred(const ZSettings &settings)
{
    return settings.number(s("a"), 7, std::numeric_limits<int>::min(), 100);
}
QVariant real(const ZSettings &settings) { return settings.real(s("a")); }
QVariant realOrHalf(const ZSettings &settings) { return settings.real(s("a"), 0.5, 0, 1); }
QVariant texts(const ZSettings &settings) { return settings.texts(s("a")); }
QVariant textsOrB(const ZSettings &settings) { return settings.texts(s("a"), QStringList{s("b")}); }
QVariant value(const ZSettings &settings) { return settings.value(s("a")).toVariant(); }
QVariant partsNumber(const ZSettings &settings) { return settings.object(s("a")).number(s("n")); }
/// Each time the object is asked for anew.
QVariant partsNumberAndText(const ZSettings &settings)
{
    return QVariantList{settings.object(s("a")).number(s("n"), 0), settings.object(s("a")).text(s("t"), QString())};
}
QVariant partsNumbers(const ZSettings &settings)
{
    QVariantList numbers;
    const QVector<ZSettings> parts = settings.objects(s("a"));
    for (const ZSettings &part : parts)
        numbers.append(part.number(s("n"), 0, 0, 5));
    return numbers;
}

} // namespace

void tst_Settings::answersWhatIsThere_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<Ask>("ask");
    QTest::addColumn<QVariant>("answer");
    const auto row = [](const char *name, const char *json, Ask ask, const QVariant &answer) {
        QTest::newRow(name) << QByteArray(json) << ask << answer;
    };
    row("a text", R"({"a": "x"})", text, s("x"));
    row("a text with a default", R"({"a": "x"})", textOrB, s("x"));
    row("an empty text with a default", R"({"a": ""})", textOrB, s(""));
    row("a text's default", "{}", textOrB, s("b"));
    row("a choice", R"({"a": "safe"})", choice, s("safe"));
    row("a choice's default", "{}", choiceOrSafe, s("safe"));
    row("true", R"({"a": true})", flag, true);
    row("false, not the default", R"({"a": false})", flagOrTrue, false);
    row("a flag's default", "{}", flagOrTrue, true);
    row("a number", R"({"a": -3})", number, -3);
    row("a number that is spelt as a fraction", R"({"a": 3.0})", number, 3);
    row("the least number", R"({"a": 1})", numberOr7, 1);
    row("the greatest number", R"({"a": 10})", numberOr7, 10);
    row("the least of all", R"({"a": -2147483648})", number, std::numeric_limits<int>::min());
    row("the greatest of all", R"({"a": 2147483647})", number, std::numeric_limits<int>::max());
    row("a number's default", "{}", numberOr7, 7);
    row("a fraction", R"({"a": 2.5})", real, 2.5);
    row("the greatest fraction", R"({"a": 1})", realOrHalf, 1.0);
    row("a fraction's default", "{}", realOrHalf, 0.5);
    row("texts", R"({"a": ["x", ""]})", texts, QStringList{s("x"), s("")});
    row("no texts, not the default", R"({"a": []})", textsOrB, QStringList());
    row("the default of texts", "{}", textsOrB, QStringList{s("b")});
    row("a value", R"({"a": [1]})", value, QVariantList{1.0});
    row("no value", "{}", value, QVariant());
    row("a part's number", R"({"a": {"n": 4}})", partsNumber, 4);
    row("a part's number and text", R"({"a": {"n": 4, "t": "x"}})", partsNumberAndText, QVariantList{4, s("x")});
    row("numbers of parts", R"({"a": [{"n": 4}, {}]})", partsNumbers, QVariantList{4, 0});
    row("no parts", "{}", partsNumbers, QVariantList());
    row("a comment", R"({"a": "x", "#b": 1})", text, s("x"));
}

void tst_Settings::answersWhatIsThere()
{
    QFETCH(QByteArray, json);
    QFETCH(Ask, ask);
    const ZSettings settings = settingsOf(json);
    QTEST(ask(settings), "answer");
    QCOMPARE(settings.errors(), QStringList());
}

void tst_Settings::tellsWhatIsWrong_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<Ask>("ask");
    QTest::addColumn<QVariant>("answer");
    QTest::addColumn<QString>("error");
    const auto row = [](const char *name, const char *json, Ask ask, const QVariant &answer, const char *error) {
        QTest::newRow(name) << QByteArray(json) << ask << answer << s("plugins.recorder.") + s(error);
    };
    row("no text", "{}", text, s(""), "a: is missing");
    row("an empty text", R"({"a": ""})", text, s(""), "a: must be a text that is not empty");
    row("a text that is a number", R"({"a": 1})", text, s(""), "a: must be a text that is not empty");
    row("a text that is null", R"({"a": null})", textOrB, s("b"), "a: must be a text");
    row("no choice", "{}", choice, s("fast"), "a: is missing");
    row("another choice", R"({"a": "Safe"})", choiceOrSafe, s("safe"), R"(a: must be one of "fast", "safe")");
    row("a choice that is a number", R"({"a": 1})", choice, s("fast"), R"(a: must be one of "fast", "safe")");
    row("no flag", "{}", flag, false, "a: is missing");
    row("a flag that is a number", R"({"a": 0})", flagOrTrue, true, "a: must be true or false");
    row("no number", "{}", number, 0, "a: is missing");
    row("a number in quotes", R"({"a": "3"})", number, 0, "a: must be a whole number");
    row("a fraction", R"({"a": 3.5})", number, 0, "a: must be a whole number");
    row("too small", R"({"a": 0})", numberOr7, 7, "a: must be a whole number from 1 to 10");
    row("too great", R"({"a": 11})", numberOr7, 7, "a: must be a whole number from 1 to 10");
    row("too great for any", R"({"a": 2147483648})", numberFrom5, 5, "a: must be a whole number from 5 to 9");
    row("below the least", R"({"a": 0})", numberFrom1, 7, "a: must be a whole number from 1 to 2147483647");
    row("above the most", R"({"a": 101})", numberToAHundred, 7, "a: must be a whole number from -2147483648 to 100");
    row("not above 0", "{}", numberFrom5, 5, "a: is missing");
    row("not below 0", "{}", numberTo3, -3, "a: is missing");
    row("no fraction", "{}", real, 0.0, "a: is missing");
    row("a fraction in quotes", R"({"a": "1"})", real, 0.0, "a: must be a number");
    row("too great a fraction", R"({"a": 1.5})", realOrHalf, 0.5, "a: must be a number from 0 to 1");
    row("too small a fraction", R"({"a": -0.5})", realOrHalf, 0.5, "a: must be a number from 0 to 1");
    row("no texts", "{}", texts, QStringList(), "a: is missing");
    row("texts that are one", R"({"a": "x"})", textsOrB, QStringList{s("b")}, "a: must be an array of texts");
    row("a number among texts", R"({"a": ["x", 1]})", texts, QStringList(), "a: must be an array of texts");
    row("no part", "{}", partsNumber, 0, "a.n: is missing");
    row("a part that is none", R"({"a": 1})", partsNumbers, QVariantList(), "a: must be an array of objects");
    row("a number among parts", R"({"a": [{}, 1]})", partsNumbers, QVariantList(), "a: must be an array of objects");
    row("wrong in a part", R"({"a": [{"n": 1}, {"n": 6}]})", partsNumbers, QVariantList{1, 0},
        "a[1].n: must be a whole number from 0 to 5");
    row("unknown in a part that is asked for twice", R"({"a": {"n": 4, "t": "x", "m": 6}})", partsNumberAndText,
        QVariantList{4, s("x")}, "a.m: is not known; known are: n, t");
    row("unknown in a part", R"({"a": [{"n": 1, "m": 6}]})", partsNumbers, QVariantList{1},
        "a[0].m: is not known; known are: n");
}

void tst_Settings::tellsWhatIsWrong()
{
    QFETCH(QByteArray, json);
    QFETCH(Ask, ask);
    QFETCH(QString, error);
    const ZSettings settings = settingsOf(json);
    QTEST(ask(settings), "answer");
    QCOMPARE(settings.errors(), QStringList{error});
}

void tst_Settings::tellsASectionThatIsNone_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("errors");
    QTest::newRow("there is none") << QByteArray("{}") << QStringList();
    QTest::newRow("that of all plugins") << QByteArray(R"({"plugins": []})")
                                         << QStringList{s("plugins: must be an object")};
    QTest::newRow("that of none") << QByteArray(R"({"plugins": {}})") << QStringList();
    QTest::newRow("that of one") << QByteArray(R"({"plugins": {"recorder": 1}})")
                                 << QStringList{s("plugins.recorder: must be an object")};
    QTest::newRow("that of another") << QByteArray(R"({"plugins": {"other": 1}})") << QStringList();
}

void tst_Settings::tellsASectionThatIsNone()
{
    QFETCH(QByteArray, json);
    QFETCH(QStringList, errors);
    ZDefaultConfig config(parsed(json));
    const ZSettings settings(&config, Name);
    QCOMPARE(settings.number(s("a"), 7), 7);
    QCOMPARE(settings.errors(), errors);
}

void tst_Settings::tellsEachErrorOnce()
{
    const ZSettings settings = settingsOf("{}");
    settings.text(s("a"));
    settings.text(s("a"));
    QCOMPARE(settings.errors(), QStringList{s("plugins.recorder.a: is missing")});
}

void tst_Settings::tellsUnknownKeys()
{
    const ZSettings settings = settingsOf(R"({"evry": 1, "file": "x", "#": 1})");
    settings.number(s("every"), 500);
    settings.text(s("file"));
    QCOMPARE(settings.errors(), QStringList{s("plugins.recorder.evry: is not known; known are: every, file")});
}

void tst_Settings::tellsThatThereIsNoConfiguration()
{
    const ZSettings settings(nullptr, Name);
    QCOMPARE(settings.text(s("a"), s("b")), s("b"));
    QCOMPARE(settings.errors(), QStringList());
    QCOMPARE(settings.text(s("a")), QString());
    QCOMPARE(settings.errors(), QStringList{s("plugins.recorder.a: is missing")});
}

void tst_Settings::tellsThatARootIsNotLoaded()
{
    const ZObject root;
    ZDefaultConfig config({{s("plugins"), QJsonObject{{QString(), QJsonObject{{s("a"), 1}}}}}});
    QCOMPARE(ZSettings(&config, root).errors().value(0), s("plugins: a plugin has no name before it is loaded"));
    QCOMPARE(ZSettings(QJsonObject(), root).errors(), QStringList());
}

void tst_Settings::checkTellsTheErrorsAsWarnings()
{
    Journal journal;
    const ZSettings good = settingsOf("{}");
    QVERIFY(good.check(&journal));
    QVERIFY(journal.isEmpty());

    const ZSettings bad = settingsOf("{}");
    bad.text(s("a"));
    bad.object(s("b")).flag(s("c"));
    QVERIFY(!bad.check(&journal));
    QCOMPARE(journal.take(), (QStringList{s("warning: plugins.recorder.a: is missing"),
                                          s("warning: plugins.recorder.b.c: is missing")}));
    QVERIFY(!bad.check(nullptr));
}

QTEST_GUILESS_MAIN(tst_Settings)
#include "tst_settings.moc"
