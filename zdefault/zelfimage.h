// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QVector>
#include <QtGlobal>

#include <link.h>

/// Some entries of the file; never more than the file has.
template <class T>
struct ZElfTable
{
    const T *data = nullptr;
    quint64 count = 0;

    explicit operator bool() const { return data; }
    const T *at(quint64 index) const { return index < count ? data + index : nullptr; }
    const T *begin() const { return data; }
    const T *end() const { return data + count; }
};

/**
 * The content of a shared library's file, by its offset, and by the address that it would have in memory. Every answer
 * lies within the file, whatever is asked for.
 *
 * The tables of a file may lead to the same bytes again and again, so each step of a check has to be paid for. When no
 * steps are left, no segment is found any more, which ends every check.
 *
 * Ownership: keeps no copy of the content.
 * Thread:    the caller's.
 * Failure:   an empty table, or no segment.
 */
class ZElfImage
{
public:
    using Addr = ElfW(Addr);
    using Word = ElfW(Word);
    using Segment = ElfW(Phdr);

    static constexpr quint64 All = ~quint64(0);
    static constexpr quint64 StepsPerByte = 8;

    ZElfImage(const uchar *data, quint64 size) : m_data(data), m_size(size), m_stepsLeft(StepsPerByte * size) {}

    template <class T>
    ZElfTable<T> inFile(quint64 offset, quint64 count) const;
    /// At most up to the end of the segment.
    template <class T>
    ZElfTable<T> from(Addr address, quint64 count = All) const;

    /// Adds a segment that is loaded. False if it is not in the file, or lies before the end of the one before.
    bool add(const Segment &segment);
    /// The segment that has so many bytes at `address`, and these flags. Pays for itself.
    const Segment *segment(Addr address, quint64 size, Word flags) const;
    bool hasSegments() const { return !m_segments.isEmpty(); }

    /// Pays for so many steps. False, from then on, if there are not as many left.
    bool spend(quint64 steps) const;

private:
    const uchar *const m_data;
    const quint64 m_size;
    QVector<Segment> m_segments;
    mutable quint64 m_stepsLeft;
};

template <class T>
ZElfTable<T> ZElfImage::inFile(quint64 offset, quint64 count) const
{
    if (offset > m_size || count > (m_size - offset) / sizeof(T) || offset % alignof(T) != 0)
        return {};
    return {reinterpret_cast<const T *>(m_data + offset), count};
}

template <class T>
ZElfTable<T> ZElfImage::from(Addr address, quint64 count) const
{
    const Segment *in = segment(address, 0, PF_R);
    const quint64 skipped = in ? address - in->p_vaddr : 0;
    if (!in || skipped > in->p_filesz)
        return {};
    const quint64 rest = (in->p_filesz - skipped) / sizeof(T);
    if (count == All)
        count = rest;
    return count <= rest ? inFile<T>(in->p_offset + skipped, count) : ZElfTable<T>();
}
