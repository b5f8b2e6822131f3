// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Has Qt's messages written to stderr by `writeLine`, each with its severity.
void installLogFormat();
