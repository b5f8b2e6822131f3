#include <zdefaultconfig.h>
#include <zdefaultemitter.h>
#include <zdefaultloader.h>
#include <zdefaultlogger.h>

#include <QCoreApplication>
#include <QTimer>

// A component: what it needs is a property, and is there when its writer is called.
class Greeting : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZLogger *zLogger MEMBER m_logger WRITE setZLogger)

public:
    void setZLogger(ZLogger *logger)
    {
        m_logger = logger;
        m_logger->info0("hello from a component that never met its logger");
    }

private:
    ZLogger *m_logger = nullptr;
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QJsonObject settings{{"loader", QJsonObject{{"deployed", "."}}}};

    auto emitter = QSharedPointer<ZDefaultEmitter>::create();
    emitter->install(emitter);
    emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, settings));
    emitter->zemit0(ZDefaultLogger::TypeName); // finds its configuration by itself
    emitter->zemit0(ZDefaultLoader::TypeName); // and so does this one, and the logger

    Greeting greeting;
    emitter->inject0(&greeting);

    QTimer::singleShot(0, &application, &QCoreApplication::quit);
    const int result = application.exec();
    emitter->install({}); // it holds itself until then, and everything else
    return result;
}

#include "main.moc"
