// SPDX-License-Identifier: Apache-2.0
#include "zelffile.h"

#include "zelfimage.h"

#include <QFile>
#include <QMap>
#include <QVector>

#include <dlfcn.h>

#include <algorithm>
#include <climits>

namespace {

using Addr = ZElfImage::Addr;
using Word = ZElfImage::Word;
using Rela = ElfW(Rela);
using Segment = ZElfImage::Segment;
using Symbol = ElfW(Sym);
using Tag = ElfW(Sxword);
using Versym = ElfW(Versym);

constexpr quint64 AddrBits = sizeof(Addr) * CHAR_BIT;
constexpr quint64 StepsToLookUp = 4096;                      // for the search of the dynamic linker for a name
constexpr quint64 MostThreadLocal = 1 << 30;                 // without room for it in a thread a process ends
constexpr unsigned SymbolShift = sizeof(Addr) == 8 ? 32 : 8; // where a relocation has the index of its symbol
constexpr unsigned VersionMask = 0x7fff;                     // the bit above it tells that a symbol is hidden

Word gnuHash(const char *name)
{
    Word hash = 5381;
    for (; *name; ++name)
        hash = hash * 33 + uchar(*name);
    return hash;
}

/// Whether the process has a library of that name already.
bool isLoaded(const char *name)
{
    void *library = dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
    if (library)
        dlclose(library);
    return library;
}

/// Each check returns whether the file has passed it, and relies on the checks before it.
class ElfFile
{
public:
    ElfFile(const uchar *data, quint64 size) : m_image(data, size) {}

    bool segments();
    bool dynamicSection();
    bool strings();
    bool versions();
    bool symbols();
    bool functions() const;
    bool relocations();

private:
    struct Array
    {
        Addr address = 0, size = 0;

        bool contains(Addr place) const { return place - address < size; }
    };

    template <class T>
    ZElfTable<T> from(Addr address, quint64 count = ZElfImage::All) const
    {
        return m_image.from<T>(address, count);
    }
    const Segment *segment(Addr address, quint64 size, Word flags) const
    {
        return m_image.segment(address, size, flags);
    }
    bool isHeader(const Segment &header) const;
    bool isFunction(Addr address) const { return segment(address, 1, PF_X); }
    bool isName(quint64 offset) const { return m_strings.at(offset) && *m_strings.at(offset); }
    bool isFileName(quint64 name) const;
    bool isLibrary(quint64 name) const;
    bool isSymbol(quint64 index) const;
    bool isSymbolTable(Addr address) const;
    bool isGnuSymbolTable(Addr address) const;
    bool isRelocated(Addr place, quint64 symbol, Addr value);
    bool areRelocated(const ZElfTable<Rela> &relocations, quint64 relative);
    bool areRelocated(const ZElfTable<Addr> &relative);
    Addr value(Tag tag) const { return m_dynamic.value(tag); }
    bool has(Tag tag) const { return m_dynamic.contains(tag); }

    ZElfImage m_image;
    ZElfTable<Segment> m_headers;
    quint64 m_threadLocal = 0;
    QMap<Tag, Addr> m_dynamic; // no hash: all tags of a file could have the same
    QVector<Addr> m_needed;
    ZElfTable<char> m_strings;
    unsigned m_lastVersion = VER_NDX_GLOBAL;
    ZElfTable<Versym> m_symbolVersions;
    ZElfTable<Symbol> m_symbols; // and what follows them
    Word m_relocatable = PF_W;   // the flags of a segment in which there are relocations
    Array m_startUp, m_cleanUp;
    quint64 m_arrayEntries = 0;
};

bool ElfFile::segments()
{
    const ZElfTable<ElfW(Ehdr)> header = m_image.inFile<ElfW(Ehdr)>(0, 1);
    if (!header || header.data->e_phentsize != sizeof(Segment))
        return false;
    m_headers = m_image.inFile<Segment>(header.data->e_phoff, header.data->e_phnum);
    const auto isAdded = [this](const Segment &any) { return any.p_type != PT_LOAD || m_image.add(any); };
    return std::all_of(m_headers.begin(), m_headers.end(), isAdded) && m_image.hasSegments() &&
           std::all_of(m_headers.begin(), m_headers.end(), [this](const Segment &any) { return isHeader(any); });
}

bool ElfFile::isHeader(const Segment &header) const
{
    switch (header.p_type) {
    case PT_PHDR:
    case PT_GNU_EH_FRAME:
    case PT_GNU_PROPERTY:
        return header.p_memsz == header.p_filesz && from<char>(header.p_vaddr, header.p_filesz);
    case PT_TLS:
        return header.p_memsz >= header.p_filesz && header.p_memsz <= MostThreadLocal &&
               (header.p_align & (header.p_align - 1)) == 0 &&
               (header.p_filesz == 0 || from<char>(header.p_vaddr, header.p_filesz));
    case PT_GNU_RELRO: { // it goes to the end of a page; its segment may end before that
        const Segment *in = segment(header.p_vaddr, 0, PF_R | PF_W);
        return in && header.p_memsz <= in->p_vaddr + in->p_memsz - header.p_vaddr + in->p_align;
    }
    default:
        return true;
    }
}

bool ElfFile::dynamicSection()
{
    ZElfTable<ElfW(Dyn)> entries;
    for (const Segment &header : m_headers) {
        if (header.p_type == PT_TLS)
            m_threadLocal = header.p_memsz;
        if (header.p_type != PT_DYNAMIC)
            continue;
        if (entries || !segment(header.p_vaddr, header.p_filesz, header.p_flags)) // it is written to if flags say so
            return false;
        entries = from<ElfW(Dyn)>(header.p_vaddr, header.p_filesz / sizeof(ElfW(Dyn)));
    }
    bool ends = false;
    for (const auto &entry : entries) {
        ends = entry.d_tag == DT_NULL;
        if (ends)
            break;
        if (entry.d_tag == DT_NEEDED)
            m_needed.append(entry.d_un.d_val);
        m_dynamic.insert(entry.d_tag, entry.d_un.d_val);
    }
    const auto areTogether = [this](Tag table, Tag size) { return has(table) == has(size); };
    return ends && areTogether(DT_STRTAB, DT_STRSZ) && areTogether(DT_VERNEED, DT_VERNEEDNUM) &&
           areTogether(DT_VERDEF, DT_VERDEFNUM) && areTogether(DT_INIT_ARRAY, DT_INIT_ARRAYSZ) &&
           areTogether(DT_FINI_ARRAY, DT_FINI_ARRAYSZ) && areTogether(DT_RELA, DT_RELASZ) &&
           areTogether(DT_JMPREL, DT_PLTRELSZ) && areTogether(DT_RELR, DT_RELRSZ);
}

bool ElfFile::strings()
{
    m_strings = from<char>(value(DT_STRTAB), value(DT_STRSZ));
    const auto isAbsentOrName = [this](Tag tag) { return !has(tag) || isName(value(tag)); };
    return m_strings.count > 0 && m_strings.data[m_strings.count - 1] == '\0' && isAbsentOrName(DT_SONAME) &&
           isAbsentOrName(DT_RPATH) && isAbsentOrName(DT_RUNPATH) &&
           std::all_of(m_needed.begin(), m_needed.end(), [this](Addr name) { return isFileName(name); });
}

/// Whether a library may have this name. The dynamic linker puts the name on its stack, however long it is.
bool ElfFile::isFileName(quint64 name) const
{
    const quint64 length = isName(name) ? qstrnlen(m_strings.at(name), PATH_MAX) : 0;
    return length > 0 && length < PATH_MAX && m_image.spend(length);
}

bool ElfFile::isLibrary(quint64 name) const
{
    if (!isFileName(name))
        return false;
    const char *const text = m_strings.at(name);
    const quint64 length = qstrlen(text);
    const auto isSame = [&](Addr needed) { return m_image.spend(length) && qstrcmp(m_strings.at(needed), text) == 0; };
    return std::any_of(m_needed.begin(), m_needed.end(), isSame) || (m_image.spend(StepsToLookUp) && isLoaded(text));
}

bool ElfFile::versions()
{
    if (has(DT_VERNEED) != (value(DT_VERNEEDNUM) > 0) || has(DT_VERDEF) != (value(DT_VERDEFNUM) > 0))
        return false;
    Addr address = value(DT_VERNEED);
    for (Addr left = value(DT_VERNEEDNUM); left > 0; --left) {
        const auto need = from<ElfW(Verneed)>(address).at(0);
        if (!need || !isLibrary(need->vn_file) || (need->vn_next == 0) != (left == 1))
            return false;
        Addr inner = address + need->vn_aux;
        for (unsigned innerLeft = need->vn_cnt; innerLeft > 0; --innerLeft) {
            const auto version = from<ElfW(Vernaux)>(inner).at(0);
            if (!version || !isName(version->vna_name) || (version->vna_next == 0) != (innerLeft == 1))
                return false;
            m_lastVersion = std::max(m_lastVersion, version->vna_other & VersionMask);
            inner += version->vna_next;
        }
        address += need->vn_next;
    }
    address = value(DT_VERDEF);
    for (Addr left = value(DT_VERDEFNUM); left > 0; --left) {
        const auto definition = from<ElfW(Verdef)>(address).at(0);
        const auto name = definition ? from<ElfW(Verdaux)>(address + definition->vd_aux).at(0) : nullptr;
        if (!name || !isName(name->vda_name) || (definition->vd_next == 0) != (left == 1))
            return false;
        m_lastVersion = std::max(m_lastVersion, definition->vd_ndx & VersionMask);
        address += definition->vd_next;
    }
    if (!has(DT_VERSYM))
        return !has(DT_VERNEED);
    m_symbolVersions = from<Versym>(value(DT_VERSYM));
    return bool(m_symbolVersions);
}

bool ElfFile::symbols()
{
    m_symbols = from<Symbol>(value(DT_SYMTAB));
    return has(DT_SYMTAB) && m_symbols && (has(DT_HASH) || has(DT_GNU_HASH)) &&
           (!has(DT_HASH) || isSymbolTable(value(DT_HASH))) &&
           (!has(DT_GNU_HASH) || isGnuSymbolTable(value(DT_GNU_HASH)));
}

bool ElfFile::isSymbol(quint64 index) const
{
    const Symbol *symbol = m_symbols.at(index);
    if (!m_image.spend(1) || !symbol || !m_strings.at(symbol->st_name))
        return false;
    if (m_symbolVersions) {
        const Versym *version = m_symbolVersions.at(index);
        if (!version || (*version & VersionMask) > m_lastVersion)
            return false;
    }
    const unsigned type = symbol->st_info & 0xf;
    const bool isLocal = symbol->st_info >> 4 == STB_LOCAL;
    if (!isLocal && !isName(symbol->st_name))
        return false;
    if (symbol->st_shndx == SHN_UNDEF)
        return !isLocal;
    if (type == STT_TLS)
        return symbol->st_value <= m_threadLocal;
    if (type == STT_FUNC || type == STT_GNU_IFUNC)
        return isFunction(symbol->st_value);
    return symbol->st_shndx == SHN_ABS || type == STT_SECTION || segment(symbol->st_value, 0, 0);
}

bool ElfFile::isSymbolTable(Addr address) const
{
    const ZElfTable<Elf_Symndx> table = from<Elf_Symndx>(address);
    if (table.count < 2)
        return false;
    const quint64 buckets = table.data[0];
    const quint64 count = table.data[1];
    if (buckets == 0 || table.count - 2 < buckets + count)
        return false;
    quint64 left = count; // a symbol is in one bucket only
    for (quint64 bucket = 0; bucket < buckets; ++bucket) {
        for (quint64 i = table.data[2 + bucket]; i != 0; i = table.data[2 + buckets + i]) {
            if (i >= count || left-- == 0 || !isSymbol(i))
                return false;
        }
    }
    return true;
}

bool ElfFile::isGnuSymbolTable(Addr address) const
{
    const ZElfTable<Word> header = from<Word>(address, 4);
    if (!header)
        return false;
    const quint64 buckets = header.data[0];
    const quint64 firstSymbol = header.data[1];
    const quint64 filters = header.data[2];
    const Word shift = header.data[3];
    address += 4 * sizeof(Word);
    const ZElfTable<Addr> filter = from<Addr>(address, filters);
    address += filters * sizeof(Addr);
    const ZElfTable<Word> bucket = from<Word>(address, buckets);
    const ZElfTable<Word> chain = from<Word>(address + buckets * sizeof(Word));
    quint64 end = firstSymbol;
    quint64 found = firstSymbol;
    if (!filter || filters == 0 || (filters & (filters - 1)) != 0 || !bucket || buckets == 0 || shift >= 32)
        return false;
    for (quint64 b = 0; b < buckets; ++b) {
        const Word *link = nullptr;
        for (quint64 i = bucket.data[b]; i != 0 && (!link || (*link & 1) == 0); ++i) {
            link = i < firstSymbol ? nullptr : chain.at(i - firstSymbol);
            if (!link || !isSymbol(i))
                return false;
            const char *const name = m_strings.at(m_symbols.at(i)->st_name);
            if (!m_image.spend(qstrlen(name)))
                return false;
            const Word hash = gnuHash(name);
            const Addr bits = Addr(1) << hash % AddrBits | Addr(1) << (hash >> shift) % AddrBits;
            if ((hash | 1) != (*link | 1) || hash % buckets != b ||
                (filter.data[hash / AddrBits % filters] & bits) != bits)
                return false;
            end = std::max(end, i + 1);
            ++found;
        }
    }
    return found == end; // else no bucket leads to some of the symbols
}

bool ElfFile::functions() const
{
    const auto isArray = [this](Tag array, Tag size) {
        return !has(array) || (value(size) % sizeof(Addr) == 0 && segment(value(array), value(size), PF_R));
    };
    return (!has(DT_INIT) || isFunction(value(DT_INIT))) && (!has(DT_FINI) || isFunction(value(DT_FINI))) &&
           isArray(DT_INIT_ARRAY, DT_INIT_ARRAYSZ) && isArray(DT_FINI_ARRAY, DT_FINI_ARRAYSZ);
}

bool ElfFile::isRelocated(Addr place, quint64 symbol, Addr value)
{
    if (!segment(place, sizeof(Word), m_relocatable) || (symbol != 0 && !isSymbol(symbol)))
        return false;
    if (!m_startUp.contains(place) && !m_cleanUp.contains(place))
        return true;
    ++m_arrayEntries;
    return symbol != 0 || isFunction(value);
}

bool ElfFile::areRelocated(const ZElfTable<Rela> &relocations, quint64 relative)
{
    if (!relocations || relative > relocations.count)
        return false;
    for (const Rela &relocation : relocations) {
        const auto index = quint64(&relocation - relocations.data);
        if (index < relative && (relocation.r_info == 0 || relocation.r_info != relocations.data->r_info))
            return false;
        const bool isPadding = relocation.r_info == 0;
        if (!isPadding &&
            !isRelocated(relocation.r_offset, relocation.r_info >> SymbolShift, Addr(relocation.r_addend)))
            return false;
    }
    return true;
}

/// Checks relative relocations. An even entry is a place, an odd one is a map of the places that follow.
bool ElfFile::areRelocated(const ZElfTable<Addr> &relative)
{
    const auto isPlace = [this](Addr place) {
        const ZElfTable<Addr> content = from<Addr>(place, 1);
        return content && isRelocated(place, 0, *content.data);
    };
    Addr next = 0;
    for (Addr entry : relative) {
        if ((entry & 1) == 0) {
            if (!isPlace(entry))
                return false;
            next = entry + sizeof(Addr);
            continue;
        }
        for (Addr place = next; (entry >>= 1) != 0; place += sizeof(Addr)) {
            if ((entry & 1) != 0 && !isPlace(place))
                return false;
        }
        next += (AddrBits - 1) * sizeof(Addr);
    }
    return bool(relative);
}

bool ElfFile::relocations()
{
    if (sizeof(Addr) != 8)
        return true; // those machines have relocations of another kind
    if ((has(DT_RELA) && value(DT_RELAENT) != sizeof(Rela)) || (has(DT_JMPREL) && value(DT_PLTREL) != DT_RELA) ||
        (has(DT_RELR) && value(DT_RELRENT) != sizeof(Addr)))
        return false;
    if (has(DT_TEXTREL) || (value(DT_FLAGS) & DF_TEXTREL))
        m_relocatable = 0;
    m_startUp = {value(DT_INIT_ARRAY), value(DT_INIT_ARRAYSZ)};
    m_cleanUp = {value(DT_FINI_ARRAY), value(DT_FINI_ARRAYSZ)};
    const auto table = [this](Tag size, Tag address) { return from<Rela>(value(address), value(size) / sizeof(Rela)); };
    return (!has(DT_RELA) || areRelocated(table(DT_RELASZ, DT_RELA), value(DT_RELACOUNT))) &&
           (!has(DT_JMPREL) || areRelocated(table(DT_PLTRELSZ, DT_JMPREL), 0)) &&
           (!has(DT_RELR) || areRelocated(from<Addr>(value(DT_RELR), value(DT_RELRSZ) / sizeof(Addr)))) &&
           m_arrayEntries == (m_startUp.size + m_cleanUp.size) / sizeof(Addr);
}

} // namespace

QString zElfDamage(const QString &path)
{
#if !defined(Q_PROCESSOR_X86_64) && !defined(Q_PROCESSOR_ARM_64)
    return {}; // other machines keep other things in the same tables
#endif
    QFile file(path);
    qint64 size = file.open(QIODevice::ReadOnly) ? file.size() : 0;
    if (size == 0)
        return {}; // nothing is reported here; the dynamic linker will report it
    const uchar *data = file.map(0, size);
    QByteArray copy;
    if (!data) { // there is no room to map it
        copy = file.read(size);
        size = copy.size(); // less, if the file has become shorter, or is too large for an array
        data = reinterpret_cast<const uchar *>(copy.constData());
    }
    ElfFile elf(data, quint64(size));
    if (!elf.segments())
        return QStringLiteral("segments");
    if (!elf.dynamicSection())
        return QStringLiteral("dynamic section");
    if (!elf.strings())
        return QStringLiteral("names");
    if (!elf.versions())
        return QStringLiteral("versions");
    if (!elf.symbols())
        return QStringLiteral("symbols");
    if (!elf.functions())
        return QStringLiteral("start-up functions");
    if (!elf.relocations())
        return QStringLiteral("relocations");
    return {};
}
