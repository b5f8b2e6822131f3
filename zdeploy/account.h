// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "verdict.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

/// The result of a try-out, which one process writes to the other over a pipe. The exit status does not count: a plugin
/// may end the process, too, most likely with status 0.
struct Account
{
    /// The step that was begun last, such as "loading it".
    QString doing = QStringLiteral("trying it out");
    /// Nothing if the process did not come as far as that.
    std::optional<Verdict> verdict;
    /// Facts that were written besides.
    QStringList facts;

    static Account read(const QByteArray &text);
    static void begin(int descriptor, const QString &doing);
    /// Writes as many facts as a pipe has room for, so that it never waits for a reader.
    static void tell(int descriptor, const QStringList &facts);
    static void judge(int descriptor, const Verdict &verdict);
};
