// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Opens those of the descriptors 0 to 2 that are closed, on /dev/null: else the next file that is opened takes the
/// place of stderr, and is written lines into. To be called before anything is opened.
void openStandardStreams();

/// Has writes to a pipe that nobody reads any more fail, instead of ending the process.
void outliveReaders();
