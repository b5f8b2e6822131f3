// SPDX-License-Identifier: Apache-2.0
#include "doubledkeys.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

#include <cstring>

namespace {

class Scan
{
public:
    explicit Scan(const QByteArray &json) : m_json(json), m_at(json.startsWith("\xef\xbb\xbf") ? 3 : 0) {}

    QStringList doubled;

    void value(const QString &path)
    {
        switch (next()) {
        case '{':
            return object(path);
        case '[':
            return array(path);
        case '"':
            text();
            return;
        default:
            while (!std::strchr(" \t\n\r,]}", here())) // which finds the end as well
                ++m_at;
        }
    }

private:
    void object(const QString &path)
    {
        QSet<QString> keys;
        ++m_at;
        while (next() == '"') {
            const QString key = text();
            const QString keyPath = path.isEmpty() ? key : QStringLiteral("%1.%2").arg(path, key);
            if (keys.contains(key) && !key.startsWith(QLatin1Char('#')) && !doubled.contains(keyPath))
                doubled.append(keyPath);
            keys.insert(key);
            take(':');
            value(keyPath);
            take(',');
        }
        take('}');
    }

    void array(const QString &path)
    {
        ++m_at;
        for (int i = 0; next() != ']' && here(); ++i) {
            value(QStringLiteral("%1[%2]").arg(path, QString::number(i)));
            take(',');
        }
        take(']');
    }

    /// As the parser reads it: two spellings may be one key.
    QString text()
    {
        const int begin = m_at++;
        while (here() && here() != '"')
            m_at += here() == '\\' ? 2 : 1;
        ++m_at;
        return QJsonDocument::fromJson('[' + m_json.mid(begin, m_at - begin) + ']').array().at(0).toString();
    }

    char here() const { return m_at < m_json.size() ? m_json.at(m_at) : '\0'; }

    /// The next character that is no space.
    char next()
    {
        while (here() && std::strchr(" \t\n\r", here()))
            ++m_at;
        return here();
    }

    void take(char character)
    {
        if (next() == character)
            ++m_at;
    }

    const QByteArray m_json;
    int m_at;
};

} // namespace

QStringList doubledKeys(const QByteArray &json)
{
    Scan scan(json);
    scan.value({});
    return scan.doubled;
}
