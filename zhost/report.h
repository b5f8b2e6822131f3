// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>

class Services;
class Timetable;

/// What an operator wants to know of the running process: what is wired, and what is stuck.
QJsonObject report(const Services &services, const Timetable &timetable);
