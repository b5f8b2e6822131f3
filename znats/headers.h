// SPDX-License-Identifier: Apache-2.0
// The headers of requests and answers. Others than these are not looked at.
#pragma once

namespace Header {

constexpr const char *Url = "Z-Url";
constexpr const char *Hops = "Z-Hops";         ///< how many processes the call has come through, its sender included
constexpr const char *Left = "Z-Left";         ///< how many milliseconds its sender waits for the answer
constexpr const char *Deadline = "Z-Deadline"; ///< until when, by its sender's clock, in milliseconds since 1970
constexpr const char *Operation = "Z-Op";      ///< "find", if nothing is to be called
constexpr const char *Echo = "Z-Echo";         ///< each host that has answered that it was too late, and its clock then
constexpr const char *Process = "Z-Process";   ///< of a broadcast: who has sent it, and has called its own already
constexpr const char *Host = "Z-Host";         ///< who answers
constexpr const char *Clock = "Z-Clock";       ///< the answerer's clock, in milliseconds since 1970
constexpr const char *ErrorCode = "Nats-Service-Error-Code";
constexpr const char *Error = "Nats-Service-Error";

} // namespace Header
