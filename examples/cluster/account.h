// SPDX-License-Identifier: Apache-2.0
// A file to which lines are added, each with its words between tabs. What stands there outlives the process.
#pragma once

#include <QFile>
#include <QMutex>
#include <QStringList>

class Account
{
public:
    /// Without a name nothing is written.
    void open(const QString &name)
    {
        m_file.setFileName(name);
        if (!name.isEmpty())
            m_file.open(QIODevice::Append | QIODevice::Unbuffered); // each line at once
    }

    void note(const QStringList &words)
    {
        const QMutexLocker locker(&m_mutex);
        if (m_file.isOpen())
            m_file.write(words.join('\t').toUtf8() + '\n');
    }

private:
    QMutex m_mutex;
    QFile m_file;
};
