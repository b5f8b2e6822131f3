// SPDX-License-Identifier: Apache-2.0
// A codec is the registry's for ever, so each test makes its own under a name of its own.
#include "host.h"
#include "testcase.h"

#include <QJsonObject>
#include <QScopedPointer>
#include <QTextCodec>
#include <QTextDecoder>

#include <zcodecalias.h>

#include <thread>

namespace {

const QString text = QString::fromUtf8("a \xc3\xbc \xe2\x82\xac \xf0\x9f\x98\x80 z"); // of one to four bytes

ZCodecAlias *alias(const char *target, const char *name, QList<QByteArray> aliases = {})
{
    return new ZCodecAlias(target, name, aliases);
}

} // namespace

class tst_CodecAlias : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void isFoundByItsNames();
    void hasTheNamesItWasGiven();
    void convertsAsItsTargetDoes_data();
    void convertsAsItsTargetDoes();
    void convertsOnlyTheLengthThatIsGiven();
    void handsTheStateThrough();
    void readsWhatComesInPieces();
    void theTargetKeepsItsName();
    void anAliasMayBeATarget();
    void anAliasMayBeNamedAsItsTarget();
    void withoutATargetEverythingIsNull_data();
    void withoutATargetEverythingIsNull();
    void theTargetIsLookedForOnce();
    void mayBeMadeOnAnyThread();
    void outlivesThePluginThatMadeIt();
};

void tst_CodecAlias::isFoundByItsNames()
{
    ZCodecAlias *const codec = alias("UTF-8", "test-found", {"test-found-2", "test-found-3"});
    for (const char *name : {"test-found", "test-found-2", "test-found-3"})
        QCOMPARE(QTextCodec::codecForName(name), codec);
    QVERIFY(QTextCodec::availableCodecs().contains("test-found"));
    QVERIFY(!QTextCodec::codecForName("test-found-4"));
}

void tst_CodecAlias::hasTheNamesItWasGiven()
{
    const QList<QByteArray> aliases{"test-named-2", "test-named-1"};
    const QTextCodec *const codec = alias("UTF-8", "test-named", aliases);
    QCOMPARE(codec->name(), QByteArray("test-named"));
    QCOMPARE(codec->aliases(), aliases);
    QCOMPARE(alias("UTF-8", "test-named-alone")->aliases(), QList<QByteArray>());
}

void tst_CodecAlias::convertsAsItsTargetDoes_data()
{
    QTest::addColumn<QByteArray>("target");
    QTest::addColumn<int>("mib");
    QTest::newRow("UTF-8") << QByteArray("UTF-8") << 106;
    QTest::newRow("UTF-16") << QByteArray("UTF-16") << 1015;
    QTest::newRow("Latin-1") << QByteArray("ISO-8859-1") << 4;
    QTest::newRow("found by an alias of its own") << QByteArray("latin1") << 4;
}

void tst_CodecAlias::convertsAsItsTargetDoes()
{
    QFETCH(QByteArray, target);
    const QTextCodec *const original = QTextCodec::codecForName(target);
    const QTextCodec *const codec = alias(target, "test-converts-" + target);
    QTEST(codec->mibEnum(), "mib");
    QCOMPARE(codec->mibEnum(), original->mibEnum());
    const QByteArray bytes = original->fromUnicode(text);
    QCOMPARE(codec->fromUnicode(text), bytes);
    QCOMPARE(codec->toUnicode(bytes), original->toUnicode(bytes));
    const QByteArray broken("a\xff\xc3(");
    QCOMPARE(codec->toUnicode(broken), original->toUnicode(broken));
    QCOMPARE(codec->canEncode(text), original->canEncode(text));
}

void tst_CodecAlias::convertsOnlyTheLengthThatIsGiven()
{
    const ZCodecAlias *const codec = alias("UTF-8", "test-length");
    QCOMPARE(codec->convertToUnicode("abc", 2, nullptr), QStringLiteral("ab"));
    QCOMPARE(codec->convertToUnicode("a\0c", 3, nullptr), QString::fromLatin1("a\0c", 3));
    QCOMPARE(codec->convertFromUnicode(text.constData(), 3, nullptr), QByteArray("a \xc3\xbc"));
}

void tst_CodecAlias::handsTheStateThrough()
{
    const ZCodecAlias *const codec = alias("UTF-8", "test-state");
    QTextCodec::ConverterState state;
    QCOMPARE(codec->convertToUnicode("a\xc3", 2, &state), QStringLiteral("a"));
    QCOMPARE(state.remainingChars, 1);
    QCOMPARE(codec->convertToUnicode("\xbc", 1, &state), QString::fromUtf8("\xc3\xbc"));
    QCOMPARE(state.remainingChars, 0);

    QTextCodec::ConverterState strict(QTextCodec::ConvertInvalidToNull);
    QCOMPARE(codec->convertToUnicode("a\xff", 2, &strict), QString::fromLatin1("a\0", 2));
    QCOMPARE(strict.invalidChars, 1);

    const ZCodecAlias *const wide = alias("UTF-16LE", "test-state-wide");
    QTextCodec::ConverterState bare(QTextCodec::IgnoreHeader);
    QCOMPARE(wide->convertFromUnicode(text.constData(), 1, &bare), QByteArray("a\0", 2));
    const ZCodecAlias *const latin = alias("ISO-8859-1", "test-state-latin");
    QTextCodec::ConverterState lossy;
    const QChar euro(0x20ac);
    QCOMPARE(latin->convertFromUnicode(&euro, 1, &lossy), QByteArray("?"));
    QCOMPARE(lossy.invalidChars, 1);
}

void tst_CodecAlias::readsWhatComesInPieces()
{
    alias("UTF-8", "test-pieces");
    const QScopedPointer<QTextDecoder> decoder(QTextCodec::codecForName("test-pieces")->makeDecoder());
    const QByteArray bytes = text.toUtf8();
    QString read;
    for (const char byte : bytes)
        read += decoder->toUnicode(&byte, 1);
    QCOMPARE(read, text);
    QVERIFY(!decoder->hasFailure());
}

void tst_CodecAlias::theTargetKeepsItsName()
{
    QTextCodec *const target = QTextCodec::codecForName("KOI8-R");
    QVERIFY(target);
    QVERIFY(alias("KOI8-R", "test-keeps") != target);
    QCOMPARE(QTextCodec::codecForName("KOI8-R"), target);
}

void tst_CodecAlias::anAliasMayBeATarget()
{
    alias("UTF-8", "test-first", {"test-first-2"});
    const QTextCodec *const codec = alias("test-first-2", "test-second");
    QCOMPARE(codec->mibEnum(), 106);
    QCOMPARE(codec->fromUnicode(text), text.toUtf8());
}

void tst_CodecAlias::anAliasMayBeNamedAsItsTarget()
{
    const QTextCodec *const codec = alias("ISO-8859-15", "ISO-8859-15", {"ISO-8859-15"});
    QCOMPARE(codec->mibEnum(), 111);
    QCOMPARE(codec->fromUnicode(QString(QChar(0x20ac))), QByteArray("\xa4"));
    const QTextCodec *const nobody = alias("test-itself", "test-itself");
    QCOMPARE(nobody->mibEnum(), -1); // it was not there yet
    QVERIFY(nobody->fromUnicode(text).isNull());
}

void tst_CodecAlias::withoutATargetEverythingIsNull_data()
{
    QTest::addColumn<QByteArray>("target");
    QTest::newRow("unknown") << QByteArray("test-no-such-codec");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("absent") << QByteArray();
}

void tst_CodecAlias::withoutATargetEverythingIsNull()
{
    QFETCH(QByteArray, target);
    const QByteArray name = QByteArray("test-nobody-") + QTest::currentDataTag();
    const ZCodecAlias *const codec = alias(target.isNull() ? nullptr : target.constData(), name, {name + "-2"});
    QCOMPARE(QTextCodec::codecForName(name), codec);
    QCOMPARE(codec->name(), name);
    QCOMPARE(codec->aliases(), QList<QByteArray>{name + "-2"});
    QCOMPARE(codec->mibEnum(), -1);
    QTextCodec::ConverterState state;
    for (QTextCodec::ConverterState *each : {static_cast<QTextCodec::ConverterState *>(nullptr), &state}) {
        QVERIFY(codec->convertToUnicode("abc", 3, each).isNull());
        QVERIFY(codec->convertFromUnicode(text.constData(), text.size(), each).isNull());
    }
    QCOMPARE(codec->toUnicode(QByteArray("abc")), QString());
    QCOMPARE(codec->fromUnicode(text), QByteArray());
}

void tst_CodecAlias::theTargetIsLookedForOnce()
{
    const QTextCodec *const early = alias("test-later", "test-early");
    alias("UTF-8", "test-later");
    QVERIFY(QTextCodec::codecForName("test-later"));
    QCOMPARE(early->mibEnum(), -1);
    QVERIFY(early->fromUnicode(text).isNull());
    QCOMPARE(alias("test-later", "test-late")->mibEnum(), 106);
}

void tst_CodecAlias::mayBeMadeOnAnyThread()
{
    const QTextCodec *codec = nullptr;
    std::thread([&] { codec = alias("UTF-8", "test-thread"); }).join();
    QCOMPARE(QTextCodec::codecForName("test-thread"), codec);
    QCOMPARE(codec->fromUnicode(text), text.toUtf8());
}

void tst_CodecAlias::outlivesThePluginThatMadeIt()
{
    const Folder folder;
    folder.drop(QStringLiteral("codec"));
    const Host host;
    host.wire(QJsonObject{{QStringLiteral("deployed"), folder.path()}})->load0(QStringLiteral("codec"));
    QVERIFY(isMapped(folder.filePath(QStringLiteral("libcodec.so"))));
    settle(); // nobody holds it
    QVERIFY(!isMapped(folder.filePath(QStringLiteral("libcodec.so"))));
    for (const char *name : {"test-plugin", "test-plugin-2", "test-plugin-3"}) {
        const QTextCodec *codec = QTextCodec::codecForName(name);
        QVERIFY(codec);
        QCOMPARE(codec->name(), QByteArray("test-plugin"));
        QCOMPARE(codec->fromUnicode(text), text.toUtf8());
    }
    QVERIFY(!QTextCodec::codecForName("test-no-such-codec")); // for which all are asked
}

QTEST_GUILESS_MAIN(tst_CodecAlias)

#include "tst_codecalias.moc"
