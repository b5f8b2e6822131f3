// SPDX-License-Identifier: Apache-2.0
#include "attendance.h"

#include "commandline.h"
#include "configuration.h"
#include "host.h"
#include "stopsignals.h"

Attendance::Attendance(const CommandLine &commandLine, const Configuration &configuration,
                       const StopSignals &stopSignals)
    : m_configuration(configuration), m_probation(configuration), m_reload(commandLine.file, configuration)
{
    QObject::connect(&stopSignals, &StopSignals::received, &m_probation, &Probation::end);
}

void Attendance::attend(Host *host)
{
    m_probation.watch(host->bus());
    const InboxFolders folders{m_configuration.inbox(), m_configuration.folder(QStringLiteral("hot-deploy")),
                               m_configuration.folder(QStringLiteral("deployed"))};
    // Without all three nobody would take what is dropped.
    if (!folders.inbox.isEmpty() && !folders.hotDeploy.isEmpty() && !folders.deployed.isEmpty())
        m_inbox.emplace(folders, host->logger());
    m_serviceManager.emplace([host] { return host->status(); }).ready();
    m_reload.begin(host, &*m_serviceManager);
}

void Attendance::end()
{
    if (!m_serviceManager) // it has not come as far
        return;
    m_reload.end();
    m_serviceManager->stopping();
    m_inbox.reset();
}
