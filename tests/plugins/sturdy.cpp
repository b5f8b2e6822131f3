// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>

#include <QHash>
#include <QRegularExpression>

#include <stdexcept>

namespace {

QHash<QString, int> counts{{QStringLiteral("one"), 1}}; // built when the file is loaded
thread_local int calls = 0;
const char *const words[] = {"zero", "one", "two"}; // constant, once it is relocated

} // namespace

/// Has one of each kind of thing that a plugin file may hold for the dynamic linker to read.
class Sturdy : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Sturdy()
    {
        try {
            count(QString::fromLatin1(words[++calls]));
        } catch (const std::runtime_error &error) {
            setObjectName(QString::fromLocal8Bit(error.what()));
        }
    }

private:
    static void count(const QString &word)
    {
        if (QRegularExpression(QStringLiteral("^o")).match(word).hasMatch() && counts.value(word) == 1)
            throw std::runtime_error("counted");
    }
};

#include "sturdy.moc"
