// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Makes `writeLine` write Qt's messages to stderr, each with its severity.
void installLogFormat();
