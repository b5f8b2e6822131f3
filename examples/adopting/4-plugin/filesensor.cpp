#include "sensor.h"

#include <zemitter.h>
#include <zobject.h>

#include <QFile>

// Tells what the driver has written, in thousandths of a degree.
class FileSensor : public ZObject, public Sensor
{
    Q_OBJECT
    Q_INTERFACES(Sensor)
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr)
    {
        if (emitter) // takes the place of the version before
            emitter->bind0(QSharedPointer<SensorDelegate>::create(shared()));
        return emitter;
    }

    double celsius() override
    {
        QFile file("temperature");
        return file.open(QIODevice::ReadOnly) ? file.readAll().toInt() / 1000.0 : qQNaN();
    }
};

#include "filesensor.moc"
