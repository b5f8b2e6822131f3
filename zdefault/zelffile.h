// SPDX-License-Identifier: Apache-2.0
#pragma once

class QString;

/// What is wrong with the shared library at `path`, in words; empty if nothing is.
///
/// The dynamic linker trusts what it loads: a damaged table can crash the process. So everything that the linker would
/// follow is checked here first: segments, dynamic section, symbols, versions, relocations. Damage to code and data is
/// not found.
///
/// The work is limited by the size of the file: eight steps for each of its bytes. A step is a look at one entry of a
/// table, or at one byte of a name. Tables that lead to the same bytes more often than that count as damaged; no linker
/// makes such tables.
QString zElfDamage(const QString &path);
