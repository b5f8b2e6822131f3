// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

#include <cxxabi.h>
#include <exception>
#include <utility>

/// Runs `deed`, which may run others' code, and returns what it threw, in words; null if it threw nothing.
template <class Deed>
QString zCaught(Deed &&deed)
{
    try {
        std::forward<Deed>(deed)();
        return {};
    } catch (const abi::__forced_unwind &) {
        throw; // the thread is being terminated
    } catch (const std::exception &exception) {
        const QString what = QString::fromLocal8Bit(exception.what());
        return what.isEmpty() ? QStringLiteral("an exception without a word") : what;
    } catch (...) {
        return QStringLiteral("an exception of an unknown type");
    }
}
