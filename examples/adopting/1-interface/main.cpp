#include "filesensor.h"
#include "report.h"

#include <QCoreApplication>
#include <QTimer>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    SensorDelegate sensor(new FileSensor);
    Store store;
    Report report(&sensor, &store);

    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &application, [&] {
        if (!report.look())
            application.quit();
    });
    timer.start(20);
    return application.exec();
}
