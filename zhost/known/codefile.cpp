// SPDX-License-Identifier: Apache-2.0
#include "codefile.h"

#include <QFile>

#include <zobject.h>

#include <dlfcn.h>
#include <link.h>

namespace {

const link_map *codeAt(const void *address)
{
    dl_find_object found;
    return _dl_find_object(const_cast<void *>(address), &found) == 0 ? found.dlfo_link_map : nullptr;
}

} // namespace

QString codeFile(const void *address)
{
    static const link_map *const library = codeAt(&ZObject::staticMetaObject);
    const link_map *const code = codeAt(address);
    return !code || code == library ? QString() : QFile::decodeName(code->l_name);
}
