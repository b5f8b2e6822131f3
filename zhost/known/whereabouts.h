// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/**
 * Where the application's thread is, to be asked while it hangs. A thread that waits in the kernel is not woken up for
 * it: what a plugin waits for is not to end early because somebody has asked. One that computes is interrupted for a
 * moment.
 *
 * Thread: made on the application's; asked by any other.
 */
class Whereabouts
{
public:
    Whereabouts();

    /// Such as "/…/libsvc.2.so+0x2450, while loading svc.2"; empty if it is in no plugin, or does not say.
    static QString ask();
};
