// SPDX-License-Identifier: Apache-2.0
#include "greeter.h"

#include <zdefaultconfig.h>
#include <zdefaultemitter.h>
#include <zdefaultloader.h>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>

class Guest : public QObject
{
    Q_OBJECT
    Q_PROPERTY(Greeter *greeter MEMBER greeter)

public:
    Greeter *greeter = nullptr;
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QTemporaryDir folder;
    QDir(folder.path()).mkpath("deployed");
    QDir(folder.path()).mkpath("hot-deploy");
    const QJsonObject loader{{"deployed", folder.filePath("deployed")}, {"hot-deploy", folder.filePath("hot-deploy")}};
    const QJsonObject config{{"loader", loader}};
    auto emitter = QSharedPointer<ZDefaultEmitter>::create();
    emitter->install(emitter);
    emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config));
    emitter->zemit0(ZDefaultLoader::TypeName);
    emitter->bind0(QSharedPointer<GreeterDelegate>::create(nullptr));
    Guest guest;
    emitter->inject0(&guest);

    QStringList drops{"libgreeter.so", "libgreeter.2.so"};
    QString last;
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, [&] {
        const QString now = guest.greeter->greet(); // one pointer all the time
        if (now == last)
            return;
        QTextStream(stdout) << (last = now) << Qt::endl;
        if (drops.isEmpty())
            return QCoreApplication::quit();
        const QString drop = drops.takeFirst(); // as zdeploy does: complete under another name, then in one step
        QFile::copy(QCoreApplication::applicationDirPath() + "/" + drop, folder.filePath("hot-deploy/.part"));
        QFile::rename(folder.filePath("hot-deploy/.part"), folder.filePath("hot-deploy/" + drop));
    });
    look.start(20);
    const int result = application.exec();
    emitter->install({}); // until then the emitter holds itself, and everything else
    return result;
}

#include "main.moc"
