// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Opens /dev/null for each of the descriptors 0 to 2 that is closed. Else the next file that is opened could become
/// stderr, and lines would be written into it. Call it before anything is opened.
void openStandardStreams();

/// After this call, a write to a pipe that nobody reads any more fails, instead of ending the process.
void outliveReaders();
