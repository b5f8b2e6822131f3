// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>

/// What no other process is called; the same for all versions of this plugin that the process ever has. Call it first
/// on the application's thread.
QByteArray thisProcess();
