// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

/// The parts of the name of a plugin's file: "libfoo.1.2.so" is the plugin "foo" in its version "1.2".
struct PluginName
{
    QString plugin;
    QString version; ///< Empty in a plain name.

    /// Null plugin if `file` is not the name of a plugin's file.
    static PluginName parse(const QString &file);
    static bool isVersion(const QString &text);

    QString file() const;

    /// Whether a loader takes both for one plugin. It ignores case for versions, but not for plain files.
    bool isSamePlugin(const PluginName &other) const;
    /// The newest of `files` that are of this plugin; null plugin if there is none.
    PluginName newest(const QStringList &files) const;
    /// Whether this one is newer than all of `files`: their plain file is the oldest, and versions are compared as
    /// texts, which is how the loader sorts them.
    bool isNewest(const QStringList &files) const;
    /// The next name that is newer than all of `files`; without a version if there are none of this plugin. It stays
    /// short, even if there are many.
    PluginName next(const QStringList &files) const;
};
