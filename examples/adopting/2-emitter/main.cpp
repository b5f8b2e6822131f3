#include "filesensor.h"
#include "report.h"

#include <zdefaultemitter.h>

#include <QCoreApplication>
#include <QTimer>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    ZDefaultEmitter emitter;
    emitter.bind0(QSharedPointer<SensorDelegate>::create(new FileSensor));
    Store store;
    Report report(&store);
    emitter.inject0(&report);

    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &application, [&] {
        if (!report.look())
            application.quit();
    });
    timer.start(20);
    return application.exec();
}
