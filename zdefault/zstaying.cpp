// SPDX-License-Identifier: Apache-2.0
#include "zstaying.h"

#include "ztexts.h"

#include <QByteArray>
#include <QFile>
#include <QHash>
#include <QMutex>
#include <QMutexLocker>

#include <dlfcn.h>
#include <link.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

QBasicMutex reasonsMutex;

QHash<QByteArray, QString> &reasons() // by path; guarded by reasonsMutex, and never destroyed
{
    static auto &instance = *new QHash<QByteArray, QString>;
    return instance;
}

/// The reason that the file itself gives, in its dynamic section.
QString reasonIn(const link_map &file)
{
    const char *strings = nullptr;
    size_t size = 0;
    for (const ElfW(Dyn) *entry = file.l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_FLAGS_1 && (entry->d_un.d_val & DF_1_NODELETE))
            return QStringLiteral("it is linked with -z nodelete");
        if (entry->d_tag == DT_STRSZ)
            size = entry->d_un.d_val;
        if (entry->d_tag == DT_STRTAB) // an address already, if the dynamic linker may write to the section
            strings =
                reinterpret_cast<const char *>(entry->d_un.d_ptr + (entry->d_un.d_ptr < file.l_addr ? file.l_addr : 0));
    }
    if (strings && std::string_view(strings, size).find("__cxa_thread_atexit") != std::string_view::npos)
        return QStringLiteral("a thread that still runs has an object of it that is thread_local and has a destructor");
    return {};
}

void keep(const char *path, const QString &reason)
{
    if (!dlopen(path, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE))
        return;
    const QMutexLocker locker(&reasonsMutex);
    reasons().insert(QByteArray(path), zDeepCopy(reason));
}

} // namespace

void zKeepInMemory(const void *code, const QString &reason)
{
    Dl_info file;
    if (dladdr(code, &file))
        keep(file.dli_fname, reason);
}

void zKeepForDebugging(const QString &path)
{
    static const bool isWanted = qEnvironmentVariableIsSet("ZDEFAULT_KEEP_PLUGINS");
    if (isWanted)
        keep(QFile::encodeName(path).constData(), QStringLiteral("ZDEFAULT_KEEP_PLUGINS is set"));
}

void zKeepQtInMemory()
{
    std::vector<std::string> names; // opened afterwards, since the dynamic linker is locked during the walk
    dl_iterate_phdr(
        [](dl_phdr_info *file, size_t, void *to) {
            const std::string_view path(file->dlpi_name);
            if (path.substr(path.rfind('/') + 1).rfind("libQt5", 0) == 0)
                static_cast<std::vector<std::string> *>(to)->emplace_back(path);
            return 0;
        },
        &names);
    for (const std::string &name : names)
        dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE); // one more reference changes nothing
}

QString zReasonToStay(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    void *handle = dlopen(name.constData(), RTLD_LAZY | RTLD_NOLOAD);
    if (!handle)
        return {};
    link_map *file = nullptr;
    QString reason;
    {
        const QMutexLocker locker(&reasonsMutex);
        reason = reasons().value(name);
    }
    if (reason.isNull() && dlinfo(handle, RTLD_DI_LINKMAP, &file) == 0)
        reason = reasonIn(*file);
    dlclose(handle);
    return reason.isNull()
               ? QStringLiteral("something else uses it, or it has GNU unique symbols, which are never let go")
               : reason;
}
