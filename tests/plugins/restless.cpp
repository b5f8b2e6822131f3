// SPDX-License-Identifier: Apache-2.0
#include <zlogger.h>
#include <zobject.h>
#include <zwiring.h>

#include <QCoreApplication>
#include <QFile>
#include <QTextStream>

#include <cstdlib>
#include <stdexcept>

#include <grp.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

quint64 limitOf(__rlimit_resource resource)
{
    rlimit limit = {};
    getrlimit(resource, &limit);
    return limit.rlim_cur;
}

/// Writes down as whom it runs, where, and with what.
void tell()
{
    QFile file(QFile::decodeName(qgetenv("RESTLESS_FILE")));
    if (!file.open(QIODevice::Append))
        std::abort();
    QTextStream out(&file);
    out << "user " << getuid() << '/' << geteuid() << '\n'
        << "group " << getgid() << '/' << getegid() << '\n'
        << "root's-group " << (group_member(0) != 0) << '\n'
        << "folder " << QString::fromLocal8Bit(qgetenv("TMPDIR")) << '\n'
        << "terminal " << isatty(STDIN_FILENO) + isatty(STDOUT_FILENO) + isatty(STDERR_FILENO) << '\n'
        << "core " << limitOf(RLIMIT_CORE) << '\n'
        << "processor " << limitOf(RLIMIT_CPU) << '\n'
        << "files " << limitOf(RLIMIT_NOFILE) << '\n';
}

/// Leaves files behind where a plugin would.
void litter()
{
    for (const char *const name : {"here", "there"}) {
        QFile file{QString(name)};
        if (!file.open(QIODevice::WriteOnly))
            std::abort();
    }
    std::abort();
}

[[noreturn]] void hang()
{
    tell();
    for (;;)
        pause();
}

} // namespace

/// Does what the environment's RESTLESS says, "WHEN DEED": in its constructor, when it is given its logger, when the
/// application quits, or in its destructor.
class Restless : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)

public:
    Restless() { act("constructor"); }
    ~Restless() override
    {
        try {
            act(m_logger ? "end" : "destructor");
        } catch (const std::exception &) {
            std::abort();
        }
    }

    ZLogger *getSetZLogger(ZLogger *logger = nullptr)
    {
        if (!zKeepFirst(m_logger, logger))
            return m_logger;
        m_self = shared();
        connect(qApp, &QCoreApplication::aboutToQuit, this, &Restless::quit);
        act("writer");
        return m_logger;
    }

private:
    void quit()
    {
        act("quit");
        m_self.clear();
    }

    static void act(const QByteArray &moment)
    {
        const QList<QByteArray> words = qgetenv("RESTLESS").split(' ');
        if (words.value(0) != moment)
            return;
        const QByteArray deed = words.value(1);
        if (deed == "abort")
            std::abort();
        if (deed == "throw")
            throw std::runtime_error("thrown with a \033[2J in it");
        if (deed == "exit")
            std::exit(0);
        if (deed == "quit")
            QCoreApplication::quit();
        if (deed == "hang")
            hang();
        if (deed == "hog")
            m_memory = new char[size_t(5) << 30];
        if (deed == "tell")
            tell();
        if (deed == "litter")
            litter();
    }

    inline static char *volatile m_memory = nullptr;
    ZLogger *m_logger = nullptr;
    QSharedPointer<QObject> m_self;
};

#include "restless.moc"
