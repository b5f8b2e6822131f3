// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zdefaultloader.h>

/// A loader that does not load a file which anybody but root and the user who runs this may change. Such a file is
/// renamed, so that it is not found, and a warning says why. The other versions of the plugin are loaded.
class StrictLoader : public ZDefaultLoader
{
    Q_OBJECT

public:
    QSharedPointer<ZLibrary> load0(QString name) override;

private:
    bool putAside(const QString &path, const QString &reason);
};
