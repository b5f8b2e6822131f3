// SPDX-License-Identifier: Apache-2.0
#include "configuration.h"

#include "timetable.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <zdefaultloader.h>

#include <algorithm>
#include <numeric>
#include <vector>

namespace {

enum Type
{
    Any,
    Number,
    Text,
    Folder,
    Texts,
    Folders,
    Numbers,
    Section,
    Timetable
};

struct Key
{
    const char *name;
    Type type;
    std::vector<Key> keys; // of a section
};

const std::vector<Key> &knownKeys()
{
    static const std::vector<Key> keys = {
        {"logger",
         Section,
         {{"debug", Number, {}},
          {"info", Number, {}},
          {"warning", Number, {}},
          {"critical", Number, {}},
          {"fatal", Number, {}},
          {"log", Numbers, {}}}},
        {"loader",
         Section,
         {{"hot-deploy", Folder, {}},
          {"deployed", Folder, {}},
          {"add-library-path", Folders, {}},
          {"add-path", Folders, {}},
          {"load-list", Texts, {}}}},
        {"filesystem", Section, {{"temporary-folder", Text, {}}, {"temporary-fn-template", Text, {}}}},
        {"schedule",
         Timetable,
         {{"url", Any, {}},
          {"every", Any, {}},
          {"from", Any, {}},
          {"to", Any, {}},
          {"repeat", Any, {}},
          {"keep", Any, {}}}},
    };
    return keys;
}

bool isComment(const QString &key) { return key.startsWith(QLatin1Char('#')); }

QString quoted(const QString &text) { return QStringLiteral("\"%1\"").arg(text); }

/// How many letters must be changed, added or taken away to make one text of the other.
int distance(const QString &left, const QString &right)
{
    std::vector<int> row(static_cast<size_t>(right.size()) + 1);
    std::iota(row.begin(), row.end(), 0);
    for (int i = 0; i < left.size(); ++i) {
        int diagonal = row[0];
        row[0] = i + 1;
        for (int j = 0; j < right.size(); ++j) {
            const auto column = static_cast<size_t>(j);
            const int changed = diagonal + (left[i].toLower() == right[j].toLower() ? 0 : 1);
            diagonal = row[column + 1];
            row[column + 1] = std::min({changed, diagonal + 1, row[column] + 1});
        }
    }
    return row.back();
}

QString nearest(const QString &text, const std::vector<Key> &keys)
{
    const auto further = [&](const Key &a, const Key &b) {
        return distance(text, QLatin1String(a.name)) < distance(text, QLatin1String(b.name));
    };
    return QLatin1String(std::min_element(keys.begin(), keys.end(), further)->name);
}

class Check
{
public:
    QVector<Configuration::Finding> findings;

    void object(const QJsonObject &object, const std::vector<Key> &keys, const QString &path)
    {
        for (auto entry = object.begin(); entry != object.end(); ++entry) {
            const QString name = entry.key();
            const auto known =
                std::find_if(keys.begin(), keys.end(), [&](const Key &key) { return name == QLatin1String(key.name); });
            if (known != keys.end())
                value(entry.value(), *known, path + name);
            else if (!isComment(name))
                unknown(path, name, entry.value(), keys);
        }
    }

private:
    void unknown(const QString &path, const QString &name, const QJsonValue &value, const std::vector<Key> &keys)
    {
        const QString known = nearest(name, keys);
        const bool ofPlugin = path.isEmpty() && value.isObject() && distance(name, known) > 2;
        findings.append({QStringLiteral("%1: no service knows this key%2; the nearest known one is %3")
                             .arg(quoted(path + name), QLatin1String(ofPlugin ? ", though a plugin may" : ""),
                                  quoted(path + known)),
                         !ofPlugin});
    }

    void problem(const QString &path, const QString &what)
    {
        findings.append({QStringLiteral("%1: %2").arg(quoted(path), what), true});
    }

    void expect(bool right, const QString &path, const char *what)
    {
        if (!right)
            problem(path, QStringLiteral("must be %1; it is ignored").arg(QLatin1String(what)));
    }

    void value(const QJsonValue &value, const Key &key, const QString &path)
    {
        switch (key.type) {
        case Any:
            return;
        case Number:
            return expect(value.isDouble(), path, "a number");
        case Numbers:
            return numbers(value, path);
        case Text:
        case Folder:
            expect(!value.toString().isEmpty(), path, "a text that is not empty");
            return key.type == Folder ? folder(value.toString(), path) : void();
        case Texts:
        case Folders:
            return texts(value, key.type, path);
        case Section:
            expect(value.isObject(), path, "an object");
            return object(value.toObject(), key.keys, path + QLatin1Char('.'));
        case Timetable:
            return timetable(value, key, path);
        }
    }

    void numbers(const QJsonValue &value, const QString &path)
    {
        expect(value.isObject(), path, "an object");
        const QJsonObject object = value.toObject();
        for (auto entry = object.begin(); entry != object.end(); ++entry) {
            if (!isComment(entry.key()))
                expect(entry.value().isDouble(), path + QLatin1Char('.') + entry.key(), "a number");
        }
    }

    void texts(const QJsonValue &value, Type type, const QString &path)
    {
        expect(value.isArray(), path, "an array");
        const QJsonArray array = value.toArray();
        for (int i = 0; i < array.size(); ++i) {
            const QString element = QStringLiteral("%1[%2]").arg(path, QString::number(i));
            this->value(array.at(i), {"", type == Folders ? Folder : Text, {}}, element);
        }
    }

    void timetable(const QJsonValue &value, const Key &key, const QString &path)
    {
        expect(value.isArray(), path, "an array");
        const QJsonArray entries = value.toArray();
        for (int i = 0; i < entries.size(); ++i) {
            const QString entry = QStringLiteral("%1[%2]").arg(path, QString::number(i));
            object(entries.at(i).toObject(), key.keys, entry + QLatin1Char('.'));
            QStringList wrong;
            TimetableEntry::read(entries.at(i), &wrong);
            for (const QString &what : qAsConst(wrong))
                problem(entry, what + QStringLiteral("; it does not run"));
        }
    }

    void folder(const QString &folder, const QString &path)
    {
        QDir dir;
        if (!folder.isEmpty() && !ZDefaultLoader::resolve(folder, dir))
            problem(path, QStringLiteral("there is no folder %1").arg(folder));
    }
};

/// Where in `text` the byte `offset` lies, as people count.
QString place(const QByteArray &text, int offset)
{
    const QByteArray before = text.left(offset);
    const QByteArray line = before.mid(before.lastIndexOf('\n') + 1);
    return QStringLiteral("line %1, column %2").arg(before.count('\n') + 1).arg(QString::fromUtf8(line).size() + 1);
}

} // namespace

Configuration Configuration::read(const QString &file)
{
    QFile in(file);
    // A folder can be opened, but not read.
    if (!in.open(QIODevice::ReadOnly))
        return {{}, QStringLiteral("cannot read %1: %2").arg(file, in.errorString())};
    const QByteArray text = in.readAll();
    if (in.error() != QFile::NoError)
        return {{}, QStringLiteral("cannot read %1: %2").arg(file, in.errorString())};
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError)
        return {{}, QStringLiteral("%1: %2: %3").arg(file, place(text, error.offset), error.errorString())};
    if (!document.isObject())
        return {{}, QStringLiteral("%1: the top level must be a JSON object").arg(file)};
    return {document.object(), {}};
}

QString Configuration::folder(const QString &key) const
{
    const QJsonValue section = object.value(QStringLiteral("loader"));
    const QString path = section.toObject().value(key).toString();
    QDir dir;
    const bool isFound = section.isObject() && ZDefaultLoader::resolve(path.isEmpty() ? key : path, dir);
    return isFound ? dir.absolutePath() : QString();
}

QVector<Configuration::Finding> Configuration::findings() const
{
    Check check;
    check.object(object, knownKeys(), {});
    for (Finding &finding : check.findings) // a key or a path may have a line break in it
        finding.text.replace(QLatin1Char('\n'), QLatin1String("\\n"));
    return check.findings;
}
