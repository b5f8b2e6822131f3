// SPDX-License-Identifier: Apache-2.0
#include <zobject.h>

#include <QObject>

#define PROPERTY(number) Q_PROPERTY(int property##number MEMBER m_number)
#define TEN(n)                                                                                                         \
    PROPERTY(n##0)                                                                                                     \
    PROPERTY(n##1)                                                                                                     \
    PROPERTY(n##2)                                                                                                     \
    PROPERTY(n##3)                                                                                                     \
    PROPERTY(n##4) PROPERTY(n##5) PROPERTY(n##6) PROPERTY(n##7) PROPERTY(n##8) PROPERTY(n##9)
#define HUNDRED(n) TEN(n##0) TEN(n##1) TEN(n##2) TEN(n##3) TEN(n##4) TEN(n##5) TEN(n##6) TEN(n##7) TEN(n##8) TEN(n##9)
#define THOUSAND                                                                                                       \
    HUNDRED(0) HUNDRED(1) HUNDRED(2) HUNDRED(3) HUNDRED(4) HUNDRED(5) HUNDRED(6) HUNDRED(7) HUNDRED(8) HUNDRED(9)

/// Has a thousand properties, and is no `ZObject`.
class CrowdedAndOfAnotherKindThanOurs : public QObject
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    THOUSAND

private:
    int m_number = 0;
};

#include "crowded.moc"
