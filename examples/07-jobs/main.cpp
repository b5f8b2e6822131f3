// SPDX-License-Identifier: Apache-2.0
#include <zdefaultpoolset.h>
#include <zjobpool.h>

#include <QCoreApplication>
#include <QTextStream>
#include <QVector>

// Adds up some numbers, unless the pool is told to stop.
class Sum : public ZJob
{
public:
    Sum(Counter stop, Counter result, int from, int to)
        : ZJob(stop, result), m_from(from), m_to(to), m_before(stop->loadAcquire())
    {
        setAutoDelete(false); // it is held by shared pointers: the pool must not delete it as well
    }

    void run() override
    {
        for (int i = m_from; i < m_to && m_first->loadAcquire() == m_before; ++i)
            m_second->fetchAndAddRelaxed(i);
    }

private:
    const int m_from;
    const int m_to;
    const int m_before;
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    ZDefaultJobPoolSet pools; // or whichever is injected as ZJobPoolSet
    const auto pool = pools.find0("sums", 2, 1000);
    const auto result = ZJob::Counter::create(0);

    QVector<QSharedPointer<Sum>> jobs; // the pool does not hold them: they are held here until they have run
    for (int i = 0; i < 100; i += 10) {
        jobs.append(QSharedPointer<Sum>::create(pool->stopCounter(), result, i, i + 10));
        pool->start(jobs.last(), false, 0);
    }
    pool->waitAll(-1, false);
    QTextStream(stdout) << "0 to 99 make " << result->loadAcquire() << Qt::endl;
}
