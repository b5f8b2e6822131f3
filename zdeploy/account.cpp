// SPDX-License-Identifier: Apache-2.0
#include "account.h"

#include "printable.h"

#include <unistd.h>

namespace {

constexpr int LongestText = 1000; // a pipe has room for it, whoever reads
constexpr int MostFacts = 30000;  // bytes: room is left for the verdict
const QLatin1Char VerdictMark('=');
const QLatin1Char HindranceMark('!');
const QLatin1Char FactMark('+');

/// Answers how long the line is.
int writeLine(int descriptor, const QString &text)
{
    const QByteArray line = printable(text.left(LongestText)).toUtf8() + '\n';
    if (write(descriptor, line.constData(), static_cast<size_t>(line.size())) < 0) {
    } // nobody listens any more
    return line.size();
}

} // namespace

Account Account::read(const QByteArray &text)
{
    Account account;
    const QStringList lines = QString::fromUtf8(text).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : lines) {
        if (line.startsWith(VerdictMark))
            account.verdict = Verdict{line.mid(1)};
        else if (line.startsWith(HindranceMark))
            account.verdict = Verdict::hindrance(line.mid(1));
        else if (line.startsWith(FactMark))
            account.facts.append(line.mid(1));
        else
            account.doing = line;
    }
    return account;
}

void Account::begin(int descriptor, const QString &doing) { writeLine(descriptor, doing); }

void Account::tell(int descriptor, const QStringList &facts)
{
    int room = MostFacts;
    for (const QString &fact : facts) {
        if (room > 0)
            room -= writeLine(descriptor, FactMark + fact);
    }
}

void Account::judge(int descriptor, const Verdict &verdict)
{
    writeLine(descriptor, (verdict.isItsFault ? VerdictMark : HindranceMark) + verdict.text);
}
