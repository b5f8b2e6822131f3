// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "buscalls.h"

#include <QByteArray>

class QJsonObject;
class Reports;

/// The figures of a host in the text format of Prometheus. `bus` is that part of the report; empty if there is none.
QByteArray metricsText(const Reports &reports, const BusCalls::Counts &calls, const QJsonObject &bus);
