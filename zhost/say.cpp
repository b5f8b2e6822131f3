// SPDX-License-Identifier: Apache-2.0
#include "say.h"

#include <cstdio>

void complain(const QString &text) { std::fprintf(stderr, "zhost: %s\n", text.toLocal8Bit().constData()); }

void print(const QString &text) { std::fprintf(stdout, "%s\n", text.toLocal8Bit().constData()); }
