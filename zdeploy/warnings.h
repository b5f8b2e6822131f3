// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>

struct Description;

/// A sentence for each thing in a plugin that compiles and loads, but does nothing. It says what to write instead.
QStringList warningsOf(const Description &description);
