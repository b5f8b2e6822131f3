// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>

/**
 * Reads a section of the configuration, and says what is wrong with it. It knows the keys that it has been asked for:
 * all others are wrong, unless they begin with #.
 *
 * Thread:  one at a time.
 * Failure: a value that is missing or wrong gives the default.
 */
class SectionReader
{
public:
    /// `problems` may be null.
    SectionReader(const QJsonObject &section, const QString &path, QStringList *problems);

    bool has(const char *key) const;
    void problem(const char *key, const QString &what);

    /// A text that is not empty, and has no NUL in it.
    QString text(const char *key, const QString &otherwise);
    /// The absolute path of a file.
    QString file(const char *key);
    /// The first of the choices is the default.
    QString oneOf(const char *key, const QStringList &choices);
    int number(const char *key, int otherwise, int least, int most);
    /// Such texts of which `fault` has nothing to say.
    QStringList texts(const char *key, const QStringList &otherwise,
                      const std::function<QString(const QString &)> &fault);
    SectionReader section(const char *key);

    /// Says which keys nobody has asked for.
    void finish();

private:
    QJsonValue take(const char *key);

    QJsonObject m_section;
    QString m_path;
    QStringList *m_problems;
    QStringList m_known;
};
