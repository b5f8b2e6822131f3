#pragma once

#include "sensor.h"
#include "store.h"

#include <QTextStream>

// Prints each change, and at the end the average.
class Report : public QObject
{
    Q_OBJECT
    Q_PROPERTY(Sensor *sensor MEMBER m_sensor)

public:
    explicit Report(Store *store) : m_store(store) {}

    bool look() // false when there is nothing to be seen any more
    {
        const double now = m_sensor->celsius();
        if (qIsNaN(now)) {
            m_out << "average " << m_store->average() << Qt::endl;
        } else if (now != m_store->last()) {
            m_store->add(now);
            m_out << now << Qt::endl;
        }
        return !qIsNaN(now);
    }

private:
    Sensor *m_sensor = nullptr;
    Store *m_store;
    QTextStream m_out{stdout};
};
