// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

class tst_LibrarySet : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
};

QTEST_GUILESS_MAIN(tst_LibrarySet)

#include "tst_libraryset.moc"
