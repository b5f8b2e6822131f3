// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/**
 * The line of a test that a failure names. As the default of a last parameter, it is the caller's line.
 *
 * Ownership: a value.
 * Thread:    the test's.
 * Failure:   none.
 */
class ZTestPlace
{
public:
    explicit ZTestPlace(const char *file = __builtin_FILE(), int line = __builtin_LINE()) : m_file(file), m_line(line)
    {}

    /// Fails the current test function, which goes on.
    void fail(const QString &text) const;

private:
    const char *m_file;
    int m_line;
};
