// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "finding.h"

struct Configuration;

/// Says what is wrong with the configuration, which `file` holds, and answers how much so at the worst.
Finding::Weight tellFindings(const QString &file, const Configuration &configuration);
