// SPDX-License-Identifier: Apache-2.0
// Names of plugins and pools, one a line, against their rules in other words.
#include "fuzz.h"

#include "host.h"
#include "journal.h"

#include <QDir>
#include <QSet>

#include <zdefaultloader.h>
#include <zdefaultpoolset.h>

#include <filesystem>
#include <string>

namespace {

using Text = std::u16string;

Text undecorated(Text name)
{
    const Text prefix = u"lib";
    const Text suffix = u".so";
    if (name.size() >= 3 && name.substr(name.size() - 3) == suffix)
        name.resize(name.size() - 3);
    if (name.substr(0, 3) == prefix)
        name.erase(0, 3);
    return name;
}

Text upToDot(const Text &name) { return name.substr(0, name.find(u'.')); }

/// Not QString::fromStdU16String, which takes a first mark for one of byte order.
QString text(const Text &name)
{
    return QString(reinterpret_cast<const QChar *>(name.data()), static_cast<int>(name.size()));
}

void checkRules(const QString &name)
{
    const Text plain = undecorated(name.toStdU16String());
    promise(ZDefaultLoader::undecorate(name) == text(plain), "a name is undecorated at both ends", name);
    const QString base = ZDefaultLoader::basen(name);
    promise(base == text(upToDot(plain)), "a base name ends before the first dot", name);
    promise(!base.contains(QLatin1Char('.')), "a base name has no dot", name);
    promise(ZDefaultLoader::basen(ZDefaultLoader::undecorate(name) + QStringLiteral(".so")) == base ||
                plain.substr(0, 3) == u"lib",
            "decoration does not change a base name", name);
}

/// Nothing is there to be loaded, so each attempt is told of, and nothing else happens.
class EmptyFolder
{
public:
    EmptyFolder() : m_loader(nullptr)
    {
        QCoreApplication::setLibraryPaths({m_folder.path()});
        std::filesystem::current_path(m_folder.path().toStdString());
        m_journal = Journal::bind(m_host.emitter());
        m_loader = m_host.wire(QJsonObject{{QStringLiteral("deployed"), m_folder.path()}});
    }

    ~EmptyFolder() { std::filesystem::current_path(m_before); }

    void check(const QString &any)
    {
        QString name = any;
        name.replace(QLatin1Char('/'), QLatin1Char('_')); // stay within the folder
        promise(!m_loader->loaded0(name), "what nobody has loaded is not loaded", name);
        promise(!m_loader->load0(name), "what is not there is not loaded", name);
        promise(!m_loader->loaded0(name), "what did not load is not loaded", name);

        const QString key = ZDefaultLoader::basen(name);
        QStringList expected;
        if (!m_known.contains(key)) { // its set looks for all versions first
            const int dot = name.indexOf(QLatin1Char('.'));
            expected.append(failure(dot > 0 ? name.left(dot) : name));
            m_known.insert(key);
        }
        expected.append(failure(name));
        const QStringList log = m_journal->take();
        bool isAsExpected = log.size() == expected.size();
        for (int i = 0; isAsExpected && i < log.size(); ++i)
            isAsExpected = log.at(i).startsWith(expected.at(i));
        promise(isAsExpected, "each attempt is told of in one line",
                log.join(QLatin1Char('\n')) + QStringLiteral("\nfor\n") + expected.join(QLatin1Char('\n')));
        settle();
        const QStringList later = m_journal->take();
        promise(later.size() == expected.size() && later.count(later.first()) == later.size() &&
                    later.first() == QLatin1String("warning: failed to unload: "),
                "what did not load is not unloaded", later.join(QLatin1Char('\n')));
        promise(m_folder.files().isEmpty(), "looking for a plugin leaves nothing behind", name);
    }

private:
    static QString failure(const QString &name)
    {
        return QStringLiteral("warning: failed to load ") + name + QStringLiteral(": ");
    }

    const std::filesystem::path m_before = std::filesystem::current_path();
    const Folder m_folder;
    const Host m_host;
    QSharedPointer<Journal> m_journal;
    ZDefaultLoader *m_loader;
    QSet<QString> m_known;
};

template <class Set, class... Arguments>
void checkPools(Set &set, const QString &name, Arguments... arguments)
{
    const auto pool = set.find0(name, arguments...);
    promise(bool(pool), "any name has a pool", name);
    const bool isKept = !name.contains(QChar::Null);
    promise((set.find0(name, arguments...) == pool) == isKept, "a pool keeps its name, unless that has a NUL", name);
}

} // namespace

void fuzz(const QByteArray &input)
{
    // As UTF-8, or as UTF-16 that may be no text at all.
    const bool isWide = input.size() % 2 == 1;
    const QString all = isWide ? QString(reinterpret_cast<const QChar *>(input.constData()), input.size() / 2)
                               : QString::fromUtf8(input);
    EmptyFolder folder;
    ZDefaultJobPoolSet jobs;
    ZDefaultThreadPoolSet threads;
    const QStringList names = all.split(QLatin1Char('\n'));
    for (const QString &name : names) {
        checkRules(name);
        folder.check(name);
        checkPools(threads, name);
        checkPools(jobs, name, int(name.size()) % 8, 1000 * int(name.size()));
    }
}
