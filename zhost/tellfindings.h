// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "finding.h"

struct Configuration;

/// Reports what is wrong with the configuration from `file`, and returns the weight of the worst finding.
Finding::Weight tellFindings(const QString &file, const Configuration &configuration);
