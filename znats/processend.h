// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Whether the process is ending by `exit()`, while its other threads run on. Qt's own variables may be gone then,
/// which regular expressions need.
bool isProcessEnding();
