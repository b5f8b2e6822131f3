// SPDX-License-Identifier: Apache-2.0
#include <zdefaultconfig.h>
#include <zdefaultemitter.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>

#include <QCoreApplication>

class Shop : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZLoader *zLoader MEMBER loader)

public:
    ZLoader *loader = nullptr;
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QString folder = application.arguments().value(1);
    const QString plugin = application.arguments().value(2);
    const QJsonObject settings{{"loader", QJsonObject{{"deployed", folder}}}};

    auto emitter = QSharedPointer<ZDefaultEmitter>::create();
    emitter->install(emitter);
    emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, settings));
    emitter->zemit0(ZDefaultLogger::TypeName);
    emitter->zemit0(ZDefaultLoader::TypeName);
    Shop shop;
    emitter->inject0(&shop);

    shop.loader->load0(plugin);
    emitter->install({});
}

#include "main.moc"
