// SPDX-License-Identifier: Apache-2.0
// The real interfaces, and what their operations hand around.
#pragma once

#include <zconfig.h>
#include <zcontext.h>
#include <zdbus.h>
#include <zdbusasync.h>
#include <zdbuslayer.h>
#include <zdbusoutcome.h>
#include <zdbusreach.h>
#include <zdbussubscriber.h>
#include <zdelegate.h>
#include <zemitter.h>
#include <zjobpoolset.h>
#include <zlease.h>
#include <zloader.h>
#include <zlogger.h>
#include <zschedule.h>
#include <zscheduler.h>
#include <ztempfile.h>
#include <zthreadpoolset.h>

#include <QTemporaryFile>

#include "operations.h"
