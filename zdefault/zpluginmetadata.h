// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

class QJsonObject;

/// Why a plugin with this metadata was built for other interfaces than these; empty if it was not, or does not say.
QString zInterfaceMismatch(const QJsonObject &metaData);
