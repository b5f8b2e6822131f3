// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

/// A temporary folder. Plugins are put into it as an operator would.
class Folder
{
public:
    Folder();

    QString path() const { return m_dir.path(); }
    QString filePath(const QString &name) const { return m_dir.filePath(name); }
    QStringList files() const; // by name

    /// Copies the test plugin `plugin` ("greeter", "greeter.2") here in one step, as "lib<plugin>.so" or as `file`.
    bool drop(const QString &plugin, const QString &file = QString()) const;
    /// Makes a file with this content.
    bool write(const QString &file, const QByteArray &content) const;

private:
    QTemporaryDir m_dir;
};

/// Where the build put the test plugin `plugin`.
QString pluginFile(const QString &plugin);

/// Whether the file at `path`, by its canonical name, is mapped into this process.
bool isMapped(const QString &path);

/// The files of test plugins that are mapped into this process: those from the build and from any `Folder`.
QStringList mappedPlugins();
