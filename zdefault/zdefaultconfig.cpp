// SPDX-License-Identifier: Apache-2.0
#include "zdefaultconfig.h"

#include "ztypename.h"
#include "zwiring.h"

const char *zDefaultConfigTypeName() { return zTypeName<ZDefaultConfig>("ZDefaultConfig*"); }

const char *const ZDefaultConfig::TypeName = zDefaultConfigTypeName();

ZDefaultConfig::ZDefaultConfig(QJsonObject jsonObject) : m_jsonObject(std::move(jsonObject)) {}

QJsonObject ZDefaultConfig::toJson0() { return m_jsonObject; }

ZEmitter *ZDefaultConfig::getSetZEmitter(ZEmitter *emitter) { return zAnnounce<ZConfigDelegate>(this, emitter); }

ZConfigDelegate::ZConfigDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZConfig>(this); }

ZConfigDelegate::ZConfigDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZConfig>(this);
}

QJsonObject ZConfigDelegate::toJson0() { return forward(&ZConfig::toJson0, {}); }
