// SPDX-License-Identifier: Apache-2.0
#include "zservices.h"

ZServices::ZServices(QObject *parent) : QObject(parent) {}

ZServices::~ZServices() = default;
