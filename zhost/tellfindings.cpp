// SPDX-License-Identifier: Apache-2.0
#include "tellfindings.h"

#include "configuration.h"
#include "say.h"

#include <algorithm>

Finding::Weight tellFindings(const QString &file, const Configuration &configuration)
{
    Finding::Weight worst = Finding::Note;
    const QVector<Finding> findings = configuration.findings();
    for (const Finding &finding : findings) {
        complain(QStringLiteral("%1: \"%2\": %3").arg(file, finding.path, finding.text));
        worst = std::max(worst, finding.weight);
    }
    return worst;
}
