// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/**
 * After this call, a crash writes one line to stderr before it ends the process as it would have done anyway:
 * "zhost: ended by Segmentation fault in /…/libsvc.2.so+0x2450, while loading svc.2".
 *
 * The file is the one in which the processor was. If that is not a plugin, it is the plugin that is nearest on the
 * stack. That may be wrong, since the stack may still have a word of a call that has returned.
 *
 * If the stack of the thread that calls this overflows, that is reported; on other threads an overflow ends the process
 * without a line. A handler that somebody else has installed stays.
 */
void sayWhatCrashes();
