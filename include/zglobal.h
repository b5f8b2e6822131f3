// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#if defined(ZDEFAULT_LIBRARY)
#define ZDEFAULT_EXPORT Q_DECL_EXPORT
#else
#define ZDEFAULT_EXPORT Q_DECL_IMPORT
#endif
