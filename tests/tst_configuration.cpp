// SPDX-License-Identifier: Apache-2.0
#include "folder.h"
#include "program.h"
#include "testcase.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QRegularExpression>

#include <sys/stat.h>

/// What the program, the schema and the operator's guide tell of a configuration is the same.
class tst_Configuration : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void programKnowsTheKeysOfTheSchema();
    void guideHasTheKeysOfTheSchema();
    void guideHasTheTypesAndDefaultsOfTheSchema_data();
    void guideHasTheTypesAndDefaultsOfTheSchema();
    void checkTakesTheExamplesOfTheSchema_data();
    void checkTakesTheExamplesOfTheSchema();
    void checkWantsTheTypesOfTheSchema_data();
    void checkWantsTheTypesOfTheSchema();
    void checkKnowsTheSectionOfThePlugins_data();
    void checkKnowsTheSectionOfThePlugins();
    void checkAppliesThePluginsSchema_data();
    void checkAppliesThePluginsSchema();
    void checkReadsNoSchemaWithoutEnd_data();
    void checkReadsNoSchemaWithoutEnd();
    void checkAsksForSettingsOfWhatIsWanted();
};

namespace {

QByteArray contentOf(const char *path)
{
    QFile file(QString::fromUtf8(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

using Keys = QMap<QString, QJsonObject>; // what is said of each, by its path

/// What `place`, or what it refers to, says.
QJsonObject resolved(QJsonObject place, const QJsonObject &schema)
{
    const QString name = place.value(QStringLiteral("$ref")).toString().section(QLatin1Char('/'), -1);
    const QJsonObject referred = schema.value(QStringLiteral("$defs")).toObject().value(name).toObject();
    for (auto entry = referred.begin(); entry != referred.end(); ++entry) {
        if (!place.contains(entry.key()))
            place.insert(entry.key(), entry.value());
    }
    return place;
}

void addKeys(const QJsonObject &place, const QString &path, const QJsonObject &schema, Keys *keys)
{
    const QJsonObject properties = place.value(QStringLiteral("properties")).toObject();
    for (auto property = properties.begin(); property != properties.end(); ++property) {
        const QJsonObject key = resolved(property.value().toObject(), schema);
        keys->insert(path + property.key(), key);
        addKeys(key, path + property.key() + QLatin1Char('.'), schema, keys);
        addKeys(key.value(QStringLiteral("items")).toObject(), path + property.key() + QStringLiteral("[]."), schema,
                keys);
    }
}

const Keys &schemaKeys()
{
    static const Keys keys = [] {
        const QJsonObject schema = QJsonDocument::fromJson(contentOf(SCHEMA)).object();
        Keys result;
        addKeys(schema, {}, schema, &result);
        return result;
    }();
    return keys;
}

/// Those that have no keys of their own.
QStringList leaves()
{
    QStringList result;
    for (auto key = schemaKeys().begin(); key != schemaKeys().end(); ++key) {
        if (key->contains(QStringLiteral("examples")))
            result.append(key.key());
    }
    return result;
}

struct Row
{
    QString type;
    QString otherwise;
};

/// The tables of the guide, by the paths of their keys.
QMap<QString, Row> guideRows()
{
    static const QRegularExpression heading(QStringLiteral("^### \"(.*)\"$"));
    static const QRegularExpression row(QStringLiteral("^\\| (\"[^|]*\") \\|([^|]*)\\|([^|]*)\\|.*\\|$"));
    QMap<QString, Row> rows;
    QString section;
    const QStringList lines =
        QString::fromUtf8(contentOf(GUIDE)).section(QStringLiteral("## Dropping"), 0, 0).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        if (const auto match = heading.match(line); match.hasMatch())
            section = match.captured(1);
        const auto match = row.match(line);
        const QStringList names = match.captured(1).split(QStringLiteral(", "), Qt::SkipEmptyParts);
        for (const QString &name : names) {
            const QString separator = QLatin1String(section == QLatin1String("schedule") ? "[]." : ".");
            rows.insert(section + separator + name.mid(1, name.size() - 2),
                        {match.captured(2).trimmed(), match.captured(3).trimmed()});
        }
    }
    return rows;
}

QString wordFor(const QJsonObject &key)
{
    static const QMap<QString, QString> words{{QStringLiteral("number"), QStringLiteral("number")},
                                              {QStringLiteral("integer"), QStringLiteral("number")},
                                              {QStringLiteral("string"), QStringLiteral("text")},
                                              {QStringLiteral("boolean"), QStringLiteral("true, false")},
                                              {QStringLiteral("array"), QStringLiteral("array of texts")},
                                              {QStringLiteral("object"), QStringLiteral("object")}};
    return words.value(key.value(QStringLiteral("type")).toString());
}

QString spelt(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

/// A configuration in which `path` has `value`, and what else it takes.
QJsonObject configurationWith(const QString &path, const QJsonValue &value)
{
    if (path.startsWith(QLatin1String("schedule"))) {
        QJsonObject entry{{QStringLiteral("url"), QStringLiteral("//a")}, {QStringLiteral("every"), 1}};
        const QString name = path.section(QLatin1Char('.'), 1);
        if (name == QLatin1String("from") || name == QLatin1String("to")) {
            entry.insert(QStringLiteral("from"), QStringLiteral("06:00:00"));
            entry.insert(QStringLiteral("to"), QStringLiteral("22:00:00"));
        }
        entry.insert(name, value);
        return {{QStringLiteral("schedule"), QJsonArray{entry}}};
    }
    const QString section = path.section(QLatin1Char('.'), 0, 0);
    return {{section, QJsonObject{{path.section(QLatin1Char('.'), 1), value}}}};
}

/// What is said of `configuration`, but for folders and plugins.
QString complaints(const QJsonObject &configuration)
{
    const Folder folder;
    folder.write(QStringLiteral("config.json"), QJsonDocument(configuration).toJson());
    const QStringList lines =
        runProgram(QStringLiteral(ZHOST), {QStringLiteral("--check"), folder.filePath(QStringLiteral("config.json"))})
            .err.split(QLatin1Char('\n'));
    const QRegularExpression ofKeys(QStringLiteral("no service knows|must "));
    return lines.filter(ofKeys).join(QLatin1Char('\n'));
}

void addLeaves()
{
    QTest::addColumn<QString>("path");
    const QStringList paths = leaves();
    QVERIFY(paths.size() > 10);
    for (const QString &path : paths)
        QTest::newRow(qPrintable(path)) << path;
}

} // namespace

void tst_Configuration::programKnowsTheKeysOfTheSchema()
{
    const Result result = runProgram(QStringLiteral(ZHOST), {QStringLiteral("--keys")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.err, QString());
    QStringList keys = result.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    keys.sort();
    QCOMPARE(keys, QStringList(schemaKeys().keys()));
}

void tst_Configuration::guideHasTheKeysOfTheSchema() { QCOMPARE(QStringList(guideRows().keys()), leaves()); }

void tst_Configuration::guideHasTheTypesAndDefaultsOfTheSchema_data() { addLeaves(); }

void tst_Configuration::guideHasTheTypesAndDefaultsOfTheSchema()
{
    QFETCH(QString, path);
    const QJsonObject key = schemaKeys().value(path);
    const Row row = guideRows().value(path);
    QCOMPARE(row.type, wordFor(key));
    const QJsonValue otherwise = key.value(QStringLiteral("default"));
    const QString isValue = QStringLiteral("\\A(\".*\"|\\d+|true|false)\\z");
    if (!otherwise.isUndefined())
        QCOMPARE(row.otherwise, spelt(otherwise));
    else
        QVERIFY2(!QRegularExpression(isValue).match(row.otherwise).hasMatch(), qPrintable(row.otherwise));
}

void tst_Configuration::checkTakesTheExamplesOfTheSchema_data() { addLeaves(); }

void tst_Configuration::checkTakesTheExamplesOfTheSchema()
{
    QFETCH(QString, path);
    const QJsonArray examples = schemaKeys().value(path).value(QStringLiteral("examples")).toArray();
    QVERIFY(!examples.isEmpty());
    for (const auto &example : examples)
        QCOMPARE(complaints(configurationWith(path, example)), QString());
}

void tst_Configuration::checkWantsTheTypesOfTheSchema_data() { addLeaves(); }

void tst_Configuration::checkWantsTheTypesOfTheSchema()
{
    QFETCH(QString, path);
    const QJsonObject key = schemaKeys().value(path);
    const QVector<QPair<QString, QJsonValue>> values{{QStringLiteral("number"), 1},
                                                     {QStringLiteral("text"), QStringLiteral("//a")},
                                                     {QStringLiteral("true, false"), true},
                                                     {QStringLiteral("array of texts"), QJsonArray{"a"}},
                                                     {QStringLiteral("object"), QJsonObject()}};
    for (const auto &[word, value] : values) {
        if (word != wordFor(key))
            QVERIFY2(complaints(configurationWith(path, value)).contains(QStringLiteral("must ")), qPrintable(word));
    }
    if (key.contains(QStringLiteral("minLength")))
        QVERIFY(!complaints(configurationWith(path, QString())).isEmpty());
}

void tst_Configuration::checkKnowsTheSectionOfThePlugins_data()
{
    QTest::addColumn<QJsonObject>("configuration");
    QTest::addColumn<QString>("complaint");
    const auto row = [](const char *name, const char *json, const char *complaint) {
        QTest::newRow(name) << QJsonDocument::fromJson(json).object() << QString::fromLatin1(complaint);
    };
    row("settings", R"({"plugins": {"recorder": {"every": 5}}})", "");
    row("a comment", R"({"plugins": {"#": 1}})", "");
    row("no object", R"({"plugins": []})", R"("plugins": must be an object; it is ignored)");
    row("no settings", R"({"plugins": {"recorder": 1}})", R"("plugins.recorder": must be an object; it is ignored)");
    row("another name", R"({"plugin": {}})",
        R"("plugin": no service knows this key; the nearest known one is "plugins")");
}

void tst_Configuration::checkKnowsTheSectionOfThePlugins()
{
    QFETCH(QJsonObject, configuration);
    QFETCH(QString, complaint);
    const QString told = complaints(configuration);
    QVERIFY2(complaint.isEmpty() ? told.isEmpty() : told.endsWith(complaint), qPrintable(told));
}

void tst_Configuration::checkAppliesThePluginsSchema_data()
{
    QTest::addColumn<QByteArray>("schema");
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<QString>("finding");
    const auto row = [](const char *name, const char *schema, const char *settings, const char *finding) {
        QTest::newRow(name) << QByteArray(schema) << QByteArray(settings) << QString::fromLatin1(finding);
    };
    row("nothing", "{}", "{}", "");
    row("what is for people", R"({"$schema": "x", "title": 1, "description": 1, "default": 1, "examples": 1})", "{}",
        "");
    const char every[] = R"({"properties": {"every": {"type": "integer", "minimum": 1, "maximum": 9}}})";
    row("a number", every, R"({"every": 9})", "");
    row("a fraction", every, R"({"every": 1.5})", R"("plugins.recorder.every": must be a whole number)");
    row("too small", every, R"({"every": 0})", R"("plugins.recorder.every": must not be below 1)");
    row("too great", every, R"({"every": 10})", R"("plugins.recorder.every": must not be above 9)");
    row("a text for a number", every, R"({"every": "1"})", R"("plugins.recorder.every": must be a whole number)");
    row("a key that is free", every, R"({"other": "1"})", "");
    const char types[] = R"({"properties": {"a": {"type": ["boolean", "string", "null"]}}})";
    row("one of two types", types, R"({"a": true})", "");
    row("the other", types, R"({"a": null})", "");
    row("neither", types, R"({"a": 1})", R"("plugins.recorder.a": must be a text, or true or false, or null)");
    row("half a character", R"({"properties": {"a": {"type": "string"}}})", R"({"a": "\ud800"})", "");
    row("an enumeration", R"({"properties": {"a": {"enum": ["x", 1]}}})", R"({"a": 1})", "");
    row("not in it", R"({"properties": {"a": {"enum": ["x", 1]}}})", R"({"a": 2})",
        R"("plugins.recorder.a": must be one of "x", 1)");
    row("what is required", R"({"required": ["a"]})", "{}", R"("plugins.recorder.a": is missing)");
    row("a closed object", R"({"properties": {"a": {}}, "additionalProperties": false})", R"({"#b": 1, "b": 1})",
        R"("plugins.recorder.b": is not known; known are: a)");
    row("a pattern", R"({"properties": {"a": {"pattern": "^x+$"}}})", R"({"a": "xx"})", "");
    row("no match", R"({"properties": {"a": {"pattern": "^x+$"}}})", R"({"a": "xy"})",
        R"("plugins.recorder.a": must match ^x+$)");
    const char items[] = R"({"properties": {"a": {"type": "array", "items": {"type": "object", "required": ["b"]}}}})";
    row("items", items, R"({"a": [{"b": 1}]})", "");
    row("an item", items, R"({"a": [{"b": 1}, {}]})", R"("plugins.recorder.a[1].b": is missing)");
    row("no JSON", "{", "{}", "cannot be read, or is no JSON object");
    row("another keyword", R"({"oneOf": []})", "{}",
        R"("plugins.recorder": its schema has "oneOf", which is not understood)");
    row("another keyword within", R"({"properties": {"a": {"items": {"$ref": "x"}}}})", "{}",
        R"("plugins.recorder.a[]": its schema has "$ref", which is not understood)");
    for (const char *const wrong : {R"("type": "text")", R"("type": [])", R"("enum": 1)", R"("minimum": "1")",
                                    R"("maximum": "1")", R"("pattern": "[")", R"("items": [])", R"("required": [1])",
                                    R"("properties": {"a": 1})", R"("additionalProperties": {})"})
        QTest::newRow(wrong) << "{" + QByteArray(wrong) + "}" << QByteArray("{}")
                             << QStringLiteral("that is of no use");
}

void tst_Configuration::checkAppliesThePluginsSchema()
{
    QFETCH(QByteArray, schema);
    QFETCH(QByteArray, settings);
    QFETCH(QString, finding);
    const Folder folder;
    QVERIFY(folder.write(QStringLiteral("librecorder.schema.json"), schema));
    const QByteArray loader = QJsonDocument(QJsonObject{{QStringLiteral("deployed"), folder.path()}}).toJson();
    QVERIFY(folder.write(QStringLiteral("config.json"),
                         R"({"loader": )" + loader + R"(, "plugins": {"recorder": )" + settings + "}}"));
    const Result result =
        runProgram(QStringLiteral(ZHOST), {QStringLiteral("--check"), folder.filePath(QStringLiteral("config.json"))});
    const QString told = result.err.split(QLatin1Char('\n')).filter(QStringLiteral("plugins.")).join(QLatin1Char('\n'));
    QVERIFY2(finding.isEmpty() ? told.isEmpty() : told.endsWith(finding), qPrintable(result.err));
    QVERIFY(finding.isEmpty() || result.exitCode == 1);
}

void tst_Configuration::checkReadsNoSchemaWithoutEnd_data()
{
    QTest::addColumn<QString>("target");
    QTest::newRow("a device") << "/dev/zero";
    QTest::newRow("a pipe that nobody writes to") << "pipe";
    QTest::newRow("a file that is too large") << "large";
}

void tst_Configuration::checkReadsNoSchemaWithoutEnd()
{
    QFETCH(QString, target);
    const Folder folder;
    QCOMPARE(mkfifo(QFile::encodeName(folder.filePath(QStringLiteral("pipe"))).constData(), 0600), 0);
    QVERIFY(folder.write(QStringLiteral("large"), QByteArray(1 << 20, ' ') + "{}"));
    const QString schema = folder.filePath(QStringLiteral("librecorder.schema.json"));
    QVERIFY(QFile::link(QDir(folder.path()).absoluteFilePath(target), schema));
    const QJsonObject loader{{QStringLiteral("deployed"), folder.path()},
                             {QStringLiteral("load-list"), QJsonArray{QStringLiteral("recorder")}}};
    QVERIFY(folder.write(QStringLiteral("config.json"),
                         QJsonDocument(QJsonObject{{QStringLiteral("loader"), loader}}).toJson()));
    const Result result =
        runProgram(QStringLiteral(ZHOST), {QStringLiteral("--check"), folder.filePath(QStringLiteral("config.json"))});
    const QString told = QStringLiteral("its schema %1 cannot be read, or is no JSON object").arg(schema);
    QVERIFY2(result.err.contains(told), qPrintable(result.err));
    QCOMPARE(result.exitCode, 1);
}

void tst_Configuration::checkAsksForSettingsOfWhatIsWanted()
{
    const Folder folder;
    QVERIFY(folder.write(QStringLiteral("librecorder.schema.json"), R"({"required": ["a"]})"));
    const auto isMissed = [&](const QJsonArray &names) {
        const QJsonObject loader{{QStringLiteral("deployed"), folder.path()}, {QStringLiteral("load-list"), names}};
        folder.write(QStringLiteral("config.json"),
                     QJsonDocument(QJsonObject{{QStringLiteral("loader"), loader}}).toJson());
        return runProgram(QStringLiteral(ZHOST),
                          {QStringLiteral("--check"), folder.filePath(QStringLiteral("config.json"))})
            .err.contains(QStringLiteral("\"plugins.recorder.a\": is missing"));
    };
    QVERIFY(!isMissed({}));
    QVERIFY(isMissed({QStringLiteral("recorder.1")}));
}

QTEST_GUILESS_MAIN(tst_Configuration)

#include "tst_configuration.moc"
