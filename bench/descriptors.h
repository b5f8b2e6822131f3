// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/resource.h>

/// Another limit of open descriptors, for a while.
class Descriptors
{
public:
    explicit Descriptors(rlim_t limit)
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit now{limit < m_before.rlim_max ? limit : m_before.rlim_max, m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &now);
    }
    ~Descriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }

    Descriptors(const Descriptors &) = delete;
    Descriptors &operator=(const Descriptors &) = delete;

private:
    rlimit m_before{};
};

/// As many as a program may have that is run by an ordinary user: each `QThread` that runs needs one.
class MoreDescriptors : public Descriptors
{
public:
    MoreDescriptors() : Descriptors(65536) {}
};
