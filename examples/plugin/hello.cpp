#include <zlogger.h>
#include <zobject.h>

class Hello : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger WRITE setZLogger)

public:
    void setZLogger(ZLogger *logger) { logger->info0("hello from a plugin"); }
};

#include "hello.moc"
