// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "finding.h"

#include <QVector>

struct Configuration;

/// What is wrong with the settings of plugins, by the schemas beside their files: "libfoo.schema.json" is for all
/// versions of "foo".
QVector<Finding> checkSettings(const Configuration &configuration);
