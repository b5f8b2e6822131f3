// SPDX-License-Identifier: Apache-2.0
#include "faults.h"

#include "systemcalls.h"

#include <QFile>
#include <QTest>

namespace {

Faults *current = nullptr;

} // namespace

Faults::Faults(Judge judge) : m_judge(std::move(judge))
{
    current = this;
    SystemCalls::setJudge(Faults::judge);
}

Faults::Faults(const char *call, int error, const QString &part)
    : Faults([name = QByteArray(call), error, part](const QByteArray &made, const QString &path) {
          return made == name && path.contains(part) ? error : 0;
      })
{
    m_mustHit = true;
}

Faults::~Faults()
{
    SystemCalls::setJudge(nullptr);
    current = nullptr;
    if (m_mustHit && m_hits == 0)
        QTest::qFail("no call has failed", __FILE__, __LINE__);
}

int Faults::judge(const char *call, const char *path)
{
    const int error = current->m_judge(call, QFile::decodeName(path));
    if (error != 0)
        ++current->m_hits;
    return error;
}
