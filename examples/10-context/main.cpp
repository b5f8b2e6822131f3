// SPDX-License-Identifier: Apache-2.0
// Values that belong to a thread, and temporary files where the configuration wants them.
#include <zdefaultconfig.h>
#include <zdefaultcontext.h>
#include <zdefaultemitter.h>
#include <zdefaultfilesystem.h>

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QTextStream>
#include <QThread>

class Program : public QObject
{
    Q_OBJECT
    Q_PROPERTY(ZContext *zContext MEMBER context)
    Q_PROPERTY(ZTempFile *zTempFile MEMBER tempFile)

public:
    QString user()
    {
        QVariant value = QString(); // only its type counts: one value of each type
        return context->load0(value) ? value.toString() : QString("nobody");
    }

    ZContext *context = nullptr;
    ZTempFile *tempFile = nullptr;
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QTemporaryDir folder;
    const QJsonObject filesystem{{"temporary-folder", folder.path()}, {"temporary-fn-template", "report-XXXXXX"}};
    const QJsonObject config{{"filesystem", filesystem}};
    auto emitter = QSharedPointer<ZDefaultEmitter>::create();
    emitter->install(emitter);
    emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config));
    emitter->zemit0(ZDefaultContext::TypeName);
    emitter->zemit0(ZDefaultTempFile::TypeName);
    Program program;
    emitter->inject0(&program);

    QVariant name = QString("ada");
    program.context->save0(name);
    QString there;
    const QScopedPointer<QThread> other(QThread::create([&] { there = program.user(); }));
    other->start();
    other->wait();
    QTextStream(stdout) << "here: " << program.user() << ", on another thread: " << there << Qt::endl;

    const auto file = program.tempFile->newFile0(); // removed with the last pointer to it
    QTextStream(stdout) << (file->open() && file->fileName().startsWith(folder.filePath("report-"))
                                ? "a file where it should be"
                                : "no file")
                        << Qt::endl;
    emitter->install({}); // until then the emitter holds itself, and everything else
}

#include "main.moc"
