// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zconfig.h"
#include "zlogger.h"
#include "zobject.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QVector>

#include <limits>
#include <optional>

/**
 * Reads the settings of one plugin: the object under the plugin's name in the section "plugins" of the configuration.
 *
 *     ZSettings settings(config, *this);
 *     m_file = settings.text("file");
 *     m_every = settings.number("every", 500, 1, 60000);
 *     m_mode = settings.oneOf("mode", {"fast", "safe"}, "safe");
 *     if (!settings.check(logger))
 *         return; // they have been told
 *
 * A setting that is asked for without a default is required. A key that nobody has asked for is an error as well, since
 * it is mostly misspelt; but a key that begins with # is a comment. So ask for all keys first, and for the errors then.
 *
 * Ownership: a value with a copy of the settings; copies share the errors, and which keys have been asked for.
 * Thread:    one at a time.
 * Failure:   a setting that is missing or wrong gives its default; without one an empty text, false, the number of the
 *            range that is closest to 0, or the first of the choices. It is an error.
 */
class ZDEFAULT_EXPORT ZSettings
{
public:
    /// The settings of the plugin whose root is `root`. Not in the root's constructor: the plugin has to be loaded. If
    /// `config` is null, all settings are missing.
    ZSettings(ZConfig *config, const ZObject &root);
    /// The same for settings that the root was given: see `ZConfigured`.
    ZSettings(const QJsonObject &settings, const ZObject &root);
    /// The settings of the plugin called `name`, for a caller that is not a plugin.
    ZSettings(ZConfig *config, const QString &name);

    /// A text that is required must not be empty.
    QString text(const QString &key, const std::optional<QString> &otherwise = {}) const;
    QString oneOf(const QString &key, const QStringList &choices, const std::optional<QString> &otherwise = {}) const;
    bool flag(const QString &key, std::optional<bool> otherwise = {}) const;
    /// A whole number.
    int number(const QString &key, std::optional<int> otherwise = {}, int least = std::numeric_limits<int>::min(),
               int most = std::numeric_limits<int>::max()) const;
    double real(const QString &key, std::optional<double> otherwise = {},
                double least = std::numeric_limits<double>::lowest(),
                double most = std::numeric_limits<double>::max()) const;
    QStringList texts(const QString &key, const std::optional<QStringList> &otherwise = {}) const;
    /// The settings in the object under `key`; their errors are added to these. A missing object is taken as an empty
    /// one.
    ZSettings object(const QString &key) const;
    /// The same for each object in an array.
    QVector<ZSettings> objects(const QString &key) const;
    /// A value of any type; undefined if it is missing, which is no error.
    QJsonValue value(const QString &key) const;

    /// All errors, each with its path: "plugins.recorder.every: must be a whole number from 1 to 60000".
    QStringList errors() const;
    /// Logs the errors as warnings. True if there are none.
    bool check(ZLogger *logger) const;

private:
    struct Part;
    explicit ZSettings(const QSharedPointer<Part> &part);

    QSharedPointer<Part> d;
};
