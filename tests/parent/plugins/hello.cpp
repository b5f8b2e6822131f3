#include <zlogger.h>
#include <zobject.h>

class Hello : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger MEMBER m_logger WRITE setZLogger)

public:
    void setZLogger(ZLogger *logger)
    {
        m_logger = logger;
        m_logger->info0("hello from a plugin");
    }

private:
    ZLogger *m_logger = nullptr;
};

#include "hello.moc"
