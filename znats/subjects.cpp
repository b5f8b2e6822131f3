// SPDX-License-Identifier: Apache-2.0
#include "subjects.h"

#include <QList>
#include <QStringList>

namespace {

// A broker refuses lines of over 4096 bytes. Such a line also has the subject of the answer, and the domain.
constexpr int MostBytes = 2048;

const char Bare[] = "_"; // no piece is escaped to it
const char Empty[] = "%";
const char Hex[] = "0123456789abcdef";

bool isPlain(char byte)
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') || byte == '-';
}

QByteArray escaped(const QString &piece)
{
    if (piece.isEmpty())
        return Empty;
    QByteArray result;
    const QByteArray bytes = piece.toUtf8();
    for (const char byte : bytes) {
        if (isPlain(byte)) {
            result += byte;
        } else {
            result += '%';
            result += Hex[static_cast<unsigned char>(byte) >> 4];
            result += Hex[static_cast<unsigned char>(byte) & 15];
        }
    }
    return result;
}

/// False if nothing is escaped to `token`.
bool unescape(const QByteArray &token, QString *piece)
{
    const QByteArray bytes = token == Empty ? QByteArray() : QByteArray::fromPercentEncoding(token);
    *piece = QString::fromUtf8(bytes.constData(), bytes.size()); // with a size, it does not end at a NUL
    return escaped(*piece) == token;
}

QByteArray bounded(const QByteArray &place) { return place.size() <= MostBytes ? place : QByteArray(); }

} // namespace

Subjects::Subjects(const QString &domain) : m_prefix("z1." + escaped(domain) + '.') {}

QByteArray Subjects::placeOf(const QUrl &url)
{
    const QString path = url.path(QUrl::FullyDecoded);
    if (path.isEmpty())
        return barePlaceOf(url);
    const QString host = url.host(QUrl::FullyDecoded);
    if (host.isEmpty())
        return {};
    QByteArray place = escaped(host);
    const QStringList pieces = path.mid(1).split(QLatin1Char('/'));
    for (const QString &piece : pieces)
        place += '.' + escaped(piece);
    return bounded(place);
}

QByteArray Subjects::barePlaceOf(const QUrl &url)
{
    const QString host = url.host(QUrl::FullyDecoded);
    return host.isEmpty() ? QByteArray() : bounded(escaped(host) + '.' + Bare);
}

QUrl Subjects::urlAt(const QByteArray &place)
{
    QList<QByteArray> tokens = place.split('.');
    QString host;
    if (tokens.size() < 2 || !unescape(tokens.takeFirst(), &host) || host.isEmpty())
        return {};
    QString path;
    if (tokens != QList<QByteArray>{Bare}) {
        for (const QByteArray &token : qAsConst(tokens)) {
            QString piece;
            if (!unescape(token, &piece))
                return {};
            path += QLatin1Char('/') + piece;
        }
    }
    QUrl url;
    url.setHost(host, QUrl::DecodedMode);
    url.setPath(path, QUrl::DecodedMode);
    return placeOf(url) == place ? url : QUrl();
}

QByteArray Subjects::of(const QUrl &url, const QByteArray &place) const
{
    const QString name = url.userName(QUrl::FullyDecoded);
    return name.isEmpty() ? call(place) : at(name, place);
}

QByteArray Subjects::call(const QByteArray &place) const { return m_prefix + "call." + place; }

QByteArray Subjects::at(const QString &name, const QByteArray &place) const
{
    return m_prefix + "at." + escaped(name) + '.' + place;
}

QByteArray Subjects::allAt(const QString &name) const { return at(name, ">"); }

QByteArray Subjects::broadcast() const { return m_prefix + "all"; }

QByteArray Subjects::list() const { return m_prefix + "list"; }

QUrl Subjects::urlIn(const QByteArray &subject) const
{
    if (!subject.startsWith(m_prefix))
        return {};
    const QByteArray rest = subject.mid(m_prefix.size());
    if (rest.startsWith("call."))
        return urlAt(rest.mid(5));
    const int end = rest.startsWith("at.") ? rest.indexOf('.', 3) : -1;
    QString name;
    if (end < 0 || !unescape(rest.mid(3, end - 3), &name))
        return {};
    QUrl url = urlAt(rest.mid(end + 1));
    if (!url.isEmpty())
        url.setUserName(name, QUrl::DecodedMode);
    return url;
}

bool Subjects::isFor(const QUrl &url, const QByteArray &subject) const
{
    for (const QByteArray &place : {placeOf(url), barePlaceOf(url)}) {
        if (!place.isEmpty() && subject == of(url, place))
            return true;
    }
    return false;
}
