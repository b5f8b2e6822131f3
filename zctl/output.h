// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

/// Writes `text` to stdout, and ends its last line. Where nobody reads that any more the process ends, silently, as one
/// does by SIGPIPE; where it cannot be written for another reason, with a sentence.
void put(const QString &text);
/// Likewise, what is bytes and ends its lines itself.
void putBytes(const QByteArray &bytes);

/// Writes the line "zctl: TEXT" to stderr, as `printable`.
void complain(const QString &text);

/// Has the process end, silently, when nobody reads stdout any more, though there is nothing to write to it.
void endWithReader();

/// Has writes to what nobody reads fail: a host that goes away is no reason to end silently. To be called first.
void expectBrokenPipes();
