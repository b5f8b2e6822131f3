// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

class QJsonObject;

/// A message if a plugin with this metadata was built for another version of the interfaces; empty if it was built for
/// this one, or does not say.
QString zInterfaceMismatch(const QJsonObject &metaData);
