// SPDX-License-Identifier: Apache-2.0
// For a process that is about to end: writes lines and notes. A signal handler may use all functions but those that
// take a `QString`.
#pragma once

#include <QString>

#include <climits>
#include <cstddef>
#include <cstdint>

/// A text of a limited length.
class FixedText
{
public:
    const char *data() const { return m_data; }
    void add(const char *text);
    void addHex(uintptr_t number);
    void writeTo(int descriptor) const;

private:
    char m_data[2 * PATH_MAX] = {};
    size_t m_size = 0;
};

/// Copies a path to a place that a signal handler can read. If the path is too long, the copy is empty.
void copyPath(char (&to)[PATH_MAX], const QString &path);

/// Adds ", while loading svc.2" if the calling thread loads a plugin.
void addLoading(FixedText *line);

/// Reserves two descriptors, for the case that the process has used up all others: one to find out where the process
/// is, and one for `noteEnd`.
void keepDescriptors();
/// Gives the first of them back.
void freeDescriptor();

/// Opens a note for writing, and empties it. Follows no link, and never waits. Negative if it fails.
int openNote(const char *path);

/// Sets the path of the note that `noteEnd` writes; none if that is empty.
void noteEndsAt(const QString &path);

/// Notes for the next start what ends the process: the path of the guilty file, which may be empty, the name of what
/// this thread is loading, and `text`, which ends its line. Call it once.
void noteEnd(const char *file, const char *text);
