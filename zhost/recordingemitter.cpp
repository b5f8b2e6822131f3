// SPDX-License-Identifier: Apache-2.0
#include "recordingemitter.h"

#include "known/codefile.h"
#include "known/wiringbook.h"
#include "pluginfiles.h"
#include "warn.h"

#include <QFileInfo>
#include <QJsonObject>
#include <QMutexLocker>

#include <zobject.h>

namespace {

/// Why zdeploy would have refused the plugin at `path`, which is loaded all the same; null if it would not have, or the
/// file is gone.
QString mistakeIn(const QString &path)
{
    const QString identifier = metaDataOf(path).value(QStringLiteral("IID")).toString();
    return identifier.isEmpty() || identifier == QLatin1String(ZObject_iid)
               ? QString()
               : QStringLiteral("its identifier is \"%1\", not \"%2\": write Q_PLUGIN_METADATA(IID ZObject_iid)")
                     .arg(identifier, QLatin1String(ZObject_iid));
}

/// A sentence on what is missing; null if nothing is.
QString sentence(const WiringBook::Lack &lack)
{
    if (lack.properties.isEmpty())
        return {};
    const QString text =
        lack.properties.size() == 1
            ? QStringLiteral("nobody served %1 when it was loaded: its property \"%2\" was not written")
            : QStringLiteral("nobody served %1 when it was loaded: its properties \"%2\" were not written");
    return text.arg(lack.interfaces.join(QStringLiteral(", ")), lack.properties.join(QStringLiteral("\", \"")));
}

} // namespace

QObject *RecordingEmitter::inject0(QObject *object)
{
    // Asked before the injection: an object that is not a root is not held here, and may be destroyed when the
    // emitter's lock is released.
    const bool isToBeJudged = m_logger && isNewRoot(object);
    QObject *const result = ZOrderlyEmitter::inject0(object);
    if (isToBeJudged && result)
        judge(result);
    return result;
}

void RecordingEmitter::bound(int interfaceType, const QSharedPointer<QObject> &component)
{
    m_book->bound(interfaceType, component);
}

void RecordingEmitter::injected(QObject *object, const QMetaProperty &property, bool isGiven)
{
    m_book->injected(object, property, isGiven);
}

/// Whether `object` is the root of a plugin, and comes for the first time: it may be injected more than once.
bool RecordingEmitter::isNewRoot(QObject *object)
{
    if (!qobject_cast<ZObject *>(object) || classFile(*object).isEmpty())
        return false;
    const QMutexLocker locker(&m_mutex);
    m_roots.removeAll(nullptr);
    if (m_roots.contains(object))
        return false;
    m_roots.append(object);
    return true;
}

/// Warns of mistakes that the root's author does not see. An empty delegate is not one: a component may come later.
void RecordingEmitter::judge(QObject *root)
{
    const QString path = classFile(*root);
    for (const QString &text : {mistakeIn(path), sentence(m_book->lackOf(root))}) {
        if (!text.isNull())
            warn(*m_logger, QStringLiteral("%1: %2").arg(QFileInfo(path).fileName(), text));
    }
}
