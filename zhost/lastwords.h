// SPDX-License-Identifier: Apache-2.0
// What can be said, and written down, by a process that is about to end: a signal's handler may use all but what takes
// a `QString`.
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

/// Copies a path to where a signal's handler finds it; one that is too long leaves it empty.
void copyPath(char (&to)[PATH_MAX], const QString &path);

/// Adds ", while loading svc.2" where the calling thread loads a plugin.
void addLoading(FixedText *line);

/// Keeps two descriptors back, for a process that has used up all others: one to find out where it is, and one for
/// `noteEnd`.
void keepDescriptors();
/// Gives the first of them back.
void freeDescriptor();

/// Opens a note for writing, which is empty then. Follows no link, and waits for nobody. Negative where it fails.
int openNote(const char *path);

/// Where `noteEnd` writes; nowhere if that is empty.
void noteEndsAt(const QString &path);

/// Writes down what ends the process, for the next start: the path of the guilty file, which may be empty, the name of
/// what this thread is loading, and `text`, which ends its line. To be called once.
void noteEnd(const char *file, const char *text);
