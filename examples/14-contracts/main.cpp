// SPDX-License-Identifier: Apache-2.0
// A host that does not know the interface that its plugins share. The version that is replaced is unloaded.
#include <zhost.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>
#include <QUrl>

bool isInMemory(const QString &file)
{
    QFile maps("/proc/self/maps"); // each line ends with the name of a file in memory
    return maps.open(QFile::ReadOnly) && maps.readAll().contains(QFile::encodeName(file) + '\n');
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    const QTemporaryDir deployed;
    const auto deploy = [&](const QString &file) {
        QFile::copy(QCoreApplication::applicationDirPath() + "/" + file, deployed.filePath(file));
    };
    for (const char *file : {"libforecast_contracts.so", "libforecast.so", "libtraveller.so"})
        deploy(file);

    // The plugin that declares an interface stays in memory. So a plugin that does nothing else declares it, and is
    // loaded first.
    const QJsonArray loadList{"forecast_contracts", "forecast", "traveller"};
    ZHost host({{"loader", QJsonObject{{"deployed", deployed.path()}, {"load-list", loadList}}}});
    host.begin();
    const auto ask = [&] {
        QJsonObject answer;
        host.services().dbus->invoke0(QUrl("//traveller"), nullptr, &answer);
        out << "packs for " << answer["packs for"].toString() << Qt::endl;
    };
    ask();
    deploy("libforecast.2.so");
    host.services().loader->load0("forecast.2");
    ask();

    const QDeadlineTimer patience(10000);
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, [&] {
        if (!isInMemory(deployed.filePath("libforecast.so")) || patience.hasExpired())
            QCoreApplication::quit();
    });
    look.start(20);
    application.exec();
    const bool isStillThere = isInMemory(deployed.filePath("libforecast.so"));
    out << "libforecast.so " << (isStillThere ? "stays in memory" : "has left memory") << Qt::endl;
    return isStillThere ? 1 : 0;
}
