// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "natshandles.h"

#include <QString>
#include <QStringList>

struct NatsSettings;

/// How to connect to the brokers of `settings`, and to `further` ones of their cluster; reads the files with secrets.
/// Null if that is not possible: then `problem` says why.
NatsOptions brokerOptions(const NatsSettings &settings, const QStringList &further, QString *problem);
