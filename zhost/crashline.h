// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/**
 * From here on, a signal that tells of a crash writes one line to stderr before it ends the process as it would have:
 * "zhost: ended by Segmentation fault in /…/libsvc.2.so+0x2450, while loading svc.2".
 *
 * The file is the one in which the processor was. If that is no plugin, it is the plugin nearest on the stack, of which
 * a word may have been left by a call that has returned: a good guess, but a guess.
 *
 * A stack that has overflowed is told of on the thread that calls this, and ends the process without a word on others.
 * A handler that somebody else has installed stays.
 */
void sayWhatCrashes();
