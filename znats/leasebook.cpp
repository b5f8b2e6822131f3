// SPDX-License-Identifier: Apache-2.0
#include "leasebook.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

const QString holderKey = QStringLiteral("holder");
const QString hostKey = QStringLiteral("host");
const QString msecsKey = QStringLiteral("ms");
const QString slotKey = QStringLiteral("slot");

/// Keys have no other characters than these.
QByteArray keyOf(const QString &lease) { return lease.toUtf8().toPercentEncoding({}, {"._~"}, '='); }

} // namespace

LeaseBook::LeaseBook(const NatsSettings &settings, Connection &connection, const QString &lease, int msecs)
    : m_settings(settings), m_connection(connection), m_key(keyOf(lease)), m_msecs(msecs)
{}

LeaseBook::~LeaseBook() { close(); }

natsStatus LeaseBook::read(LeaseRecord *record, quint64 *revision)
{
    natsStatus status = open();
    kvEntry *entry = nullptr;
    if (status == NATS_OK)
        status = kvStore_Get(&entry, m_store, m_key);
    if (status != NATS_OK) {
        close(); // it may not be there any more
        return status;
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
    if (result == NATS_OK)
        *revision = written;
    return result;
}

natsStatus LeaseBook::open()
{
    const std::shared_ptr<Link> link = m_connection.link();
    if (!link || !m_connection.isConnected())
        return NATS_CONNECTION_DISCONNECTED;
    if (m_store && m_link == link)
        return NATS_OK;
    close();
    m_link = link;
    jsOptions options;
    jsOptions_Init(&options);
    options.Wait = m_msecs;
    natsStatus status = natsConnection_JetStream(&m_stream, link->handle(), &options);
    if (status != NATS_OK)
        return status;
    const QByteArray bucket = m_settings.leases.bucket.toUtf8();
    status = js_KeyValue(&m_store, m_stream, bucket);
    if (status != NATS_NOT_FOUND)
        return status;
    kvConfig config;
    kvConfig_Init(&config);
    config.Bucket = bucket;
    config.History = 1;
    config.Replicas = m_settings.leases.replicas;
    config.StorageType = m_settings.leases.storage == QLatin1String("memory") ? js_MemoryStorage : js_FileStorage;
    status = js_CreateKeyValue(&m_store, m_stream, &config);
    return status == NATS_OK ? status : js_KeyValue(&m_store, m_stream, bucket); // another process was first
}

void LeaseBook::close()
{
    kvStore_Destroy(m_store);
    jsCtx_Destroy(m_stream);
    m_store = nullptr;
    m_stream = nullptr;
    m_link.reset();
}
