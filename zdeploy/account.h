// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "verdict.h"

#include <QByteArray>
#include <QString>

#include <optional>

/// What a try-out has come to, as one process tells the other over a pipe. It counts, and not how the process has
/// ended: a plugin may end it, too, and would do so with 0 first of all.
struct Account
{
    /// What was begun last, such as "loading it".
    QString doing = QStringLiteral("trying it out");
    /// Nothing where it never came so far.
    std::optional<Verdict> verdict;

    static Account read(const QByteArray &text);
    static void begin(int descriptor, const QString &doing);
    static void judge(int descriptor, const Verdict &verdict);
};
