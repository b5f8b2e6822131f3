// SPDX-License-Identifier: Apache-2.0
#include "pluginname.h"

#include <QRegularExpression>

namespace {

/// The last of `files` in the loader's order, if they are of this plugin.
PluginName newest(const QString &plugin, const QStringList &files)
{
    PluginName result;
    for (const QString &file : files) {
        const PluginName name = PluginName::parse(file);
        if (name.plugin == plugin && (result.plugin.isNull() || result.version.isEmpty() ||
                                      (!name.version.isEmpty() && name.file() > result.file())))
            result = name;
    }
    return result;
}

/// A version that sorts after `version`, whatever that is: of the same length as long as counting on allows it.
QString after(const QString &version)
{
    QString result = version;
    for (int i = result.size() - 1; i >= 0 && result[i] >= QLatin1Char('0') && result[i] <= QLatin1Char('9'); --i) {
        if (result[i] != QLatin1Char('9')) {
            result[i] = QChar(result[i].unicode() + 1);
            return result;
        }
        result[i] = QLatin1Char('0');
    }
    return version.isEmpty() ? QStringLiteral("1") : version + QLatin1Char('0');
}

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

bool PluginName::isNewest(const QStringList &files) const
{
    const PluginName last = newest(plugin, files);
    return last.plugin.isNull() || (!version.isEmpty() && (last.version.isEmpty() || file() > last.file()));
}

PluginName PluginName::next(const QStringList &files) const
{
    return isNewest(files) ? *this : PluginName{plugin, after(newest(plugin, files).version)};
}
