// SPDX-License-Identifier: Apache-2.0
#include "journal.h"
#include "pluginfolder.h"
#include "testcase.h"

#include <QFile>
#include <QVector>

#include <zlibraryset.h>

#include <elf.h>

#include <functional>

namespace {

const char *const Library = "libc.so.6";

quint32 gnuHash(const QByteArray &name)
{
    quint32 hash = 5381;
    for (const char c : name)
        hash = hash * 33 + uchar(c);
    return hash;
}

/// The file of a plugin, whose metadata Qt finds. What the dynamic linker would find in it is made anew: the whole file
/// is one segment, in which an address is an offset.
class HostileFile
{
public:
    HostileFile()
    {
        QFile file(pluginFile(QStringLiteral("sturdy_stripped")));
        if (!file.open(QIODevice::ReadOnly))
            qFatal("there is no such plugin");
        m_content = file.readAll();
    }

    /// Adds these entries at the end. Their address.
    template <class T>
    quint64 add(const QVector<T> &entries)
    {
        return add(QByteArray(reinterpret_cast<const char *>(entries.constData()), entries.size() * int(sizeof(T))));
    }
    quint64 add(const QByteArray &bytes)
    {
        const int padding = (8 - m_content.size() % 8) % 8;
        m_content.append(padding, '\0').append(bytes);
        return quint64(m_content.size() - bytes.size());
    }
    void tag(Elf64_Sxword tag, quint64 value) { m_dynamic.append(Elf64_Dyn{tag, {value}}); }
    /// Adds `names`, each of which ends in a zero.
    void addNames(const QByteArray &names)
    {
        tag(DT_STRTAB, add(names));
        tag(DT_STRSZ, quint64(names.size()));
    }
    /// Adds so many symbols by the name at `name`, and both tables in which they are looked for.
    void addSymbols(int count, quint32 name, quint32 hash)
    {
        Elf64_Sym symbol = {};
        symbol.st_name = name;
        symbol.st_info = ELF64_ST_INFO(STB_GLOBAL, STT_NOTYPE);
        QVector<Elf64_Sym> symbols(count, symbol);
        symbols.first() = {};
        tag(DT_SYMTAB, add(symbols));
        QVector<quint32> table{1, 1, 1, 0, ~0u, ~0u, 1}; // one bucket, one filter that finds everything
        table.append(QVector<quint32>(count - 1, hash & ~1u));
        table.last() |= 1;
        tag(DT_GNU_HASH, add(table));
    }
    static constexpr quint64 Gap = 8;
    /// Adds `count` segments behind the file, with gaps between them, each of which shows `size` bytes at `offset`. The
    /// address of the first.
    quint64 addSegments(int count, quint64 offset, quint64 size)
    {
        const quint64 first = 1 << 30;
        for (quint64 i = 0; i < quint64(count); ++i)
            m_segments.append(Elf64_Phdr{PT_LOAD, PF_R | PF_W, offset, first + i * (size + Gap), 0, size, size, 8});
        return first;
    }

    QByteArray content() const
    {
        HostileFile file(*this);
        file.tag(DT_NULL, 0);
        const auto size = quint64(m_dynamic.size() + 1) * sizeof(Elf64_Dyn);
        const quint64 dynamic = file.add(file.m_dynamic);
        const Elf64_Phdr whole{PT_LOAD, PF_R | PF_W, 0, 0, 0, dynamic + size, dynamic + size, 8};
        const Elf64_Phdr dynamicSection{PT_DYNAMIC, PF_R | PF_W, dynamic, dynamic, 0, size, size, 8};
        const QVector<Elf64_Phdr> segments = QVector<Elf64_Phdr>{dynamicSection, whole} + m_segments;
        const quint64 headers = file.add(segments);
        auto &header = *reinterpret_cast<Elf64_Ehdr *>(file.m_content.data());
        header.e_phoff = headers;
        header.e_phnum = Elf64_Half(segments.size());
        return file.m_content;
    }

private:
    QByteArray m_content;
    QVector<Elf64_Dyn> m_dynamic;
    QVector<Elf64_Phdr> m_segments;
};

/// Adds `count` needs of the library with the name at `library`, each of which has the `inner` versions at `versions`.
void addNeeds(HostileFile &file, int count, quint32 library, Elf64_Half inner, quint64 versions)
{
    const quint64 address = file.add(QByteArray());
    QVector<Elf64_Verneed> needs;
    for (quint64 i = 0; i < quint64(count); ++i) {
        const quint64 own = address + i * sizeof(Elf64_Verneed);
        needs.append(
            Elf64_Verneed{VER_NEED_CURRENT, inner, library, Elf64_Word(versions - own), sizeof(Elf64_Verneed)});
    }
    needs.last().vn_next = 0;
    file.tag(DT_VERNEED, file.add(needs));
    file.tag(DT_VERNEEDNUM, quint64(count));
}

/// The names of a library, of a version, and then `more`.
void addNamesAnd(HostileFile &file, const QByteArray &more)
{
    file.addNames(QByteArray(1, '\0') + Library + '\0' + more + '\0');
}
const auto AfterLibrary = quint32(qstrlen(Library)) + 2;

} // namespace

using Attack = std::function<void(HostileFile &)>;
Q_DECLARE_METATYPE(Attack)

/// Files that are made to keep whoever looks at them busy, or to end the process. Nobody looks at a clock here: who
/// would follow such a file through does not come to the expected end, or not within the time that a test has.
class tst_Hostile : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void fileThatWouldTakeForEverIsRefused_data();
    void fileThatWouldTakeForEverIsRefused();
};

void tst_Hostile::fileThatWouldTakeForEverIsRefused_data()
{
    QTest::addColumn<Attack>("attack");
    QTest::addColumn<QString>("part");
    const auto row = [](const char *name, const char *part, const Attack &attack) {
        QTest::newRow(name) << attack << QString::fromLatin1(part);
    };
    row("entries that all have the same hash", "names", [](HostileFile &file) {
        for (qint64 i = 1; i < 300000; ++i)
            file.tag(i << 32 | i << 1, 0);
    });
    row("needed library whose name does not fit on a stack", "names", [](HostileFile &file) {
        addNamesAnd(file, QByteArray(20000000, 'a'));
        file.tag(DT_NEEDED, AfterLibrary);
        addNeeds(file, 1, AfterLibrary, 0, 0);
    });
    row("versions of a library whose name does not fit on a stack", "versions", [](HostileFile &file) {
        addNamesAnd(file, QByteArray(20000000, 'a'));
        addNeeds(file, 1, AfterLibrary, 0, 0);
    });
    row("versions that are the same for all", "versions", [](HostileFile &file) {
        addNamesAnd(file, "V1");
        file.tag(DT_NEEDED, 1);
        QVector<Elf64_Vernaux> versions(0xffff, {0, 0, 2, AfterLibrary, sizeof(Elf64_Vernaux)});
        versions.last().vna_next = 0;
        const quint64 shared = file.add(versions);
        // A need leads to what has a higher address.
        const quint64 behind = file.addSegments(1, shared, quint64(versions.size()) * sizeof(Elf64_Vernaux));
        addNeeds(file, 60000, 1, 0xffff, behind);
    });
    row("own versions that come again in each segment", "versions", [](HostileFile &file) {
        addNamesAnd(file, "V1");
        constexpr int Count = 10000;
        constexpr auto One = sizeof(Elf64_Verdef);
        QVector<Elf64_Verdef> definitions(Count, {VER_DEF_CURRENT, 0, 2, 1, 0, 0, One});
        for (int i = 0; i < Count; ++i) // they share the details, which follow the last
            definitions[i].vd_aux = Elf64_Word(Count - i) * One;
        definitions.last().vd_next += sizeof(Elf64_Verdaux) + HostileFile::Gap;
        const quint64 shared = file.add(definitions);
        file.add(QVector<Elf64_Verdaux>{{AfterLibrary, 0}});
        file.tag(DT_VERDEF, file.addSegments(30000, shared, One * Count + sizeof(Elf64_Verdaux)));
        file.tag(DT_VERDEFNUM, ~quint64(0));
    });
    row("libraries whose names differ at the end only", "versions", [](HostileFile &file) {
        const QByteArray name(100, 'a');
        addNamesAnd(file, name + "b\0" + name + 'c');
        for (int i = 0; i < 60000; ++i)
            file.tag(DT_NEEDED, AfterLibrary);
        const auto last = AfterLibrary + quint32(name.size()) + 2;
        file.tag(DT_NEEDED, last);
        addNeeds(file, 60000, last, 0, 0);
    });
    row("libraries that are looked for again and again", "versions", [](HostileFile &file) {
        addNamesAnd(file, "V1");
        addNeeds(file, 60000, 1, 0, 0);
        file.tag(DT_VERSYM, 0);
    });
    row("symbols with one long name", "symbols", [](HostileFile &file) {
        const QByteArray name(2000000, 'a');
        addNamesAnd(file, name);
        file.addSymbols(60000, AfterLibrary, gnuHash(name));
    });
    row("relocations in the last of many segments", "relocations", [](HostileFile &file) {
        addNamesAnd(file, "s");
        file.addSymbols(2, AfterLibrary, gnuHash("s"));
        constexpr int Count = 60000;
        const quint64 place = file.addSegments(Count, 0, 8) + (Count - 1) * (8 + HostileFile::Gap);
        const QVector<Elf64_Rela> relocations(200000, {place, ELF64_R_INFO(0, R_X86_64_RELATIVE), 0});
        file.tag(DT_RELA, file.add(relocations));
        file.tag(DT_RELASZ, quint64(relocations.size()) * sizeof(Elf64_Rela));
        file.tag(DT_RELAENT, sizeof(Elf64_Rela));
    });
    row("packed relocations in the last of many segments", "relocations", [](HostileFile &file) {
        addNamesAnd(file, "s");
        file.addSymbols(2, AfterLibrary, gnuHash("s"));
        constexpr int Count = 60000;
        QVector<quint64> places(20000, ~quint64(0)); // maps of all places that follow the first
        places.first() = file.addSegments(Count, 0, 1024) + (Count - 1) * (1024 + HostileFile::Gap);
        for (int i = 1; i < places.size(); i += 2)
            places[i - 1] = places.first();
        file.tag(DT_RELR, file.add(places));
        file.tag(DT_RELRSZ, quint64(places.size()) * 8);
        file.tag(DT_RELRENT, 8);
    });
}

void tst_Hostile::fileThatWouldTakeForEverIsRefused()
{
    QFETCH(Attack, attack);
    QFETCH(QString, part);
    HostileFile file;
    attack(file);
    const PluginFolder folder;
    QVERIFY(folder.write(QStringLiteral("libx.so"), file.content()));
    Journal journal;
    ZLibrarySet set(QStringLiteral("absent"), QString(), nullptr);
    set.getSetZLogger(&journal);
    QVERIFY(!set.loadOne(QStringLiteral("libx"), QString(), nullptr));
    QCOMPARE(journal.take(), QStringList{QStringLiteral("warning: failed to load libx: the file is damaged: ") + part});
}

QTEST_GUILESS_MAIN(tst_Hostile)

#include "tst_hostile.moc"
