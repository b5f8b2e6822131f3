// SPDX-License-Identifier: Apache-2.0
// A small plugin, damaged in any way. Up to the dynamic linker the library must stand it; what the linker and the
// plugin's own code make of it is found out by a child process, and its death is only counted.
#include "fuzz.h"

#include "folder.h"
#include "journal.h"
#include "testcase.h"

#include <QCoreApplication>
#include <QFile>

#include <zlibraryset.h>

#include <fuzzer/FuzzedDataProvider.h>
#include <sanitizer/common_interface_defs.h>

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>

namespace {

/// Where the plugin under test goes.
QByteArray path;

enum Linker
{
    NotAsked,
    Asked, // so what happens is not ours
    Refused,
    Loaded
};
/// How far the plugin has come; a child process tells its parent.
auto &linker = *static_cast<volatile Linker *>(
    mmap(nullptr, sizeof(Linker), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
bool isHeldBack = false; // the linker is not given the plugin, and answers that it cannot load it

quint64 refused = 0;
quint64 loaded = 0;
quint64 died = 0;

QByteArray contentOf(const QString &file)
{
    QFile in(file);
    promise(in.open(QIODevice::ReadOnly), "the plugin was built", file);
    return in.readAll();
}

/// As a copy that is done: under its name there is a new file, however the one before is still used.
void write(const QByteArray &content)
{
    QFile out(QFile::decodeName(path));
    out.remove();
    promise(out.open(QIODevice::WriteOnly) && out.write(content) == content.size(), "the disk has room");
}

/// Where in the file something begins that is worth damaging.
QVector<int> landmarks(const QByteArray &plugin)
{
    const auto read = [&](quint64 offset, auto *into) { std::memcpy(into, plugin.constData() + offset, sizeof *into); };
    QVector<int> result{0, plugin.indexOf("QTMETADATA")};
    Elf64_Ehdr header;
    read(0, &header);
    result.append(int(header.e_shoff));
    for (unsigned i = 0; i < header.e_phnum; ++i)
        result.append(int(header.e_phoff + i * sizeof(Elf64_Phdr)));
    for (unsigned i = 0; i < header.e_shnum; ++i) {
        const quint64 place = header.e_shoff + i * sizeof(Elf64_Shdr);
        Elf64_Shdr section;
        read(place, &section);
        result.append(int(place));
        if (section.sh_type != SHT_NOBITS && section.sh_flags & SHF_ALLOC && !(section.sh_flags & SHF_EXECINSTR))
            result.append(int(section.sh_offset));
    }
    return result;
}

/// The plugin, with the damage that the input tells: each edit has a place, and what is done there.
QByteArray damaged(QByteArray plugin, FuzzedDataProvider &data)
{
    static const QVector<int> places = landmarks(plugin);
    while (data.remaining_bytes() > 0 && !plugin.isEmpty()) {
        const int kind = data.ConsumeIntegralInRange(0, 15);
        const int landmark = places.at(data.ConsumeIntegralInRange(0, places.size() - 1));
        const int entry = data.ConsumeIntegralInRange(0, 255) * (data.ConsumeBool() ? 1 : 8);
        const int place = data.ConsumeIntegralInRange(0, 3) > 0 ? qMin(landmark + entry, plugin.size() - 1)
                                                                : data.ConsumeIntegralInRange(0, plugin.size() - 1);
        const auto set = [&](auto value) {
            const int size = qMin(int(sizeof value), plugin.size() - place);
            std::memcpy(plugin.data() + place, &value, size_t(size));
        };
        switch (kind) {
        case 0:
            plugin.truncate(place);
            break;
        case 1: {
            const std::string text = data.ConsumeRandomLengthString(32);
            plugin.insert(place, text.data(), int(text.size()));
            break;
        }
        case 2:
            plugin.remove(place, data.ConsumeIntegralInRange(1, 64));
            break;
        case 3: {
            const int length = qMin(data.ConsumeIntegralInRange(1, 4096), plugin.size() - place);
            std::memset(plugin.data() + place, data.ConsumeIntegral<char>(), size_t(length));
            break;
        }
        case 4:
            plugin.replace(place, 24, plugin.mid(data.ConsumeIntegralInRange(0, plugin.size() - 1), 24));
            break;
        case 5:
            plugin[place] = char(plugin[place] ^ (1 << data.ConsumeIntegralInRange(0, 7)));
            break;
        case 6:
        case 7:
            set(data.ConsumeIntegral<quint8>());
            break;
        case 8:
        case 9:
            set(data.ConsumeIntegral<quint16>());
            break;
        case 10:
        case 11:
        case 12:
            set(data.ConsumeIntegral<quint32>());
            break;
        default:
            set(data.ConsumeIntegral<quint64>());
        }
    }
    return plugin;
}

enum End
{
    IsLoaded = 10, // apart from what sanitizers exit with
    IsRefused,
    IsRefusedWrongly // not in one line
};

/// Loads the plugin, and lets it go again.
End load()
{
    ZLibrarySet set(QStringLiteral("absent"), QString(), nullptr);
    settle();
    Journal journal;
    set.getSetZLogger(&journal);
    linker = NotAsked;
    QSharedPointer<ZLibrary> library = set.loadOne(QStringLiteral("patient"), QString(), nullptr);
    const bool isLoaded = library;
    const QStringList log = journal.take();
    library.clear();
    settle();
    if (isLoaded)
        return IsLoaded;
    const QString start = QStringLiteral("warning: failed to load patient: ");
    return log.size() == 1 && log.first().startsWith(start) ? IsRefused : IsRefusedWrongly;
}

/// Has the real linker try what comes of the plugin, and counts it.
void loadInChild(const QByteArray &sound)
{
    const pid_t child = fork();
    if (child == 0) {
        const rlimit none{0, 0};
        setrlimit(RLIMIT_CORE, &none);
        for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGALRM, SIGTERM})
            std::signal(signal, SIG_DFL); // a death here is no finding
        __sanitizer_set_death_callback(nullptr);
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        alarm(10); // damaged code may run in a circle
        const End end = load();
        if (linker == Loaded)
            _exit(end == IsLoaded ? IsLoaded : IsRefused); // code of the plugin ran: nothing is sure any more
        write(sound);
        _exit(end == IsRefused && load() == IsLoaded ? IsRefused : IsRefusedWrongly);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) { // the fuzzer's own alarm comes in between
    }
    const int end = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    promise(end != IsRefusedWrongly, "what the linker refuses is told of in one line, and the sound plugin is loaded");
    if (end == IsLoaded) {
        ++loaded;
    } else if (end == IsRefused) {
        ++refused;
    } else {
        ++died;
        promise(linker == Asked || linker == Loaded, "only the linker and the plugin may be the end of a process",
                QStringLiteral("status %1, linker %2").arg(status).arg(int(linker)));
    }
}

} // namespace

extern "C" __attribute__((visibility("default"))) void *dlopen(const char *file, int flags)
{
    using Dlopen = void *(*)(const char *, int);
    static const auto next = reinterpret_cast<Dlopen>(dlsym(RTLD_NEXT, "dlopen"));
    if (!file || path != file || flags & RTLD_NOLOAD)
        return next(file, flags);
    linker = Asked;
    void *handle = isHeldBack ? nullptr : next(file, flags);
    linker = handle ? Loaded : Refused;
    return handle;
}

void fuzz(const QByteArray &input)
{
    static const Folder folder;
    static const QByteArray sound = contentOf(QStringLiteral(PATIENT));
    if (path.isEmpty()) {
        path = QFile::encodeName(folder.filePath(QStringLiteral("libpatient.so")));
        QCoreApplication::setLibraryPaths({folder.path()});
        std::atexit([] {
            std::fprintf(stderr, "given to the dynamic linker: %llu refused, %llu loaded, %llu died of it\n", refused,
                         loaded, died);
        });
    }
    FuzzedDataProvider data(reinterpret_cast<const uint8_t *>(input.constData()), static_cast<size_t>(input.size()));
    write(damaged(sound, data));
    isHeldBack = true;
    promise(load() == IsRefused, "a plugin that does not load is told of in one line");
    isHeldBack = false;
    if (linker != NotAsked)
        loadInChild(sound);
    write(sound);
    promise(load() == IsLoaded, "the sound plugin is loaded after one that was refused");
}
