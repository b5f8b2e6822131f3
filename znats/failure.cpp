// SPDX-License-Identifier: Apache-2.0
#include "failure.h"

namespace {

/// Empty for a code of a later version than this one, or of nobody.
QString reasonOf(int code)
{
    switch (code) {
    case Failure::None:
        break;
    case Failure::NotJson:
        return QStringLiteral("not JSON");
    case Failure::Denied:
        return QStringLiteral("denied");
    case Failure::NotServed:
        return QStringLiteral("not served");
    case Failure::Refused:
        return QStringLiteral("refused");
    case Failure::TooLate:
        return QStringLiteral("too late");
    case Failure::Gone:
        return QStringLiteral("gone");
    case Failure::TooLarge:
        return QStringLiteral("too large");
    case Failure::Busy:
        return QStringLiteral("busy");
    case Failure::Lost:
        return QStringLiteral("connection lost");
    case Failure::Thrown:
        return QStringLiteral("thrown");
    case Failure::Unreadable:
        return QStringLiteral("answer is not JSON");
    case Failure::Nobody:
        return QStringLiteral("nobody");
    case Failure::NoAnswer:
        return QStringLiteral("no answer in time");
    case Failure::NotConnected:
        return QStringLiteral("not connected");
    case Failure::Loop:
        return QStringLiteral("loop");
    }
    return {};
}

} // namespace

Failure::Failure(Code failure) : code(failure), reason(reasonOf(failure)), called(calledBy(failure)) {}

QString Failure::kind() const
{
    const QString known = reasonOf(code);
    return known.isEmpty() ? QStringLiteral("other") : known;
}

Failure::Called Failure::calledBy(int code)
{
    switch (code) {
    case None:
    case Refused:
    case Thrown:
    case Unreadable:
        return Yes;
    case Lost:
    case NoAnswer:
        return Unknown;
    case NotJson:
    case Denied:
    case NotServed:
    case TooLate:
    case Gone:
    case TooLarge:
    case Busy:
    case Nobody:
    case NotConnected:
    case Loop:
        return No;
    default: // of a later version than this one
        return Unknown;
    }
}
