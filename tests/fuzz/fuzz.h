// SPDX-License-Identifier: Apache-2.0
// What the fuzz targets have in common: an application, and a word for a promise.
#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

/// Ends the process, with a stack for the fuzzer to show, unless the promise is kept.
void promise(bool isKept, const char *what, const QString &detail = QString());

/// What the target does with one input.
void fuzz(const QByteArray &input);
