// SPDX-License-Identifier: Apache-2.0
#include "zelfimage.h"

bool ZElfImage::add(const Segment &segment)
{
    const Addr end = m_segments.isEmpty() ? 0 : m_segments.last().p_vaddr + m_segments.last().p_memsz;
    if (segment.p_vaddr < end || segment.p_memsz > All / 2 - segment.p_vaddr || segment.p_filesz > segment.p_memsz ||
        !inFile<char>(segment.p_offset, segment.p_filesz))
        return false;
    m_segments.append(segment);
    return true;
}

const ZElfImage::Segment *ZElfImage::segment(Addr address, quint64 size, Word flags) const
{
    for (const Segment &segment : m_segments) {
        if (!spend(1))
            break;
        const quint64 skipped = address - segment.p_vaddr; // huge when it lies before
        if ((segment.p_flags & flags) == flags && skipped <= segment.p_memsz && size <= segment.p_memsz - skipped)
            return &segment;
    }
    return nullptr;
}

bool ZElfImage::spend(quint64 steps) const
{
    const bool isEnough = steps <= m_stepsLeft;
    m_stepsLeft = isEnough ? m_stepsLeft - steps : 0;
    return isEnough;
}
