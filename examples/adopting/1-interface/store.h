#pragma once

#include <QVector>
#include <QtNumeric>

#include <numeric>

// What was measured.
class Store
{
public:
    void add(double value) { m_values.append(value); }
    double last() const { return m_values.isEmpty() ? qQNaN() : m_values.last(); }
    double average() const { return std::accumulate(m_values.begin(), m_values.end(), 0.0) / m_values.size(); }

private:
    QVector<double> m_values;
};
