// SPDX-License-Identifier: Apache-2.0
#include "servedcall.h"

namespace {

thread_local const ServedCall *innermost = nullptr;

} // namespace

ServedCall::ServedCall(int theHops, const QDeadlineTimer &theDeadline, Workers *theWorkers)
    : hops(theHops), deadline(theDeadline), workers(theWorkers), m_outer(innermost)
{
    innermost = this;
}

ServedCall::~ServedCall() { innermost = m_outer; }

const ServedCall *ServedCall::current() { return innermost; }
