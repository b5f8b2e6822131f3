// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/// What is wrong with the plugin `file` by what it says of itself; none of its code runs. Empty if nothing is.
QString inspect(const QString &file);
