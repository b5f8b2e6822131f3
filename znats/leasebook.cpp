// SPDX-License-Identifier: Apache-2.0
#include "leasebook.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QVector>

namespace {

const QString holderKey = QStringLiteral("holder");
const QString hostKey = QStringLiteral("host");
const QString msecsKey = QStringLiteral("ms");
const QString slotKey = QStringLiteral("slot");

/// Keys have no other characters than these.
QByteArray keyOf(const QString &lease) { return lease.toUtf8().toPercentEncoding({}, {"._~"}, '='); }

/// What the client library says of its last failure on this thread: the broker's own words, if there are any.
QString wordsOf(natsStatus status)
{
    natsStatus last = NATS_OK;
    const QString words = QString::fromUtf8(nats_GetLastError(&last));
    // Before them it says where in its own code that was, in parentheses.
    const QString told = words.startsWith(QLatin1Char('(')) ? words.section(QStringLiteral("): "), 1) : words;
    return last == status && !told.isEmpty() ? told : QString::fromUtf8(natsStatus_GetText(status));
}

} // namespace

LeaseBook::LeaseBook(const NatsSettings &settings, Connection &connection, const QString &lease, int msecs)
    : m_settings(settings), m_connection(connection), m_key(keyOf(lease)), m_msecs(msecs)
{}

LeaseBook::~LeaseBook() { close(); }

natsStatus LeaseBook::read(LeaseRecord *record, quint64 *revision)
{
    natsStatus status = open();
    if (status != NATS_OK)
        return status;
    kvEntry *entry = nullptr;
    status = kvStore_Get(&entry, m_store, m_key);
    if (status != NATS_OK) {
        close(); // it may not be there any more
        return status == NATS_NOT_FOUND ? status : failed(status);
    }
    const QByteArray text(static_cast<const char *>(kvEntry_Value(entry)), kvEntry_ValueLen(entry));
    const QJsonObject object = QJsonDocument::fromJson(text).object();
    *record = {object.value(holderKey).toString(), object.value(hostKey).toString(), object.value(msecsKey).toInt(),
               object.value(slotKey).toString(QStringLiteral("-1")).toLongLong()};
    *revision = kvEntry_Revision(entry);
    kvEntry_Destroy(entry);
    return NATS_OK;
}

natsStatus LeaseBook::write(const LeaseRecord &record, quint64 *revision)
{
    const natsStatus status = open();
    if (status != NATS_OK)
        return status;
    const QByteArray text = QJsonDocument(QJsonObject{{holderKey, record.holder},
                                                      {hostKey, record.host},
                                                      {msecsKey, record.msecs},
                                                      {slotKey, QString::number(record.slot)}})
                                .toJson(QJsonDocument::Compact);
    uint64_t written = 0;
    const natsStatus result = *revision == 0 ? kvStore_Create(&written, m_store, m_key, text, text.size())
                                             : kvStore_Update(&written, m_store, m_key, text, text.size(), *revision);
    if (result != NATS_OK)
        return wordsOf(result).contains(QLatin1String("wrong last sequence")) ? NATS_MISMATCH : failed(result);
    *revision = written;
    return NATS_OK;
}

natsStatus LeaseBook::open()
{
    const std::shared_ptr<Link> link = m_connection.link();
    if (!link || !m_connection.isConnected())
        return failed(NATS_CONNECTION_DISCONNECTED);
    if (m_store && m_link == link)
        return NATS_OK;
    close();
    m_link = link;
    jsOptions options;
    jsOptions_Init(&options);
    options.Wait = m_msecs;
    natsStatus status = natsConnection_JetStream(&m_stream, link->handle(), &options);
    if (status != NATS_OK)
        return failed(status);
    const QByteArray bucket = m_settings.leases.bucket.toUtf8();
    status = js_KeyValue(&m_store, m_stream, bucket);
    if (status != NATS_NOT_FOUND)
        return status == NATS_OK ? status : failed(status);
    kvConfig config;
    kvConfig_Init(&config);
    config.Bucket = bucket;
    config.History = 1;
    config.Replicas = m_settings.leases.replicas;
    config.StorageType = m_settings.leases.storage == QLatin1String("memory") ? js_MemoryStorage : js_FileStorage;
    status = js_CreateKeyValue(&m_store, m_stream, &config);
    if (status == NATS_OK)
        return status;
    status = failed(status);
    return js_KeyValue(&m_store, m_stream, bucket) == NATS_OK ? NATS_OK : status; // another process may be first
}

/// Notes why, at once: the client library keeps the words until it fails the next time.
natsStatus LeaseBook::failed(natsStatus status)
{
    static const QVector<natsStatus> lost{NATS_CONNECTION_DISCONNECTED, NATS_CONNECTION_CLOSED, NATS_IO_ERROR};
    if (lost.contains(status) || !m_connection.isConnected())
        m_problem.clear();
    else if (status == NATS_NO_RESPONDERS)
        m_problem = QStringLiteral("JetStream is off at the broker, or does not answer");
    else if (status == NATS_TIMEOUT)
        m_problem = QStringLiteral("no answer in time: the broker hangs, or its permissions forbid to ask");
    else
        m_problem = wordsOf(status);
    return status == NATS_NOT_FOUND ? NATS_ERR : status; // that would say that nobody ever had the lease
}

void LeaseBook::close()
{
    kvStore_Destroy(m_store);
    jsCtx_Destroy(m_stream);
    m_store = nullptr;
    m_stream = nullptr;
    m_link.reset();
}
