// SPDX-License-Identifier: Apache-2.0
#include "program.h"

#include <QRegularExpression>
#include <QTest>

Result finish(QProcess &process)
{
    // It may have ended while an event loop ran, and there is nothing to wait for then.
    const bool hasEnded = process.state() == QProcess::NotRunning || process.waitForFinished(120000);
    if (!hasEnded || process.error() == QProcess::FailedToStart || process.exitStatus() != QProcess::NormalExit)
        return {-1, QString(), process.errorString()};
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

Result runProgram(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    return finish(process);
}

void verifyTells(const Result &result, const QString &pattern)
{
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.err, QString());
    QVERIFY2(QRegularExpression(pattern).match(result.out).hasMatch(), qPrintable(result.out));
}
