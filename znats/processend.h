// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

/**
 * A look at what is bound, which takes regular expressions. These need variables of Qt, which go when the process ends
 * by `exit()`, while its other threads run on. So the end waits for those who look, for a while; who comes later may
 * not.
 */
class Look
{
public:
    Look();
    ~Look();
    bool isAllowed() const { return m_isAllowed; }

private:
    Q_DISABLE_COPY(Look)
    const bool m_isAllowed;
};
