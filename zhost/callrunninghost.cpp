// SPDX-License-Identifier: Apache-2.0
#include "callrunninghost.h"

#include "commandline.h"
#include "exitcode.h"
#include "say.h"

#include <QJsonDocument>

#include <client.h>
#include <doorlimits.h>
#include <hosts.h>

std::optional<int> callRunningHost(const CommandLine &commandLine)
{
    const Search search = Search::by(commandLine.file);
    if (!search.error.isEmpty())
        return {};
    const Answer answer =
        Client(search.address).call(commandLine.url.toString(), commandLine.request, Limits::MaxDeadlineMs);
    if (answer.end == Answer::End::Nobody) // the host has ended meanwhile
        return {};
    if (answer.end == Answer::End::No) {
        complain(answer.error);
        return Wrong;
    }
    printJson(answer.json.object().value(QStringLiteral("out")).toObject());
    return Success;
}
