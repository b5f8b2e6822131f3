// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

#include <atomic>
#include <functional>

/**
 * Has calls to the system fail in the whole process, as long as it lives. One at a time.
 *
 * The calls are those of systemcalls.cpp, which the test program links.
 */
class Faults
{
public:
    /// Asked before each call, on the thread that makes it: the error with which it fails, or 0. What it calls itself
    /// does not fail.
    using Judge = std::function<int(const QByteArray &call, const QString &path)>;

    explicit Faults(Judge judge);
    /// The calls of `call` with `part` in their paths fail with `error`. The test fails if there is none.
    Faults(const char *call, int error, const QString &part = QString());
    ~Faults();

    /// How many calls have failed.
    int hits() const { return m_hits; }

private:
    Q_DISABLE_COPY(Faults)
    static int judge(const char *call, const char *path);

    const Judge m_judge;
    bool m_mustHit = false;
    std::atomic_int m_hits{0};
};
