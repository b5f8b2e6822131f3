// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

class tst_Config : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
};

QTEST_GUILESS_MAIN(tst_Config)

#include "tst_config.moc"
