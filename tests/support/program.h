// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

/// How a program ended.
struct Result
{
    int exitCode; ///< -1 if it crashed, or did not end.
    QString out;
    QString err;
};

/// Waits for the end of `process`.
Result finish(QProcess &process);

/// The running test fails unless this one ended well, and wrote what `pattern` matches, and that alone.
void verifyTells(const Result &result, const QString &pattern);

/// Runs `program` to its end.
Result runProgram(const QString &program, const QStringList &arguments);
