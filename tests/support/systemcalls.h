// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * The calls to the system that can be made to fail. Whoever links systemcalls.cpp takes the system's place for all
 * libraries of the process, and hands on what does not fail.
 */
namespace SystemCalls {

/// Hears of each call before it is made, on the thread that makes it: the call's name, and the path that it is about,
/// or "". Answers the error with which it fails, or 0. The calls that it makes itself go on undisturbed.
using Judge = int (*)(const char *call, const char *path);

/// Null lets all calls go on, and waits until no thread is with the judge any more.
void setJudge(Judge judge);

} // namespace SystemCalls
