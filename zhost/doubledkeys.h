// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QStringList>

/// The paths of the keys that an object in `json` has more than once, but for comments. The text is well-formed: a
/// parser has read it, and kept one value of each.
QStringList doubledKeys(const QByteArray &json);
