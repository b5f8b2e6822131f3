// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

/// Writes `text` to stdout, and ends its last line. If nobody reads stdout any more, the process ends silently, as by
/// SIGPIPE; if it cannot be written for another reason, the process ends with a message.
void put(const QString &text);
/// The same for bytes that end their lines themselves.
void putBytes(const QByteArray &bytes);

/// Writes the line "zctl: TEXT" to stderr, as `printable`.
void complain(const QString &text);

/// Ends the process silently when nobody reads stdout any more, even if there is nothing to write.
void endWithReader();

/// After this call a write to a closed pipe or socket fails, instead of ending the process: when a host goes away, that
/// has to be reported. Call it first.
void expectBrokenPipes();
