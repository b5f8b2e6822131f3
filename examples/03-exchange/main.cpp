// SPDX-License-Identifier: Apache-2.0
// A service is exchanged, while its user keeps the same pointer.
#include <zdefaultconfig.h>
#include <zdefaultemitter.h>

#include <QCoreApplication>
#include <QTextStream>

class Reader : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZConfig *zConfig MEMBER config)

public:
    void read() { QTextStream(stdout) << "colour: " << config->toJson0()["colour"].toString("none") << Qt::endl; }
    ZConfig *config = nullptr;
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    auto emitter = QSharedPointer<ZDefaultEmitter>::create();
    emitter->install(emitter);

    const QJsonObject red{{"colour", "red"}}, blue{{"colour", "blue"}};
    emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, red));
    Reader reader;
    emitter->inject0(&reader);
    reader.read();

    // A second component for the same interface takes its place. bind0 returns the one before it.
    auto second = QSharedPointer<ZDefaultConfig>::create(blue);
    auto before = emitter->bind0(QSharedPointer<ZConfigDelegate>::create(second));
    reader.read();

    emitter->bind0(QSharedPointer<ZConfigDelegate>::create(nullptr)); // no component: neutral results, and no crash
    reader.read();

    QTextStream(stdout) << "the first one is " << (before->isNull() ? "gone" : "ours now") << Qt::endl;
    emitter->install({}); // until then the emitter holds itself, and everything else
}

#include "main.moc"
