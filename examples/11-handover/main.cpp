// SPDX-License-Identifier: Apache-2.0
#include <zhost.h>

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThread>
#include <QTimer>

// Calls the counter all the time, and counts along.
class Caller : public QThread
{
public:
    explicit Caller(ZDbus *dbus) : m_dbus(dbus) {}

    void run() override
    {
        for (int calls = 1; !isInterruptionRequested(); ++calls) {
            QJsonObject answer;
            if (!m_dbus->invoke0(QUrl("//counter"), nullptr, &answer) || answer["count"].toInt() != calls)
                mistakes.ref();
            version.storeRelease(answer["version"].toInt());
        }
    }

    QAtomicInt version, mistakes;

private:
    ZDbus *const m_dbus;
};

bool isInMemory(const QString &file)
{
    QFile maps("/proc/self/maps");
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains(file.toUtf8());
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QTemporaryDir folder;
    const QString deployed = folder.filePath("deployed"), hotDeploy = folder.filePath("hot-deploy");
    const QDir built = QCoreApplication::applicationDirPath();
    QDir().mkpath(deployed);
    QDir().mkpath(hotDeploy);
    QFile::copy(built.filePath("libcounter.so"), deployed + "/libcounter.so");

    const QJsonArray loadList{"counter"};
    ZHost host({{"loader", QJsonObject{{"deployed", deployed}, {"hot-deploy", hotDeploy}, {"load-list", loadList}}}});
    host.begin(); // loads what is in the load-list
    Caller caller(host.services().dbus);
    caller.start();

    QTextStream out(stdout);
    int version = 0;
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, [&] {
        if (version != caller.version.loadAcquire()) {
            out << "version " << ++version << " counts" << Qt::endl;
            if (version == 1) { // as zdeploy does: complete under another name, then in one step
                QFile::copy(built.filePath("libcounter.2.so"), hotDeploy + "/.part");
                QFile::rename(hotDeploy + "/.part", hotDeploy + "/libcounter.2.so");
            }
        } else if (version == 2 && !isInMemory(deployed + "/libcounter.so")) {
            out << "version 1 has left memory" << Qt::endl;
            caller.requestInterruption(); // before version 2 lets go, too, as the program ends
            caller.wait();
            out << "calls missed, or counted twice: " << caller.mistakes.loadAcquire() << Qt::endl;
            QCoreApplication::quit();
        }
    });
    look.start(20);
    return application.exec();
}
