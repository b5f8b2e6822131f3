// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QString>

/**
 * A text that ignores case when it is compared: a key for `QMap` and its like.
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
