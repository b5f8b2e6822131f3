// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

/// The token in `file`, its first line; empty, with an `error`, if there is none, or somebody else could read it.
QByteArray readToken(const QString &file, QString *error);
