// SPDX-License-Identifier: Apache-2.0
#include <zhost.h>

#include <QCoreApplication>
#include <QJsonArray>
#include <QTextStream>
#include <QTimer>
#include <QVector>

// A whole configuration with these settings of the lamp.
QJsonObject configuration(const QJsonObject &lamp)
{
    const QJsonObject loader{{"deployed", QCoreApplication::applicationDirPath()}, {"load-list", QJsonArray{"lamp"}}};
    return {{"loader", loader}, {"plugins", QJsonObject{{"lamp", lamp}}}};
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    ZHost host(configuration({{"room", "kitchen"}}));
    host.begin();

    QVector<QJsonObject> next{{{"room", "hall"}, {"percent", 40}, {"colour", "red"}},
                              {{"percent", 140}, {"colour", "green"}, {"color", "white"}}};
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, [&] {
        QJsonObject answer;
        host.services().dbus->invoke0(QUrl("//lamp"), nullptr, &answer);
        QTextStream(stdout) << "the lamp shines " << answer["shines"].toString() << Qt::endl;
        if (next.isEmpty())
            return QCoreApplication::quit();
        host.configure(configuration(next.takeFirst())); // the event loop tells the lamp
    });
    look.start(0);
    return application.exec();
}
