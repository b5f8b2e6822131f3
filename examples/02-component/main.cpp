// SPDX-License-Identifier: Apache-2.0
// A component that others can find, and one that finds it: neither knows the other's class.
#include <zconfig.h>
#include <zdefaultconfig.h>
#include <zdefaultemitter.h>
#include <zdefaultfilesystem.h>
#include <zwiring.h>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryFile>
#include <QTextStream>

// Serves ZTempFile in its own way, and announces itself as soon as it is given the emitter.
class Scratch : public QObject, public ZTempFile, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZTempFile)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    QSharedPointer<QTemporaryFile> newFile0() override
    {
        return QSharedPointer<QTemporaryFile>::create(QDir::tempPath() + "/scratch-XXXXXX");
    }
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr) { return zAnnounce<ZTempFileDelegate>(this, emitter); }
};

// Consumes ZTempFile: what it needs is a property, written by the emitter.
class Writer : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZTempFile *zTempFile MEMBER tempFile)

public:
    ZTempFile *tempFile = nullptr;
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    auto emitter = QSharedPointer<ZDefaultEmitter>::create();
    emitter->install(emitter);

    Writer early;
    emitter->inject0(&early);      // too early: nobody serves the interface yet, so the property is never written
    emitter->inject0(new Scratch); // the emitter owns it from now on
    Writer writer;
    emitter->inject0(&writer);

    QTextStream out(stdout);
    out << "early: " << (early.tempFile ? "found" : "nobody there") << Qt::endl;
    const auto file = writer.tempFile->newFile0();
    file->open();
    out << "writer: " << QFileInfo(file->fileName()).fileName().left(8) << "..." << Qt::endl;
    emitter->install({}); // until then the emitter holds itself, and everything else
}

#include "main.moc"
