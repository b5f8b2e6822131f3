// SPDX-License-Identifier: Apache-2.0
#include "zdbuslayers.h"

namespace {

constexpr int MostLayers = 64; // whoever finds more of them is led in a circle

} // namespace

QString ZDbusLayerDelegate::layer0() { return call(&ZDbusLayer::layer0, {}); }

bool ZDbusLayerDelegate::next0(QSharedPointer<ZReference> &next) { return call(&ZDbusLayer::next0, false, next); }

bool ZDbusLayerDelegate::setNext0(const QSharedPointer<ZReference> &next)
{
    return call(&ZDbusLayer::setNext0, false, next);
}

QVector<QSharedPointer<ZReference>> zDbusLayers(ZDbus *bus)
{
    QVector<QSharedPointer<ZReference>> layers;
    auto *const delegate = dynamic_cast<ZDelegate *>(bus);
    QSharedPointer<ZReference> reference = delegate ? *delegate : QSharedPointer<ZReference>();
    while (layers.size() <= MostLayers && reference && !reference->isNull()) {
        layers.append(reference);
        ZDbusLayerDelegate layer(nullptr);
        layer.replace(reference);
        QSharedPointer<ZReference> next;
        if (!layer.next0(next)) // it is no layer
            return layers;
        reference = std::move(next);
    }
    return {};
}
