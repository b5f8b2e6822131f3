// SPDX-License-Identifier: Apache-2.0
#include "tryout.h"

#include "account.h"
#include "confinement.h"
#include "trial.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace {

const char Option[] = "--try-out"; // FILE PLUGIN SECONDS

/// Good as well where nobody wants to know any more. What has been found out is added to `facts`.
Verdict watch(const QString &file, const QString &plugin, int seconds, QStringList *facts)
{
    const Confinement confinement(QFileInfo(file).path(), seconds);
    if (!confinement.error().isEmpty())
        return notTriedOut(confinement.error());
    if (access(QFile::encodeName(file).constData(), R_OK) != 0)
        return notTriedOut(QStringLiteral("the owner of its folder cannot read it: %1").arg(qt_error_string(errno)));
    if (confinement.isForNobody())
        return {};
    const auto over = [&](QString (Trial::*load)() const) {
        const auto work = [&](int answer) { return (Trial{file, plugin, confinement.scratch(), answer}.*load)(); };
        return confinement.run(work, seconds, facts);
    };
    const Verdict verdict = over(&Trial::loadAlone);
    return verdict.isGood() ? over(&Trial::loadInHost) : verdict;
}

} // namespace

TryOut tryOut(const QString &file, const QString &plugin, int seconds)
{
    QStringList facts;
    const Verdict verdict =
        askAnotherProcess({QLatin1String(Option), file, plugin, QString::number(seconds)}, seconds, &facts);
    return {verdict, Description::fromLines(facts)};
}

bool isTryOut(int argc, char *argv[]) { return argc == 5 && std::strcmp(argv[1], Option) == 0; }

int watchTryOut(char *argv[])
{
    const QString file = QFile::decodeName(argv[2]);
    const QString plugin = QFile::decodeName(argv[3]);
    QStringList facts;
    const Verdict verdict = watch(file, plugin, QByteArray(argv[4]).toInt(), &facts);
    Account::tell(STDOUT_FILENO, facts);
    Account::judge(STDOUT_FILENO, verdict);
    return 0;
}
