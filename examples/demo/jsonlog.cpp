// SPDX-License-Identifier: Apache-2.0
// A logger that writes each line as a JSON object. Dropped into the hot-deploy folder, it becomes the ZLogger of all
// components, which do not notice. So does its next version, which also writes the time.
#include <zconfig.h>
#include <zdefaultlogger.h>
#include <zobject.h>
#include <zwiring.h>

#include <QDateTime>
#include <QHash>
#include <QJsonDocument>
#include <QLoggingCategory>

class JsonLog : public ZObject, public ZLogger
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_INTERFACES(ZLogger)
    Q_PROPERTY(ZConfig *zConfig READ getSetZConfig WRITE getSetZConfig)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    ZConfig *getSetZConfig(ZConfig *config = nullptr)
    {
        if (!config)
            return nullptr;
        const QJsonObject log = config->toJson0().value("logger").toObject().value("log").toObject();
        QHash<QString, int> categories;
        for (auto entry = log.begin(); entry != log.end(); ++entry) {
            if (!entry.key().startsWith('#') && entry.value().isDouble())
                categories.insert(entry.key(), entry.value().toInt());
        }
        // In the order of the hash, like the logger before: components know their category by its index already.
        m_names = categories.keys();
        m_masks = categories.values();
        return config;
    }

    // The last property: after this, others may call.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr) { return zAnnounce<ZLoggerDelegate>(this, emitter); }

    bool debug0() override { return category()->isDebugEnabled(); }
    bool info0() override { return category()->isInfoEnabled(); }
    bool warning0() override { return category()->isWarningEnabled(); }
    bool critical0() override { return category()->isCriticalEnabled(); }

    void debug0(const QString &text) override { qDebug("%s", line("debug", text).constData()); }
    void info0(const QString &text) override { qInfo("%s", line("info", text).constData()); }
    void warning0(const QString &text) override { qWarning("%s", line("warning", text).constData()); }
    void critical0(const QString &text) override { qCritical("%s", line("critical", text).constData()); }
    void fatal0(const QString &text) override { qFatal("%s", line("fatal", text).constData()); }

    int log0(const QString &name) override { return m_names.indexOf(name); }
    int log0(int index) override { return m_masks.value(index, 0); }
    void log0(int index, int kind, const QString &text) override
    {
        if (log0(index) != 0)
            qDebug("%s", line(m_names.at(index), text, kind).constData());
    }

private:
    static const QLoggingCategory *category() { return QLoggingCategory::defaultCategory(); }

    static QByteArray line(const QString &source, const QString &text, int kind = 0)
    {
        QJsonObject object{{"from", source}, {"text", text}};
        if (kind)
            object.insert("kind", kind);
#ifdef WITH_TIME
        object.insert("time", QDateTime::currentDateTime().toString(Qt::ISODateWithMs));
#endif
        return QJsonDocument(object).toJson(QJsonDocument::Compact);
    }

    QStringList m_names; // of the categories, by index
    QList<int> m_masks;
};

#include "jsonlog.moc"
