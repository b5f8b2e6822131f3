// SPDX-License-Identifier: Apache-2.0
#include "attendance.h"

#include "commandline.h"
#include "configuration.h"
#include "host.h"
#include "known/known.h"
#include "known/loadbook.h"
#include "say.h"
#include "stopsignals.h"

#include <QCoreApplication>

Attendance::Attendance(const CommandLine &commandLine, const Configuration &configuration,
                       const StopSignals &stopSignals, Known *known)
    : m_configuration(configuration), m_known(known), m_probation(configuration, &known->history),
      m_reload(commandLine.file, configuration)
{
    QObject::connect(&stopSignals, &StopSignals::received, &m_probation, &Probation::end);
    // Plugins hear of it, too, and may take their time.
    QObject::connect(qApp, &QCoreApplication::aboutToQuit, &m_probation, [known] { known->state = Known::Stopping; });
    known->setConfiguration(configuration.object);
    LoadBook::get().listen(&known->history);
    const DoorSettings settings = DoorSettings::read(configuration.object);
    if (!settings.isOn)
        return;
    m_door.emplace(settings, known);
    if (m_door->isTaken())
        m_refusal = QStringLiteral("this host runs already: %1").arg(m_door->error());
    else if (!m_door->error().isNull())
        complain(m_door->error());
    known->setPlaces(m_door->places());
}

Attendance::~Attendance() { LoadBook::get().forgetHistory(); }

bool Attendance::begin()
{
    if (m_door && !m_door->open()) {
        complain(QStringLiteral("the door cannot be opened: no room for one more thread"));
        m_door.reset(); // else clients would connect, and get no answer
    }
    return m_probation.begin();
}

void Attendance::attend(Host *host)
{
    m_known->state = Known::Running;
    if (m_door)
        m_door->enter(host);
    m_probation.watch(host->localBus());
    const InboxFolders folders{m_configuration.inbox(), m_configuration.folder(QStringLiteral("hot-deploy")),
                               m_configuration.folder(QStringLiteral("deployed"))};
    // Without all three folders nothing that is dropped would be taken.
    if (!folders.inbox.isEmpty() && !folders.hotDeploy.isEmpty() && !folders.deployed.isEmpty())
        m_inbox.emplace(folders, host->logger(), &m_known->history);
    m_serviceManager.emplace([host] { return host->status(); }).ready();
    m_reload.begin(host, &*m_serviceManager);
}

void Attendance::end()
{
    if (!m_serviceManager) // the start has not come as far
        return;
    m_reload.end();
    m_serviceManager->stopping();
    m_inbox.reset();
}

QStringList Attendance::hanging()
{
    QStringList names = m_probation.hanging();
    if (m_door)
        names += m_door->leave();
    return names;
}
