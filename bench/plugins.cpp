// SPDX-License-Identifier: Apache-2.0
// A plugin loaded, its root object made and destroyed, and its file unloaded.
#include <benchmark/benchmark.h>

#include <QDir>
#include <QPluginLoader>

#include <deque>
#include <vector>

#include <dlfcn.h>

#include <zlibrary.h>
#include <zlibraryset.h>
#include <zobject.h>

#include "pluginfolder.h"

namespace {

const QString Name = QStringLiteral("teller");

/// The plugin's folder, with other files in it and other library paths before it.
class Files
{
public:
    explicit Files(int paths = 1, int others = 0)
    {
        m_folder.add(0);
        for (int i = 0; i < others; ++i)
            QFile(m_folder.filePath(QStringLiteral("libother%1.so").arg(i))).open(QIODevice::WriteOnly);
        QStringList libraryPaths;
        for (int i = 1; i < paths; ++i) {
            m_empty.emplace_back();
            libraryPaths.append(m_empty.back().path());
        }
        QCoreApplication::setLibraryPaths(libraryPaths << m_folder.path());
    }

    QString folder() const { return m_folder.path(); }
    QByteArray file() const { return QFile::encodeName(m_folder.filePath(QStringLiteral("libteller.so"))); }

private:
    PluginFolder m_folder;
    std::deque<QTemporaryDir> m_empty;
};

/// Does what an event loop does after the root has gone: what it has posted for deletion is deleted, and then its file
/// unloaded.
void unloadNow()
{
    for (int i = 0; i < 3; ++i) { // what is handled posts more
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

bool isMapped(const QByteArray &file)
{
    void *handle = dlopen(file, RTLD_LAZY | RTLD_NOLOAD);
    if (handle)
        dlclose(handle);
    return handle;
}

/// Loads by `load`, and makes a root object; lets go of it and the library, and of the file.
template <class Load>
void ours(benchmark::State &state, const Files &files, Load load)
{
    ZLibrarySet set(QStringLiteral("none"), files.folder(), nullptr);
    for (auto _ : state) {
        {
            const QSharedPointer<ZLibrary> library = (set.*load)(Name, files.folder(), nullptr);
            if (!library)
                qFatal("not loaded");
            const QSharedPointer<ZObject> root = *library;
            benchmark::DoNotOptimize(root.data());
        }
        unloadNow();
    }
    if (isMapped(files.file()))
        qFatal("not unloaded");
}

void loadByHand(const QString &name)
{
    QPluginLoader loader(name);
    loader.setLoadHints(QLibrary::ResolveAllSymbolsHint); // or the file would not leave memory
    const QObject *root = loader.instance();
    if (!root)
        qFatal("not loaded");
    benchmark::DoNotOptimize(root);
    loader.unload(); // deletes the root
}

void pathOurs(benchmark::State &state) { ours(state, Files(static_cast<int>(state.range(0))), &ZLibrarySet::loadOne); }

void pathFloor(benchmark::State &state)
{
    const Files files(static_cast<int>(state.range(0)));
    for (auto _ : state)
        loadByHand(Name);
}

void fullPath(benchmark::State &state)
{
    const Files files;
    for (auto _ : state)
        loadByHand(QFile::decodeName(files.file()));
}

void bare(benchmark::State &state)
{
    const Files files;
    for (auto _ : state) {
        void *handle = dlopen(files.file(), RTLD_NOW);
        const auto instance = reinterpret_cast<QObject *(*)()>(dlsym(handle, "qt_plugin_instance"));
        delete instance();
        dlclose(handle);
    }
}

/// One file, whatever else its folder holds.
void othersOurs(benchmark::State &state)
{
    ours(state, Files(1, static_cast<int>(state.range(0))), &ZLibrarySet::loadOne);
}

void othersFloor(benchmark::State &state)
{
    const Files files(1, static_cast<int>(state.range(0)));
    for (auto _ : state)
        loadByHand(Name);
}

/// All there is of a name: the folder is asked for its versions.
void nameOurs(benchmark::State &state)
{
    ours(state, Files(1, static_cast<int>(state.range(0))), &ZLibrarySet::loadAll);
}

void nameFloor(benchmark::State &state)
{
    const Files files(1, static_cast<int>(state.range(0)));
    for (auto _ : state) {
        const QDir dir(files.folder());
        benchmark::DoNotOptimize(dir.entryList({QStringLiteral("libteller.*.so")}, QDir::Files, QDir::Name).size());
        loadByHand(Name);
    }
}

void versions(const PluginFolder &folder, int count)
{
    for (int version = 1; version <= count; ++version)
        folder.add(version);
}

void versionsOurs(benchmark::State &state)
{
    const PluginFolder folder;
    const int count = static_cast<int>(state.range(0));
    versions(folder, count);
    folder.add(0);
    while (state.KeepRunningBatch(count)) {
        {
            const ZLibrarySet set(Name, folder.path(), nullptr);
        }
        unloadNow();
    }
}

void versionsFloor(benchmark::State &state)
{
    const PluginFolder folder;
    const int count = static_cast<int>(state.range(0));
    versions(folder, count);
    folder.add(0);
    while (state.KeepRunningBatch(count)) {
        std::deque<QPluginLoader> loaders;
        for (int version = 0; version <= count; ++version) {
            QPluginLoader &loader = loaders.emplace_back(version == 0 ? Name : PluginFolder::nameOf(version));
            loader.setLoadHints(QLibrary::ResolveAllSymbolsHint);
            benchmark::DoNotOptimize(loader.instance());
        }
        for (QPluginLoader &loader : loaders)
            loader.unload();
    }
}

void paths(benchmark::internal::Benchmark *benchmark) { benchmark->Arg(1)->Arg(2)->Arg(4); }
void others(benchmark::internal::Benchmark *benchmark) { benchmark->Arg(0)->Arg(1000); }
void counts(benchmark::internal::Benchmark *benchmark) { benchmark->Arg(10)->Arg(100)->Arg(1000)->Repetitions(3); }

BENCHMARK(pathOurs)->Name("plugin load, by library paths/ours")->Apply(paths);
BENCHMARK(pathFloor)->Name("plugin load, by library paths/floor")->Apply(paths);
BENCHMARK(fullPath)->Name("plugin load, by library paths/peer: QPluginLoader by full path");
BENCHMARK(bare)->Name("plugin load, by library paths/peer: dlopen");
BENCHMARK(othersOurs)->Name("plugin load, by files beside it/ours")->Apply(others);
BENCHMARK(othersFloor)->Name("plugin load, by files beside it/floor")->Apply(others);
BENCHMARK(nameOurs)->Name("plugin load with all versions, by files beside it/ours")->Apply(others);
BENCHMARK(nameFloor)->Name("plugin load with all versions, by files beside it/floor")->Apply(others);
BENCHMARK(versionsOurs)->Name("plugin versions, each/ours")->Apply(counts);
BENCHMARK(versionsFloor)->Name("plugin versions, each/floor")->Apply(counts);

} // namespace
