#include "report.h"

#include <zhost.h>

#include <QCoreApplication>
#include <QJsonArray>
#include <QTimer>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QJsonObject loader{
        {"deployed", "deployed"}, {"hot-deploy", "hot-deploy"}, {"load-list", QJsonArray{"sensor"}}};
    ZHost host({{"loader", loader}});
    host.services().emitter->bind0(QSharedPointer<SensorDelegate>::create(nullptr));
    Store store;
    Report report(&store);
    host.inject(&report);
    host.begin(); // loads the sensor

    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &application, [&] {
        if (!report.look())
            application.quit();
    });
    timer.start(20);
    return application.exec();
}
