// SPDX-License-Identifier: Apache-2.0
#include "keycheck.h"

#include "timetableentry.h"

#include <QDir>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>

#include <zdefaultloader.h>

#include <algorithm>
#include <numeric>
#include <vector>

namespace {

enum Type
{
    Any,
    Number,
    Flag,
    Text,
    Template,
    Folder,
    Texts,
    Folders,
    Numbers,
    Section,
    AnySection,
    Sections,
    SectionOrFalse,
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
          {"load-list", Texts, {}},
          {"remember", Flag, {}},
          {"inbox", Folder, {}},
          {"strict", Flag, {}}}},
        {"filesystem", Section, {{"temporary-folder", Text, {}}, {"temporary-fn-template", Template, {}}}},
        {"guard", SectionOrFalse, {{"probation", Number, {}}}},
        {"door",
         SectionOrFalse,
         {{"socket", Text, {}}, {"listen", Text, {}}, {"anywhere", Flag, {}}, {"token-file", Text, {}}}},
        {"nats", AnySection, {}}, // see checkNats
        {"plugins", Sections, {}},
        {"schedule",
         Timetable,
         {{"url", Any, {}},
          {"every", Any, {}},
          {"from", Any, {}},
          {"to", Any, {}},
          {"repeat", Any, {}},
          {"keep", Any, {}},
          {"once", Any, {}},
          {"lease", Any, {}}}},
    };
    return keys;
}

bool isComment(const QString &key) { return key.startsWith(QLatin1Char('#')); }

QString quoted(const QString &text) { return QStringLiteral("\"%1\"").arg(text); }

/// How many letters must be changed, added or removed to turn one text into the other.
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
    QVector<Finding> findings;

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
        findings.append({path + name,
                         QStringLiteral("no service knows this key%1; the nearest known one is %2")
                             .arg(QLatin1String(ofPlugin ? ", though a plugin may" : ""), quoted(path + known)),
                         ofPlugin ? Finding::Note : Finding::Wrong});
    }

    void problem(const QString &path, const QString &what) { findings.append({path, what, Finding::Wrong}); }

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
        case Flag:
            return expect(value.isBool(), path, "true or false");
        case Numbers:
            return entries(value, path, &QJsonValue::isDouble, "a number");
        case AnySection:
            return expect(value.isObject(), path, "an object");
        case Sections:
            return entries(value, path, &QJsonValue::isObject, "an object");
        case Text:
            return text(value, path);
        case Template:
            text(value, path);
            return nameTemplate(value.toString(), path);
        case Folder:
            text(value, path);
            return folder(value.toString(), path);
        case Texts:
        case Folders:
            return texts(value, key.type, path);
        case Section:
        case SectionOrFalse:
            if (key.type == Section)
                expect(value.isObject(), path, "an object");
            else
                expect(value.isObject() || value == false, path, "an object, or false");
            return object(value.toObject(), key.keys, path + QLatin1Char('.'));
        case Timetable:
            return timetable(value, key, path);
        }
    }

    void text(const QJsonValue &value, const QString &path)
    {
        expect(!value.toString().isEmpty(), path, "a text that is not empty");
    }

    /// Checks the template of the names of temporary files. At the start, files whose names begin so are removed: a
    /// pattern would match files of others, too.
    void nameTemplate(const QString &text, const QString &path)
    {
        for (const char character : {'*', '?', '[', '/'}) {
            if (text.contains(QLatin1Char(character)))
                findings.append({path,
                                 QStringLiteral("must not have %1 in it: files of others would be removed")
                                     .arg(QLatin1Char(character)),
                                 Finding::Unusable});
        }
    }

    /// Checks an object with any keys, whose values must be `what`.
    void entries(const QJsonValue &value, const QString &path, bool (QJsonValue::*isRight)() const, const char *what)
    {
        expect(value.isObject(), path, "an object");
        const QJsonObject object = value.toObject();
        for (auto entry = object.begin(); entry != object.end(); ++entry) {
            if (!isComment(entry.key()))
                expect((QJsonValue(entry.value()).*isRight)(), path + QLatin1Char('.') + entry.key(), what);
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
            const TimetableEntry read = TimetableEntry::read(entries.at(i), &wrong);
            for (const QString &what : qAsConst(wrong))
                problem(entry, what + QStringLiteral("; it does not run"));
            if (wrong.isEmpty())
                doubts(read, entry);
        }
    }

    /// Reports what is valid in an entry, but may not be what is meant.
    void doubts(const TimetableEntry &entry, const QString &path)
    {
        if (const QString other = m_leases.value(entry.once); !other.isEmpty())
            problem(path,
                    QStringLiteral("\"once\" names the lease of %1, too: they take each other's turns").arg(other));
        if (!entry.once.isEmpty())
            m_leases.insert(entry.once, path);
        if (entry.url.host().isEmpty())
            problem(path, QStringLiteral("\"url\" has no host: it calls every endpoint that there is"));
        if (entry.isDaily() && entry.from > entry.to)
            findings.append(
                {path,
                 QStringLiteral("\"from\" is later than \"to\": it is called from %1 until midnight, and not "
                                "after it; that takes an entry of its own, from 00:00:00 to %2")
                     .arg(entry.from.toString(), entry.to.toString()),
                 Finding::Note});
    }

    void folder(const QString &folder, const QString &path)
    {
        QDir dir;
        if (!folder.isEmpty() && !ZDefaultLoader::resolve(folder, dir))
            problem(path, QStringLiteral("there is no folder %1").arg(folder));
    }

    QHash<QString, QString> m_leases; // entries of the timetable by their leases
};

void appendPaths(const std::vector<Key> &keys, const QString &path, QStringList *paths)
{
    for (const Key &key : keys) {
        const QString keyPath = path + QLatin1String(key.name);
        paths->append(keyPath);
        appendPaths(key.keys, keyPath + QLatin1String(key.type == Timetable ? "[]." : "."), paths);
    }
}

} // namespace

QVector<Finding> checkKeys(const QJsonObject &configuration)
{
    Check check;
    check.object(configuration, knownKeys(), {});
    return check.findings;
}

QStringList knownKeyPaths()
{
    QStringList paths;
    appendPaths(knownKeys(), {}, &paths);
    return paths;
}
