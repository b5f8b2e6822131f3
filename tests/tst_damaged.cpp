// SPDX-License-Identifier: Apache-2.0
#include "journal.h"
#include "pluginfolder.h"
#include "testcase.h"

#include <QDir>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QMap>
#include <QPluginLoader>
#include <QProcess>

#include <zlibraryset.h>

#include <elf.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>

namespace {

const QString Refused = QStringLiteral("refused");
const QString Loaded = QStringLiteral("loaded");
const QString Died = QStringLiteral("died");

struct Trial
{
    QString end;   // one of the above
    QString words; // why it was refused, or how the process died
};

/// Loads `name`, lets it go again, and tells what came of it in one line.
void tryToLoad(const QString &name)
{
    ZLibrarySet set(QStringLiteral("absent"), QString(), nullptr);
    settle();
    Journal journal;
    set.getSetZLogger(&journal);
    QSharedPointer<ZLibrary> library = set.loadOne(name, QString(), nullptr);
    const QString &end = library ? Loaded : Refused;
    const QString entries = journal.take().join(QStringLiteral(" | "));
    library.clear();
    settle();
    const QString line = QStringLiteral("%1\t%2\t%3\n").arg(name, end, entries);
    std::fputs(line.toLocal8Bit().constData(), stdout);
    std::fflush(stdout);
}

/// What the child program does: each file of `folder` is loaded in a process of its own, so that it may die of it.
void tryFolder(const QString &folder)
{
    QCoreApplication::setLibraryPaths({folder});
    const QStringList files = QDir(folder).entryList(QDir::Files, QDir::Name);
    for (const QString &file : files) {
        const QString name = QFileInfo(file).completeBaseName();
        const pid_t child = fork();
        if (child == 0) {
            const rlimit none{0, 0};
            const rlimit seconds{5, 5};
            setrlimit(RLIMIT_CORE, &none);
            setrlimit(RLIMIT_CPU, &seconds); // damaged code may run in a circle
            alarm(20);                       // or wait for ever
            tryToLoad(name);
            std::exit(0); // the whole way to the end, which a process must come to as well
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (status != 0)
            std::printf("%s\t%s\tstatus %d\n", qPrintable(name), qPrintable(Died), status);
        std::fflush(stdout);
    }
}

/// The trials of all files in `folder`, by name without suffix.
QMap<QString, Trial> trials(const Folder &folder)
{
    QProcess child;
    child.setStandardErrorFile(QProcess::nullDevice());
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--load"), folder.path()});
    if (!child.waitForFinished(240000) || child.exitCode() != 0)
        return {};
    QMap<QString, Trial> result;
    const QStringList lines = QString::fromLocal8Bit(child.readAllStandardOutput()).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        const QStringList parts = line.split(QLatin1Char('\t'));
        if (parts.size() == 3)
            result.insert(parts[0], {parts[1], parts[2]}); // a process may still die after it has told its end
    }
    return result;
}

Trial trial(const QByteArray &content)
{
    const Folder folder;
    folder.write(QStringLiteral("libx.so"), content);
    return trials(folder).value(QStringLiteral("libx"));
}

/// Whether `words` are the one message of a file that did not load.
bool isOneMessage(const QString &name, const QString &words)
{
    const QString start = QStringLiteral("warning: failed to load %1: ").arg(name);
    return words.size() > start.size() && words.startsWith(start) && !words.contains(QLatin1String(" | "));
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// A plugin's file, to be damaged.
class Patient
{
public:
    explicit Patient(const QString &plugin = QStringLiteral("sturdy")) : content(contentOf(pluginFile(plugin))) {}

    QByteArray content;

    Elf64_Ehdr &header() { return at<Elf64_Ehdr>(0); }
    /// The `index`-th program header of this type.
    Elf64_Phdr &segment(Elf64_Word type, int index = 0)
    {
        for (unsigned i = 0; i < header().e_phnum; ++i) {
            auto &segment = at<Elf64_Phdr>(header().e_phoff + i * sizeof(Elf64_Phdr));
            if (segment.p_type == type && index-- == 0)
                return segment;
        }
        qFatal("no such segment");
    }
    Elf64_Dyn &dynamic(Elf64_Sxword tag)
    {
        const Elf64_Phdr &segment = this->segment(PT_DYNAMIC);
        for (quint64 i = 0; i < segment.p_filesz; i += sizeof(Elf64_Dyn)) {
            auto &entry = at<Elf64_Dyn>(segment.p_offset + i);
            if (entry.d_tag == tag)
                return entry;
        }
        qFatal("no such entry");
    }
    void leaveOut(Elf64_Sxword tag)
    {
        const Elf64_Phdr &segment = this->segment(PT_DYNAMIC);
        for (quint64 i = 0; i < segment.p_filesz; i += sizeof(Elf64_Dyn)) {
            auto &entry = at<Elf64_Dyn>(segment.p_offset + i);
            if (entry.d_tag == tag)
                entry.d_tag = 0x60000000; // which means nothing to anybody
        }
    }
    /// Adds an entry, in the place of one that can be done without.
    void add(Elf64_Sxword tag, Elf64_Xword value) { dynamic(DT_RELACOUNT) = {tag, {value}}; }
    /// What the entry `tag` points to, and what follows it.
    template <class T>
    T *table(Elf64_Sxword tag)
    {
        const Elf64_Addr address = dynamic(tag).d_un.d_ptr;
        for (int i = 0;; ++i) {
            const Elf64_Phdr &segment = this->segment(PT_LOAD, i);
            if (address - segment.p_vaddr < segment.p_filesz)
                return &at<T>(segment.p_offset + address - segment.p_vaddr);
        }
    }
    Elf64_Phdr &writable()
    {
        for (int i = 0;; ++i) {
            if (segment(PT_LOAD, i).p_flags & PF_W)
                return segment(PT_LOAD, i);
        }
    }
    /// The first relocation that has a symbol.
    Elf64_Rela &relocation()
    {
        auto *relocation = table<Elf64_Rela>(DT_RELA);
        while (ELF64_R_SYM(relocation->r_info) == 0)
            ++relocation;
        return *relocation;
    }
    /// That of the first place to which the entry `tag` points.
    Elf64_Rela &relocationOf(Elf64_Sxword tag)
    {
        auto *relocation = table<Elf64_Rela>(DT_RELA);
        while (relocation->r_offset != dynamic(tag).d_un.d_ptr)
            ++relocation;
        return *relocation;
    }
    /// That by the symbol of this name.
    Elf64_Rela &relocationBy(const char *name)
    {
        auto *relocation = table<Elf64_Rela>(DT_RELA);
        while (relocation->r_info != 0 && nameOf(Elf64_Word(ELF64_R_SYM(relocation->r_info))) != name)
            ++relocation;
        return *relocation;
    }
    /// A function of the plugin that nobody looks for.
    Elf64_Word spareFunction()
    {
        for (Elf64_Word i = 0;; ++i) {
            if (nameOf(i) == "qt_plugin_query_metadata")
                return i;
        }
    }
    /// Makes another kind of symbol of it.
    void change(unsigned char type, Elf64_Addr value)
    {
        auto &symbol = table<Elf64_Sym>(DT_SYMTAB)[spareFunction()];
        symbol.st_info = ELF64_ST_INFO(STB_GLOBAL, type);
        symbol.st_value = value;
    }
    /// The buckets of the newer hash table.
    Elf64_Word *buckets()
    {
        auto *header = table<Elf64_Word>(DT_GNU_HASH);
        return header + 4 + header[2] * sizeof(Elf64_Addr) / sizeof(Elf64_Word);
    }
    Elf64_Verdaux &definedVersion()
    {
        auto *definition = table<char>(DT_VERDEF);
        return *reinterpret_cast<Elf64_Verdaux *>(definition + reinterpret_cast<Elf64_Verdef *>(definition)->vd_aux);
    }

private:
    QByteArray nameOf(Elf64_Word symbol)
    {
        return table<char>(DT_STRTAB) + table<Elf64_Sym>(DT_SYMTAB)[symbol].st_name;
    }
    template <class T>
    T &at(quint64 offset)
    {
        return *reinterpret_cast<T *>(content.data() + offset);
    }
};

constexpr Elf64_Addr Nowhere = 0x7ffffff0;

} // namespace

using Damage = std::function<void(Patient &)>;
Q_DECLARE_METATYPE(Damage)

class tst_Damaged : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void soundPluginIsLoadedHoweverItWasLinked();
    void fileThatIsNoPluginIsRefusedInQtsWords_data();
    void fileThatIsNoPluginIsRefusedInQtsWords();
    void truncatedFileIsRefusedAtAnyLength();
    void fileWhoseTailIsMissingIsRefusedAtAnyLength();
    void librariesWithoutMetadataAreRefused();
    void pluginsOfQtAreRefused();
    void missingFunctionIsRefused();
    void damagedStructureIsRefused_data();
    void damagedStructureIsRefused();
    void structureThatIsOnlyUnusualIsLoaded_data();
    void structureThatIsOnlyUnusualIsLoaded();
    void fileThatHasChangedSinceItWasReadIsRefused_data();
    void fileThatHasChangedSinceItWasReadIsRefused();
    void refusedFileIsLoadedOnceItIsSound();
    void otherDamageIsRefusedOrLoadedOrCounted_data();
    void otherDamageIsRefusedOrLoadedOrCounted();
};

void tst_Damaged::soundPluginIsLoadedHoweverItWasLinked()
{
    const QDir build = QFileInfo(pluginFile(QStringLiteral("sturdy"))).dir();
    const QStringList files = build.entryList({QStringLiteral("libsturdy*.so")}, QDir::Files);
    const Folder folder;
    for (const QString &file : files)
        QVERIFY(QFile::copy(build.filePath(file), folder.filePath(file)));
    const QMap<QString, Trial> all = trials(folder);
    QVERIFY(files.size() > 3);
    QCOMPARE(all.size(), files.size());
    for (auto trial = all.begin(); trial != all.end(); ++trial)
        QVERIFY2(trial->end == Loaded, qPrintable(trial.key() + QLatin1Char(' ') + trial->words));
}

void tst_Damaged::fileThatIsNoPluginIsRefusedInQtsWords_data()
{
    QTest::addColumn<Damage>("damage");
    const auto row = [](const char *name, const Damage &damage) { QTest::newRow(name) << damage; };
    row("empty", [](Patient &p) { p.content.clear(); });
    row("text", [](Patient &p) { p.content = "no plugin at all\n"; });
    row("text with the metadata's mark", [](Patient &p) { p.content = "QTMETADATA !\n"; });
    row("zeros", [](Patient &p) { p.content.fill('\0'); });
    row("header only", [](Patient &p) { p.content.truncate(sizeof(Elf64_Ehdr)); });
    row("no magic number", [](Patient &p) { p.header().e_ident[EI_MAG0] = 0; });
    row("other class", [](Patient &p) { p.header().e_ident[EI_CLASS] = ELFCLASS32; });
    row("other byte order", [](Patient &p) { p.header().e_ident[EI_DATA] = ELFDATA2MSB; });
    row("other machine", [](Patient &p) { p.header().e_machine = EM_SPARCV9; });
    row("a program", [](Patient &p) { p.header().e_type = ET_EXEC; });
    row("no section", [](Patient &p) { p.header().e_shnum = 0; });
    row("sections behind the end", [](Patient &p) { p.header().e_shoff = Nowhere; });
    row("too many sections", [](Patient &p) { p.header().e_shnum = 0x7fff; });
    row("root that is no ZObject", [](Patient &p) { p.content = contentOf(pluginFile(QStringLiteral("noroot"))); });
    row("symbol that is nowhere", [](Patient &p) { p.content = contentOf(pluginFile(QStringLiteral("unresolved"))); });
    row("metadata that cannot be read", [](Patient &p) { p.content.replace("QTMETADATA !", "QTMETADATA ?"); });
    row("of Qt 6", [](Patient &p) {
        const int mark = p.content.indexOf("QTMETADATA !");
        p.content[mark + 13] = 6; // after the version of the metadata
    });
}

void tst_Damaged::fileThatIsNoPluginIsRefusedInQtsWords()
{
    QFETCH(Damage, damage);
    Patient patient;
    damage(patient);
    const Trial done = trial(patient.content);
    QVERIFY2(done.end == Refused, qPrintable(done.end + QLatin1Char(' ') + done.words));
    QVERIFY2(isOneMessage(QStringLiteral("libx"), done.words), qPrintable(done.words));
    QVERIFY2(!done.words.contains(QLatin1String("the file is damaged")), qPrintable(done.words));
}

/// Has all files of `folder` tried, and fails for one that is not refused as it must be.
#define VERIFY_ALL_REFUSED(folder)                                                                                     \
    do {                                                                                                               \
        const QMap<QString, Trial> all = trials(folder);                                                               \
        QCOMPARE(all.size(), (folder).files().size());                                                                 \
        for (auto trial = all.begin(); trial != all.end(); ++trial) {                                                  \
            QVERIFY2(trial->end == Refused, qPrintable(trial.key() + QLatin1Char(' ') + trial->words));                \
            QVERIFY2(isOneMessage(trial.key(), trial->words), qPrintable(trial->words));                               \
        }                                                                                                              \
    } while (false)

void tst_Damaged::truncatedFileIsRefusedAtAnyLength()
{
    const QByteArray content = Patient().content;
    const Folder folder;
    for (int i = 0; i < 100; ++i) {
        const int length = i < 4 ? content.size() - 1 - i : int(qint64(content.size()) * i / 100);
        folder.write(QStringLiteral("libx%1.so").arg(i), content.left(length));
    }
    VERIFY_ALL_REFUSED(folder);
}

void tst_Damaged::fileWhoseTailIsMissingIsRefusedAtAnyLength()
{
    const QByteArray content = Patient().content; // as a copy that was cut off by a crash: its full length, but zeros
    const Folder folder;
    for (int i = 0; i < 50; ++i) {
        const int length = int(qint64(content.size()) * i / 50);
        folder.write(QStringLiteral("libx%1.so").arg(i), content.left(length).leftJustified(content.size(), '\0'));
    }
    VERIFY_ALL_REFUSED(folder);
}

void tst_Damaged::librariesWithoutMetadataAreRefused()
{
    const Folder folder;
    QFile maps(QStringLiteral("/proc/self/maps"));
    QVERIFY(maps.open(QIODevice::ReadOnly));
    for (const QByteArray &line : maps.readAll().split('\n')) {
        const QFileInfo file(QFile::decodeName(line.mid(line.indexOf('/'))));
        const QString name = file.fileName().section(QLatin1Char('.'), 0, 0);
        if (line.contains('/') && file.fileName().contains(QLatin1String(".so")) &&
            name.startsWith(QLatin1String("lib")))
            QFile::copy(file.filePath(), folder.filePath(name + QStringLiteral(".so"))); // false if it is there
    }
    QVERIFY(folder.files().contains(QStringLiteral("libc.so")));
    VERIFY_ALL_REFUSED(folder);
}

void tst_Damaged::pluginsOfQtAreRefused()
{
    const Folder folder;
    const QDir plugins(QLibraryInfo::location(QLibraryInfo::PluginsPath));
    for (const QString &kind : plugins.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        for (const QFileInfo &file : QDir(plugins.filePath(kind)).entryInfoList({QStringLiteral("lib*.so")}))
            QFile::copy(file.filePath(), folder.filePath(file.fileName()));
    }
    if (folder.files().isEmpty())
        return QTest::qSkip("Qt is installed without plugins", __FILE__, __LINE__);
    VERIFY_ALL_REFUSED(folder);
}

void tst_Damaged::missingFunctionIsRefused()
{
    Patient patient;
    QVERIFY(patient.content.contains("_ZN18QRegularExpressionD1Ev"));
    patient.content.replace("_ZN18QRegularExpressionD1Ev", "_ZN18QRegularExpressionD7Ev");
    const Trial done = trial(patient.content);
    QCOMPARE(done.end, Refused); // at once, and not when the function is first called
    QVERIFY2(isOneMessage(QStringLiteral("libx"), done.words), qPrintable(done.words));
    QVERIFY2(done.words.contains(QLatin1String("_ZN18QRegularExpressionD7Ev")), qPrintable(done.words));
}

void tst_Damaged::damagedStructureIsRefused_data()
{
    QTest::addColumn<Damage>("damage");
    QTest::addColumn<QString>("part");
    QTest::addColumn<QString>("plugin");
    const auto row = [](const char *name, const char *part, const Damage &damage, const char *plugin = "sturdy") {
        QTest::newRow(name) << damage << QString::fromLatin1(part) << QString::fromLatin1(plugin);
    };
    // clang-format off
    row("program headers behind the end", "segments", [](Patient &p) { p.header().e_phoff = Nowhere; });
    row("program headers of another size", "segments", [](Patient &p) { p.header().e_phentsize = 32; });
    row("no program headers", "segments", [](Patient &p) { p.header().e_phnum = 0; });
    row("segment behind the end", "segments", [](Patient &p) { p.writable().p_offset += 0x1000000; });
    row("segment longer than the file", "segments", [](Patient &p) { p.writable().p_filesz = p.writable().p_memsz = 0x10000000; });
    row("segment longer than its memory", "segments", [](Patient &p) { p.writable().p_memsz = p.writable().p_filesz - 1; });
    row("segment over another", "segments", [](Patient &p) { p.writable().p_vaddr = p.segment(PT_LOAD, 0).p_vaddr; });
    row("segment that wraps around", "segments", [](Patient &p) { p.writable().p_memsz = ~Elf64_Xword(0) - 8; });
    row("thread-local data nowhere", "segments", [](Patient &p) { p.segment(PT_TLS).p_filesz = Nowhere; });
    row("endless thread-local data", "segments", [](Patient &p) { p.segment(PT_TLS).p_memsz = Elf64_Xword(1) << 48; });
    row("thread-local data that is not in the file", "segments", [](Patient &p) { auto &data = p.segment(PT_TLS); data.p_vaddr = Nowhere; data.p_filesz = data.p_memsz; });
    row("thread-local data that is oddly aligned", "segments", [](Patient &p) { p.segment(PT_TLS).p_align = 3; });
    row("read-only part without an end", "segments", [](Patient &p) { p.segment(PT_GNU_RELRO).p_memsz = Nowhere; });
    row("read-only part nowhere", "segments", [](Patient &p) { p.segment(PT_GNU_RELRO).p_vaddr = Nowhere; });
    row("unwinding table that goes on in memory", "segments", [](Patient &p) { ++p.segment(PT_GNU_EH_FRAME).p_memsz; });
    row("unwinding table nowhere", "segments", [](Patient &p) { p.segment(PT_GNU_EH_FRAME).p_vaddr = Nowhere; });

    row("none", "dynamic section", [](Patient &p) { p.segment(PT_DYNAMIC).p_type = PT_NULL; });
    row("outside the segments", "dynamic section", [](Patient &p) { p.segment(PT_DYNAMIC).p_vaddr = Nowhere; });
    row("in a segment that is not writable", "dynamic section", [](Patient &p) { p.writable().p_flags = PF_R; p.segment(PT_GNU_RELRO).p_type = PT_NULL; });
    row("without an end", "dynamic section", [](Patient &p) { p.segment(PT_DYNAMIC).p_filesz = 4 * sizeof(Elf64_Dyn); });
    row("two", "dynamic section", [](Patient &p) { p.segment(PT_GNU_STACK) = p.segment(PT_DYNAMIC); });
    row("names without a size", "dynamic section", [](Patient &p) { p.leaveOut(DT_STRSZ); });
    row("versions without a number", "dynamic section", [](Patient &p) { p.leaveOut(DT_VERNEEDNUM); });
    row("own versions without a number", "dynamic section", [](Patient &p) { p.leaveOut(DT_VERDEFNUM); }, "sturdy_symver");
    row("size of no start-up functions", "dynamic section", [](Patient &p) { p.leaveOut(DT_INIT_ARRAY); });
    row("clean-up functions without a size", "dynamic section", [](Patient &p) { p.leaveOut(DT_FINI_ARRAYSZ); });
    row("relocations without a size", "dynamic section", [](Patient &p) { p.leaveOut(DT_RELASZ); });
    row("calls without a size", "dynamic section", [](Patient &p) { p.leaveOut(DT_PLTRELSZ); });
    row("packed relocations without a size", "dynamic section", [](Patient &p) { p.add(DT_RELR, 0); });

    row("names nowhere", "names", [](Patient &p) { p.dynamic(DT_STRTAB).d_un.d_ptr = Nowhere; });
    row("names in memory only", "names", [](Patient &p) { p.dynamic(DT_STRTAB).d_un.d_ptr = p.writable().p_vaddr + p.writable().p_memsz; });
    row("empty names", "names", [](Patient &p) { p.dynamic(DT_STRSZ).d_un.d_val = 0; });
    row("names without an end", "names", [](Patient &p) { --p.dynamic(DT_STRSZ).d_un.d_val; });
    row("too many names", "names", [](Patient &p) { p.dynamic(DT_STRSZ).d_un.d_val = Nowhere; });
    row("zeroed dynamic section", "names", [](Patient &p) { std::memset(&p.dynamic(DT_NEEDED), 0, p.segment(PT_DYNAMIC).p_filesz); });
    row("needed library without a name", "names", [](Patient &p) { p.dynamic(DT_NEEDED).d_un.d_val = Nowhere; });
    row("own name nowhere", "names", [](Patient &p) { p.add(DT_SONAME, Nowhere); });
    row("folders to search nowhere", "names", [](Patient &p) { p.add(DT_RUNPATH, Nowhere); });
    row("folders to search first nowhere", "names", [](Patient &p) { p.add(DT_RPATH, Nowhere); });

    row("versions nowhere", "versions", [](Patient &p) { p.dynamic(DT_VERNEED).d_un.d_ptr = Nowhere; });
    row("more versions than there are", "versions", [](Patient &p) { ++p.dynamic(DT_VERNEEDNUM).d_un.d_val; });
    row("no versions, where they are said to be", "versions", [](Patient &p) { p.dynamic(DT_VERNEEDNUM).d_un.d_val = 0; });
    row("version of a library without a name", "versions", [](Patient &p) { p.table<Elf64_Verneed>(DT_VERNEED)->vn_file = Nowhere; });
    row("version of no library", "versions", [](Patient &p) { ++p.table<Elf64_Verneed>(DT_VERNEED)->vn_file; });
    row("versions that lead away", "versions", [](Patient &p) { p.table<Elf64_Verneed>(DT_VERNEED)->vn_next = Nowhere; });
    row("version details that lead away", "versions", [](Patient &p) { p.table<Elf64_Verneed>(DT_VERNEED)->vn_aux = Nowhere; });
    row("version without a name", "versions", [](Patient &p) {
        auto *need = p.table<Elf64_Verneed>(DT_VERNEED);
        reinterpret_cast<Elf64_Vernaux *>(reinterpret_cast<char *>(need) + need->vn_aux)->vna_name = Nowhere;
    });
    row("more version details than there are", "versions", [](Patient &p) { ++p.table<Elf64_Verneed>(DT_VERNEED)->vn_cnt; });
    row("symbols' versions nowhere", "versions", [](Patient &p) { p.dynamic(DT_VERSYM).d_un.d_ptr = Nowhere; });
    row("versions of no symbols", "versions", [](Patient &p) { p.leaveOut(DT_VERSYM); });
    row("no own versions, where they are said to be", "versions", [](Patient &p) { p.dynamic(DT_VERDEFNUM).d_un.d_val = 0; }, "sturdy_symver");
    row("own versions nowhere", "versions", [](Patient &p) { p.dynamic(DT_VERDEF).d_un.d_ptr = Nowhere; }, "sturdy_symver");
    row("own version without details", "versions", [](Patient &p) { p.table<Elf64_Verdef>(DT_VERDEF)->vd_aux = Nowhere; }, "sturdy_symver");
    row("own version without a name", "versions", [](Patient &p) { p.definedVersion().vda_name = Nowhere; }, "sturdy_symver");
    row("more own versions than there are", "versions", [](Patient &p) { ++p.dynamic(DT_VERDEFNUM).d_un.d_val; }, "sturdy_symver");

    row("symbols nowhere", "symbols", [](Patient &p) { p.dynamic(DT_SYMTAB).d_un.d_ptr = Nowhere; });
    row("fewer versions than symbols", "symbols", [](Patient &p) { p.dynamic(DT_VERSYM).d_un.d_ptr = ((p.segment(PT_LOAD).p_filesz & ~Elf64_Xword(1)) - 2); });
    row("symbol behind the thread-local data", "symbols", [](Patient &p) { p.change(STT_TLS, Nowhere); });
    row("function that is data", "symbols", [](Patient &p) { p.change(STT_FUNC, p.writable().p_vaddr); });
    row("datum that is nowhere", "symbols", [](Patient &p) { p.change(STT_OBJECT, Nowhere); });
    row("no way to find a symbol", "symbols", [](Patient &p) { p.leaveOut(DT_GNU_HASH); });
    row("hash table nowhere", "symbols", [](Patient &p) { p.dynamic(DT_GNU_HASH).d_un.d_ptr = Nowhere; });
    row("no bucket", "symbols", [](Patient &p) { p.table<Elf64_Word>(DT_GNU_HASH)[0] = 0; });
    row("too many buckets", "symbols", [](Patient &p) { p.table<Elf64_Word>(DT_GNU_HASH)[0] = 0x7fffffff; });
    row("other first symbol", "symbols", [](Patient &p) { ++p.table<Elf64_Word>(DT_GNU_HASH)[1]; });
    row("no filter", "symbols", [](Patient &p) { p.table<Elf64_Word>(DT_GNU_HASH)[2] = 0; });
    row("odd number of filters", "symbols", [](Patient &p) { p.table<Elf64_Word>(DT_GNU_HASH)[2] = 3; });
    row("too many filters", "symbols", [](Patient &p) { p.table<Elf64_Word>(DT_GNU_HASH)[2] = 0x40000000; });
    row("filter of more bits than there are", "symbols", [](Patient &p) { p.table<Elf64_Word>(DT_GNU_HASH)[3] = 32; });
    row("symbol in the wrong bucket", "symbols", [](Patient &p) { std::reverse(p.buckets(), p.buckets() + p.table<Elf64_Word>(DT_GNU_HASH)[0]); });
    row("filter that finds nothing", "symbols", [](Patient &p) { p.table<Elf64_Xword>(DT_GNU_HASH)[2] = 0; });
    // The older hash table: the numbers of buckets and of symbols, the first symbol of each bucket, the next of each symbol.
    row("older hash table nowhere", "symbols", [](Patient &p) { p.dynamic(DT_HASH).d_un.d_ptr = Nowhere; }, "sturdy_sysv");
    row("older hash table without buckets", "symbols", [](Patient &p) { p.table<Elf64_Word>(DT_HASH)[0] = 0; }, "sturdy_sysv");
    row("older hash table with too many buckets", "symbols", [](Patient &p) { p.table<Elf64_Word>(DT_HASH)[0] = 0x7fffffff; }, "sturdy_sysv");
    row("older hash table that leads behind its end", "symbols", [](Patient &p) { auto *hash = p.table<Elf64_Word>(DT_HASH); hash[2] = hash[1]; }, "sturdy_sysv");
    row("older hash table that goes round", "symbols", [](Patient &p) { auto *hash = p.table<Elf64_Word>(DT_HASH); const auto i = p.spareFunction(); hash[2 + hash[0] + i] = i; }, "sturdy_sysv");
    row("older hash table of a damaged symbol", "symbols", [](Patient &p) { p.change(STT_OBJECT, Nowhere); }, "sturdy_sysv");

    row("start-up function nowhere", "start-up functions", [](Patient &p) { p.dynamic(DT_INIT).d_un.d_ptr = Nowhere; });
    row("clean-up function in data", "start-up functions", [](Patient &p) { p.dynamic(DT_FINI).d_un.d_ptr = p.writable().p_vaddr; });
    row("start-up functions nowhere", "start-up functions", [](Patient &p) { p.dynamic(DT_INIT_ARRAY).d_un.d_ptr = Nowhere; });
    row("start-up functions without an end", "start-up functions", [](Patient &p) { p.dynamic(DT_INIT_ARRAYSZ).d_un.d_val = Nowhere; });
    row("clean-up functions nowhere", "start-up functions", [](Patient &p) { p.dynamic(DT_FINI_ARRAY).d_un.d_ptr = Nowhere; });
    row("start-up functions of odd size", "start-up functions", [](Patient &p) { ++p.dynamic(DT_INIT_ARRAYSZ).d_un.d_val; });

    row("relocations nowhere", "relocations", [](Patient &p) { p.dynamic(DT_RELA).d_un.d_ptr = Nowhere; });
    row("too many relocations", "relocations", [](Patient &p) { p.dynamic(DT_RELASZ).d_un.d_val = Nowhere; });
    row("relocations of another size", "relocations", [](Patient &p) { p.dynamic(DT_RELAENT).d_un.d_val = 16; });
    row("one more that is relative than there are", "relocations", [](Patient &p) { ++p.dynamic(DT_RELACOUNT).d_un.d_val; });
    row("more that are relative than relocations", "relocations", [](Patient &p) { p.dynamic(DT_RELACOUNT).d_un.d_val = Nowhere; });
    row("start-up functions that are not relocated", "relocations", [](Patient &p) { p.leaveOut(DT_RELA); p.leaveOut(DT_RELASZ); });
    row("calls of another kind", "relocations", [](Patient &p) { p.dynamic(DT_PLTREL).d_un.d_val = DT_REL; });
    row("calls nowhere", "relocations", [](Patient &p) { p.dynamic(DT_JMPREL).d_un.d_ptr = Nowhere; });
    row("relocation of nothing", "relocations", [](Patient &p) { p.table<Elf64_Rela>(DT_RELA)->r_offset = Nowhere; });
    row("relocation of constant data", "relocations", [](Patient &p) { p.table<Elf64_Rela>(DT_RELA)->r_offset = 0; });
    row("relocation by no symbol", "relocations", [](Patient &p) { p.relocation().r_info |= Elf64_Xword(0x7fffffff) << 32; });
    row("start-up function that is data", "relocations", [](Patient &p) {
        p.relocationOf(DT_INIT_ARRAY).r_addend = Elf64_Sxword(p.writable().p_vaddr);
    });
    row("zeroed relocations", "relocations", [](Patient &p) { std::memset(p.table<char>(DT_RELA), 0, p.dynamic(DT_RELASZ).d_un.d_val); });
    row("symbol without a name", "relocations", [](Patient &p) {
        p.table<Elf64_Sym>(DT_SYMTAB)[ELF64_R_SYM(p.relocation().r_info)].st_name = 0;
    });
    row("symbol whose version is unknown", "relocations", [](Patient &p) {
        p.table<Elf64_Half>(DT_VERSYM)[ELF64_R_SYM(p.relocation().r_info)] = 0x7000;
    });
    row("packed relocations nowhere", "relocations", [](Patient &p) { p.dynamic(DT_RELR).d_un.d_ptr = Nowhere; }, "sturdy_pack-relative-relocs");
    row("packed relocations of another size", "relocations", [](Patient &p) { p.dynamic(DT_RELRENT).d_un.d_val = 16; }, "sturdy_pack-relative-relocs");
    row("packed relocation of nothing", "relocations", [](Patient &p) { p.table<Elf64_Addr>(DT_RELR)[0] = Nowhere; }, "sturdy_pack-relative-relocs");
    row("packed relocation of constant data", "relocations", [](Patient &p) { p.table<Elf64_Addr>(DT_RELR)[0] = 0; }, "sturdy_pack-relative-relocs");
    row("packed relocation behind the end", "relocations", [](Patient &p) {
        auto *places = p.table<Elf64_Addr>(DT_RELR);
        places[0] = (p.writable().p_vaddr + p.writable().p_filesz - sizeof(Elf64_Addr)) & ~Elf64_Addr(7);
        places[1] = 3; // the place that follows
    }, "sturdy_pack-relative-relocs");
    // clang-format on
}

void tst_Damaged::damagedStructureIsRefused()
{
    QFETCH(Damage, damage);
    QFETCH(QString, part);
    QFETCH(QString, plugin);
    Patient patient(plugin);
    damage(patient);
    const Trial done = trial(patient.content);
    QVERIFY2(done.end == Refused, qPrintable(done.end + QLatin1Char(' ') + done.words));
    QCOMPARE(done.words, QStringLiteral("warning: failed to load libx: the file is damaged: ") + part);
}

void tst_Damaged::structureThatIsOnlyUnusualIsLoaded_data()
{
    QTest::addColumn<Damage>("change");
    const auto row = [](const char *name, const Damage &change) { QTest::newRow(name) << change; };
    row("libraries that are there and not named", [](Patient &p) { p.leaveOut(DT_NEEDED); });
    row("thread-local data with content", [](Patient &p) {
        Elf64_Phdr &data = p.segment(PT_TLS);
        data.p_offset = EI_NIDENT - data.p_memsz; // zeros, as they are without
        data.p_vaddr = p.segment(PT_LOAD).p_vaddr + data.p_offset;
        data.p_filesz = data.p_memsz;
    });
    row("no versions", [](Patient &p) {
        for (const Elf64_Sxword tag : {DT_VERSYM, DT_VERNEED, DT_VERNEEDNUM})
            p.leaveOut(tag);
    });
    row("thread-local symbol", [](Patient &p) { p.change(STT_TLS, 0); });
    row("function that is to be chosen",
        [](Patient &p) { p.change(STT_GNU_IFUNC, p.table<Elf64_Sym>(DT_SYMTAB)[p.spareFunction()].st_value); });
    row("symbol of a section", [](Patient &p) { p.change(STT_SECTION, Nowhere); });
    row("absolute symbol", [](Patient &p) {
        p.change(STT_NOTYPE, Nowhere);
        p.table<Elf64_Sym>(DT_SYMTAB)[p.spareFunction()].st_shndx = SHN_ABS;
    });
    row("no first start-up function", [](Patient &p) { p.leaveOut(DT_INIT); });
    row("no last clean-up function", [](Patient &p) { p.leaveOut(DT_FINI); });
    if (Patient().dynamic(DT_FINI_ARRAYSZ).d_un.d_val == sizeof(Elf64_Addr)) { // sanitizers add theirs
        row("clean-up function of the older kind", [](Patient &p) {
            p.dynamic(DT_FINI).d_un.d_ptr = Elf64_Addr(p.relocationOf(DT_FINI_ARRAY).r_addend);
            p.leaveOut(DT_FINI_ARRAY);
            p.leaveOut(DT_FINI_ARRAYSZ);
        });
    }
    row("code that is relocated", [](Patient &p) { p.add(DT_TEXTREL, 0); });
    row("code that is relocated, as a flag", [](Patient &p) { p.add(DT_FLAGS, DF_TEXTREL); });
    row("padding", [](Patient &p) { p.relocationBy("__gmon_start__").r_info = 0; }); // nobody has that symbol
    row("start-up function by its symbol", [](Patient &p) {
        p.leaveOut(DT_RELACOUNT);
        const Elf64_Xword type = ELF64_R_TYPE(p.relocation().r_info);
        Elf64_Rela &relocation = p.relocationOf(DT_INIT_ARRAY);
        relocation.r_info = ELF64_R_INFO(Elf64_Xword(p.spareFunction()), type);
        relocation.r_addend = 0;
    });
}

void tst_Damaged::structureThatIsOnlyUnusualIsLoaded()
{
    QFETCH(Damage, change);
    Patient patient;
    change(patient);
    const Trial done = trial(patient.content);
    QVERIFY2(done.end == Loaded, qPrintable(done.end + QLatin1Char(' ') + done.words));
}

void tst_Damaged::fileThatHasChangedSinceItWasReadIsRefused_data()
{
    QTest::addColumn<int>("length"); // to which it is cut off; or else it cannot be opened any more
    QTest::addColumn<QString>("words");
    QTest::newRow("empty") << 0 << "Cannot load library";
    QTest::newRow("a few bytes") << 8 << "the file is damaged: segments";
    QTest::newRow("no descriptor left") << -1 << "Cannot load library";
}

/// Qt reads the metadata once, and keeps it as long as there is a loader for the file.
void tst_Damaged::fileThatHasChangedSinceItWasReadIsRefused()
{
    QFETCH(int, length);
    const PluginFolder folder;
    folder.drop(QStringLiteral("sturdy"), QStringLiteral("libx.so"));
    const QString path = folder.filePath(QStringLiteral("libx.so"));
    const QPluginLoader reader(path);
    QVERIFY(!reader.metaData().isEmpty());
    Journal journal;
    ZLibrarySet set(QStringLiteral("absent"), QString(), nullptr);
    set.getSetZLogger(&journal);
    rlimit limit;
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (length < 0) {
        const rlimit none{0, limit.rlim_max};
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &none), 0);
    } else {
        QVERIFY(QFile::resize(path, length));
    }
    const QSharedPointer<ZLibrary> library = set.loadOne(QStringLiteral("libx"), QString(), nullptr);
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &limit), 0);

    QVERIFY(!library);
    const QString entries = journal.take().join(QLatin1String(" | "));
    QVERIFY2(isOneMessage(QStringLiteral("libx"), entries), qPrintable(entries));
    QFETCH(QString, words);
    QVERIFY2(entries.contains(words), qPrintable(entries));
}

void tst_Damaged::refusedFileIsLoadedOnceItIsSound()
{
    const PluginFolder folder;
    Patient patient;
    patient.dynamic(DT_SYMTAB).d_un.d_ptr = Nowhere;
    folder.write(QStringLiteral("libx.so"), patient.content);
    Journal journal;
    ZLibrarySet set(QStringLiteral("absent"), QString(), nullptr);
    set.getSetZLogger(&journal);
    settle();
    QVERIFY(!set.loadOne(QStringLiteral("libx"), QString(), nullptr));
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libx.so"))));
    settle();
    QVERIFY(QFile::remove(folder.filePath(QStringLiteral("libx.so"))));
    folder.drop(QStringLiteral("sturdy"), QStringLiteral("libx.so"));
    QVERIFY(set.loadOne(QStringLiteral("libx"), QString(), nullptr));
    settle();
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libx.so"))));
}

/// Code and constant data are not checked: a plugin may crash that runs damaged code, and nothing is promised.
void tst_Damaged::otherDamageIsRefusedOrLoadedOrCounted_data()
{
    QTest::addColumn<int>("step"); // of zeroed blocks; 0 for bits that are flipped
    QTest::newRow("zeroed pages") << 4096;
    QTest::newRow("zeroed sectors") << 512;
    QTest::newRow("flipped bits") << 0;
}

void tst_Damaged::otherDamageIsRefusedOrLoadedOrCounted()
{
    QFETCH(int, step);
    const QByteArray content = contentOf(pluginFile(QStringLiteral("sturdy_stripped")));
    QVERIFY(!content.isEmpty());
    const Folder folder;
    std::mt19937 random(20250131);
    const int count = step ? (content.size() + step - 1) / step : 300;
    for (int i = 0; i < count; ++i) {
        QByteArray damaged = content;
        if (step)
            damaged.replace(i * step, std::min(step, content.size() - i * step), QByteArray(step, '\0'));
        else
            damaged.data()[random() % unsigned(content.size())] ^= char(1 << random() % 8);
        folder.write(QStringLiteral("libx%1.so").arg(i), damaged.left(content.size()));
    }
    QMap<QString, int> ends;
    const QMap<QString, Trial> all = trials(folder);
    QCOMPARE(all.size(), count);
    for (auto trial = all.begin(); trial != all.end(); ++trial) {
        ++ends[trial->end];
        QVERIFY2(trial->end != Refused || isOneMessage(trial.key(), trial->words), qPrintable(trial->words));
    }
    QVERIFY(ends.value(Refused) > 0);
    std::printf("%s: %d refused, %d loaded, %d died\n", QTest::currentDataTag(), ends.value(Refused),
                ends.value(Loaded), ends.value(Died));
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--load") == 0) {
        tryFolder(QFile::decodeName(argv[2]));
        return 0;
    }
    tst_Damaged test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_damaged.moc"
