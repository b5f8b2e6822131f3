// SPDX-License-Identifier: Apache-2.0
#include "pluginname.h"

#include <QFile>
#include <QRegularExpression>

#include <climits>

namespace {

bool isDigit(QChar c) { return c >= QLatin1Char('0') && c <= QLatin1Char('9'); }

/// How many digits follow on `letter` at the end of a version that this file has made: five on "A", six on "B".
int digitsOn(QChar letter) { return letter.unicode() - 'A' + 5; }

/// A version that sorts after `version`, whatever that is, and that ends in digits, which are counted on. When they are
/// all nines, a letter, which sorts after all digits, stands before longer ones: "A00000", and "B000000" after
/// "A99999". So versions get longer by a character while ten times as many of them are used up.
QString after(const QString &version)
{
    int stem = version.size();
    while (stem > 0 && isDigit(version[stem - 1]))
        --stem;
    QString result = version;
    for (int i = result.size() - 1; i >= stem; --i) {
        if (result[i] != QLatin1Char('9')) {
            result[i] = QChar(result[i].unicode() + 1);
            return result;
        }
        result[i] = QLatin1Char('0');
    }
    const int digits = version.size() - stem;
    if (digits == 0)
        return version + QStringLiteral("0001");
    const QChar letter = stem > 0 ? version[stem - 1] : QChar();
    const bool isOurs = letter >= QLatin1Char('A') && letter < QLatin1Char('Z') && digits == digitsOn(letter);
    const QChar next = isOurs ? QChar(letter.unicode() + 1) : QLatin1Char('A');
    return version.left(isOurs ? stem - 1 : stem) + next + QString(digitsOn(next), QLatin1Char('0'));
}

/// As `after`, and as short as can be: the first character for which there is a greater one gives way to it. For a
/// version that is too long to be counted on.
QString shortAfter(const QString &version)
{
    static const QString characters = QStringLiteral("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz~");
    for (int i = 0; i < version.size(); ++i) {
        for (const QChar greater : characters) {
            if (greater > version[i])
                return version.left(i) + greater;
        }
    }
    return version + QLatin1Char('0');
}

bool fitsAFileSystem(const PluginName &name) { return QFile::encodeName(name.file()).size() <= NAME_MAX; }

} // namespace

PluginName PluginName::parse(const QString &file)
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(\Alib([^./*?[\]]+)(?:\.([^/]+))?\.so\z)")); // the loader looks for versions by a pattern
    const QRegularExpressionMatch match = pattern.match(file);
    return {match.captured(1), match.captured(2)};
}

bool PluginName::isVersion(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral(R"(\A[0-9A-Za-z_+~-]+(?:\.[0-9A-Za-z_+~-]+)*\z)"));
    return pattern.match(text).hasMatch();
}

QString PluginName::file() const
{
    return version.isEmpty() ? QStringLiteral("lib%1.so").arg(plugin)
                             : QStringLiteral("lib%1.%2.so").arg(plugin, version);
}

bool PluginName::isSamePlugin(const PluginName &other) const
{
    const bool arePlain = version.isEmpty() && other.version.isEmpty();
    return plugin.compare(other.plugin, arePlain ? Qt::CaseSensitive : Qt::CaseInsensitive) == 0;
}

PluginName PluginName::newest(const QStringList &files) const
{
    PluginName result;
    for (const QString &file : files) {
        const PluginName name = parse(file);
        const bool isNewer = result.plugin.isNull() || result.version.isEmpty() ||
                             (!name.version.isEmpty() && name.file() > result.file());
        if (!name.plugin.isNull() && isSamePlugin(name) && isNewer)
            result = name;
    }
    return result;
}

bool PluginName::isNewest(const QStringList &files) const
{
    const PluginName last = newest(files);
    return last.plugin.isNull() || (!version.isEmpty() && (last.version.isEmpty() || file() > last.file()));
}

PluginName PluginName::next(const QStringList &files) const
{
    if (isNewest(files))
        return *this;
    const PluginName last = newest(files); // another case may sort before it
    const PluginName result{last.plugin, after(last.version)};
    return fitsAFileSystem(result) ? result : PluginName{last.plugin, shortAfter(last.version)};
}
