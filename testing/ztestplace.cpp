// SPDX-License-Identifier: Apache-2.0
#include "ztestplace.h"

#include <QTest>

void ZTestPlace::fail(const QString &text) const { QTest::qFail(qUtf8Printable(text), m_file, m_line); }
