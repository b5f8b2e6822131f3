// SPDX-License-Identifier: Apache-2.0
#include "say.h"

#include "known/logring.h"
#include "printable.h"

#include <QJsonDocument>

#include <cstdio>

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {

/// systemd names the journal's stream in the environment: "DEVICE:INODE".
bool stderrIsJournal()
{
    struct stat status;
    return fstat(STDERR_FILENO, &status) == 0 &&
           qgetenv("JOURNAL_STREAM") ==
               QByteArray::number(qulonglong(status.st_dev)) + ':' + QByteArray::number(qulonglong(status.st_ino));
}

} // namespace

void writeLine(int severity, const QString &text)
{
    LogRing::get().add(severity, text);
    static const bool isJournal = stderrIsJournal();
    QByteArray line = isJournal ? '<' + QByteArray::number(severity) + '>' : QByteArray();
    line += printable(text).toLocal8Bit() + '\n';
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stderr);
}

void complain(const QString &text) { writeLine(LOG_WARNING, QStringLiteral("zhost: ") + text); }

void printJson(const QJsonObject &object)
{
    print(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented).trimmed()));
}

void print(const QString &text) { std::fprintf(stdout, "%s\n", text.toLocal8Bit().constData()); }
