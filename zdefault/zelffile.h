// SPDX-License-Identifier: Apache-2.0
#pragma once

class QString;

/// What is wrong with the shared library at `path`, in words; empty if nothing is.
///
/// The dynamic linker trusts what it loads: a damaged table ends the process. So what it would follow is followed here
/// first: segments, dynamic section, symbols, versions, relocations. Damage to code and data does not show.
///
/// The work is bounded by the size of the file: eight steps for each of its bytes, where a step is a look at one
/// entry of a table, or at one byte of a name. Tables that lead to the same bytes more often than that are damaged; no
/// linker makes them.
QString zElfDamage(const QString &path);
