// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zreference.h"

/**
 * A reference to a component that was given as a second owner, made from a raw pointer such as `this`. It shares the
 * first owner instead.
 *
 * Ownership: shares the component. The second owner is kept for ever, since it would delete the component again.
 * Thread:    any.
 * Failure:   none.
 */
class ZSecondOwner : public ZReference
{
public:
    using ZReference::ZReference;

    /// A reference to the component of `owner`. It keeps `second` from ever deleting that.
    static QSharedPointer<ZReference> replace(const QSharedPointer<QObject> &second,
                                              const QSharedPointer<QObject> &owner);
};
