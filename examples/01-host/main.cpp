#include <zhost.h>

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
    ZHost host({{"loader", QJsonObject{{"deployed", "."}}}}); // all ten services of this configuration
    Greeting greeting;
    host.inject(&greeting);
    QTimer::singleShot(0, &application, &QCoreApplication::quit);
    return application.exec();
}

#include "main.moc"
