// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "buscalls.h"

#include <QByteArray>

class Reports;

/// The figures of a host in the text format of Prometheus.
QByteArray metricsText(const Reports &reports, const BusCalls::Counts &calls);
