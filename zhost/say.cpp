// SPDX-License-Identifier: Apache-2.0
#include "say.h"

#include <algorithm>
#include <cstdio>

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {

bool isControl(QChar character)
{
    return character.category() == QChar::Other_Control && character != QLatin1Char('\t');
}

QString spelling(QChar control)
{
    switch (control.unicode()) {
    case '\n':
        return QStringLiteral("\\n");
    case '\r':
        return QStringLiteral("\\r");
    default:
        return QStringLiteral("\\x%1").arg(control.unicode(), 2, 16, QLatin1Char('0'));
    }
}

/// systemd names the journal's stream in the environment: "DEVICE:INODE".
bool stderrIsJournal()
{
    struct stat status;
    return fstat(STDERR_FILENO, &status) == 0 &&
           qgetenv("JOURNAL_STREAM") ==
               QByteArray::number(qulonglong(status.st_dev)) + ':' + QByteArray::number(qulonglong(status.st_ino));
}

} // namespace

QString printable(const QString &text)
{
    if (std::none_of(text.begin(), text.end(), isControl))
        return text;
    QString result;
    for (const QChar character : text)
        result += isControl(character) ? spelling(character) : QString(character);
    return result;
}

void writeLine(int severity, const QString &text)
{
    static const bool isJournal = stderrIsJournal();
    QByteArray line = isJournal ? '<' + QByteArray::number(severity) + '>' : QByteArray();
    line += printable(text).toLocal8Bit() + '\n';
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stderr);
}

void complain(const QString &text) { writeLine(LOG_WARNING, QStringLiteral("zhost: ") + text); }

void print(const QString &text) { std::fprintf(stdout, "%s\n", text.toLocal8Bit().constData()); }
