#include "filesensor.h"
#include "report.h"

#include <zhost.h>

#include <QCoreApplication>
#include <QTimer>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    ZHost host;
    host.services().emitter->bind0(QSharedPointer<SensorDelegate>::create(new FileSensor));
    Store store;
    Report report(&store);
    host.inject(&report);

    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &application, [&] {
        if (!report.look())
            application.quit();
    });
    timer.start(20);
    return application.exec();
}
