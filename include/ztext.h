// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QString>

/**
 * A text that is compared without regard to case: a key for `QMap` and the like.
 *
 * Ownership: a value.
 * Thread:    any, as any value.
 * Failure:   none.
 */
class ZDEFAULT_EXPORT ZText
{
public:
    ZText(QString text);

    bool operator==(const ZText &other) const;
    bool operator<(const ZText &other) const;

private:
    QString m_text;
};
