// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QStringList>

/// The paths of the keys that an object in `json` has more than once, without comments. The text must be well-formed:
/// the parser accepts it, and keeps only one value of each key.
QStringList doubledKeys(const QByteArray &json);
