// SPDX-License-Identifier: Apache-2.0
#include "thermometer.h"

#include <zdefaultemitter.h>

#include <QCoreApplication>
#include <QTextStream>

class Boiling : public QObject, public Thermometer
{
    Q_OBJECT
    Q_INTERFACES(Thermometer)

public:
    double celsius() override { return 100; }
};

class Display : public QObject
{
    Q_OBJECT
    Q_PROPERTY(Thermometer *thermometer MEMBER thermometer)

public:
    void show() { QTextStream(stdout) << thermometer->celsius() << " degrees" << Qt::endl; }
    Thermometer *thermometer = nullptr;
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    auto emitter = QSharedPointer<ZDefaultEmitter>::create();
    emitter->install(emitter);

    // The application declares its interface with an empty delegate. The first delegate of an interface is kept for
    // good, so it must not be from a plugin, which may be unloaded.
    emitter->bind0(QSharedPointer<ThermometerDelegate>::create(nullptr));
    Display display;
    emitter->inject0(&display);
    display.show();

    emitter->bind0(QSharedPointer<ThermometerDelegate>::create(QSharedPointer<Boiling>::create()));
    display.show();
    emitter->install({}); // until then the emitter holds itself, and everything else
}

#include "main.moc"
