// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "natshandles.h"

#include <QString>

struct NatsSettings;

/// How to connect to the brokers of `settings`; reads the files with secrets. Null if that is not possible: then
/// `problem` says why.
NatsOptions brokerOptions(const NatsSettings &settings, QString *problem);
