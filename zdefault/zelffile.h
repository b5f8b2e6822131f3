// SPDX-License-Identifier: Apache-2.0
#pragma once

class QString;

/// What is wrong with the shared library at `path`, in words; empty if nothing is.
///
/// The dynamic linker trusts what it loads: a damaged table ends the process. So what it would follow is followed here
/// first: segments, dynamic section, symbols, versions, relocations. Damage to code and data does not show.
QString zElfDamage(const QString &path);
