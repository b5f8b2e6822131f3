// SPDX-License-Identifier: Apache-2.0
#include "commands.h"
#include "hosts.h"
#include "options.h"
#include "output.h"

#include <QCoreApplication>

namespace {

/// Where the command line names none, there must be just one on this machine.
Search hostOf(const Options &options)
{
    if (!options.socket.isEmpty())
        return Search::at(options.socket);
    if (!options.configuration.isEmpty())
        return Search::by(options.configuration);
    if (!options.url.isEmpty())
        return Search::by(options.url, options.tokenFile);
    return Search::only();
}

} // namespace

int main(int argc, char *argv[])
{
    expectBrokenPipes();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("zctl"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ZCTL_VERSION));

    const Options options = Options::read(QCoreApplication::arguments());
    if (!options.error.isEmpty()) {
        complain(options.error + QStringLiteral("; see zctl --help"));
        return Unusable;
    }
    if (!options.text.isEmpty()) {
        put(options.text);
        return Done;
    }
    const Search search = hostOf(options);
    if (!search.error.isEmpty()) {
        complain(search.error);
        for (const QString &choice : search.choices)
            complain(choice);
        return Unusable;
    }
    const Client client(search.address);
    return options.command->run({options, client});
}
