// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "finding.h"

#include <QVector>

struct Configuration;

/// What keeps plugins from being dropped and loaded, though the section "loader" reads well: its folders, and the names
/// of plugins that are not there.
QVector<Finding> checkFolders(const Configuration &configuration);
