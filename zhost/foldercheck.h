// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "finding.h"

#include <QVector>

struct Configuration;

/// What keeps plugins from being dropped and loaded, even if the section "loader" is well-formed: mistakes about its
/// folders, and names of plugins that are not there.
QVector<Finding> checkFolders(const Configuration &configuration);
