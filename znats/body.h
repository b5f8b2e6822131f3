// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QJsonObject>

#include <optional>

/// What a call carries, there and back, as bytes: {"in": {…}, "out": {…}}. What is null is missing.
struct Body
{
    std::optional<QJsonObject> in;
    std::optional<QJsonObject> out;

    QByteArray encode() const;
    /// Nothing if the bytes are not such an object. Other keys are not looked at.
    static std::optional<Body> decode(const QByteArray &bytes);
};
