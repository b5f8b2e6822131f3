// SPDX-License-Identifier: Apache-2.0
#include "eventstream.h"

void EventStream::feed(const QByteArray &bytes)
{
    m_rest += bytes;
    int begin = 0;
    for (int end; (end = m_rest.indexOf('\n', begin)) >= 0; begin = end + 1)
        take(m_rest.mid(begin, end - begin));
    m_rest.remove(0, begin);
}

/// Fields other than the data, and comments, which show that the host is there, tell nothing here.
void EventStream::take(const QByteArray &line)
{
    static const QByteArray field("data:");
    if (line.startsWith(field))
        m_data += line.mid(field.size()) + '\n';
    if (!line.trimmed().isEmpty() || m_data.isEmpty())
        return;
    m_receive(m_data.trimmed());
    m_data.clear();
}
