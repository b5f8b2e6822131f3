// SPDX-License-Identifier: Apache-2.0
#include "folder.h"
#include "program.h"
#include "testcase.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QRegularExpression>

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

QTEST_GUILESS_MAIN(tst_Configuration)

#include "tst_configuration.moc"
