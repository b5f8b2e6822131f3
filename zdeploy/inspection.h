// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// What is wrong with the plugin `file`, as far as can be seen without running its code. Empty if nothing is.
QString inspect(const QString &file);
/// The same, and what is wrong with its name.
QString inspectNamed(const QString &file);
