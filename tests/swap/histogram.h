// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtAlgorithms>
#include <QtGlobal>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

/// How often which value came, to one part in sixteen. Takes no memory for a value, and next to no time.
class Histogram
{
public:
    void add(quint64 value)
    {
        ++m_counts[indexOf(value)];
        m_max = std::max(m_max, value);
    }
    void add(const Histogram &other)
    {
        std::transform(m_counts.begin(), m_counts.end(), other.m_counts.begin(), m_counts.begin(), std::plus<>());
        m_max = std::max(m_max, other.m_max);
    }

    quint64 count() const { return std::accumulate(m_counts.begin(), m_counts.end(), quint64(0)); }
    quint64 max() const { return m_max; }
    /// The value that this share of all values does not exceed.
    quint64 quantile(double share) const
    {
        auto left = static_cast<quint64>(std::ceil(share * static_cast<double>(count())));
        for (unsigned i = 0; i < m_counts.size(); ++i) {
            if (left <= m_counts[i])
                return std::min(lastOf(i), m_max);
            left -= m_counts[i];
        }
        return m_max;
    }

private:
    static constexpr unsigned Bits = 4; // of a value, below its highest one

    static unsigned indexOf(quint64 value)
    {
        const unsigned shift = 63 - Bits - qCountLeadingZeroBits(value | 1u << Bits);
        return (shift << Bits) + static_cast<unsigned>(value >> shift);
    }
    static quint64 lastOf(unsigned index)
    {
        const unsigned shift = index < 2u << Bits ? 0 : (index >> Bits) - 1;
        return ((quint64(index) - (shift << Bits) + 1) << shift) - 1;
    }

    std::array<quint64, (65 - Bits) << Bits> m_counts{};
    quint64 m_max = 0;
};
