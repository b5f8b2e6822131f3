// SPDX-License-Identifier: Apache-2.0
#include <zcodecalias.h>
#include <zobject.h>

/// Enters a codec's further names, which are constant data of the plugin.
class Codec : public ZObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)

public:
    Codec()
    {
        new ZCodecAlias("UTF-8", QByteArrayLiteral("test-plugin"),
                        {QByteArrayLiteral("test-plugin-2"), QByteArray::fromRawData("test-plugin-3", 13)});
    }
};

#include "codec.moc"
