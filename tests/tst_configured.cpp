// SPDX-License-Identifier: Apache-2.0
// How a plugin hears of new settings.
#include "journal.h"
#include "pluginfolder.h"
#include "testcase.h"

#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QThread>

#include <zdbussubscriber.h>
#include <zdefaultloader.h>
#include <zhost.h>
#include <zlibrary.h>
#include <zobject.h>

#include <functional>
#include <optional>
#include <utility>

class tst_Configured : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void everyVersionHears();
    void hearsWhatIsItsOwn();
    void hearsNothingOfAnotherHost();
    void hearsOnceUnderTwoNames();
    void hearsOnItsOwnThread();
    void isHeldByNobodyButItsLibrary();
    void tellsWhatItThrows();
    void lastsWhileItIsCalled_data();
    void lastsWhileItIsCalled();
    void hearsWhatChangesWhileItIsLoaded();
    void hearsNothingWhileItIsDestroyed_data();
    void hearsNothingWhileItIsDestroyed();
    void isLeftAloneWithoutTheInterface();
    void endpointGoesOnByWhatItHas();
};

namespace {

const QString Name = QStringLiteral("settled");
const QString First = QStringLiteral("settled.1");
const QString Second = QStringLiteral("settled.2");

QJsonObject settings(const char *text, const char *deed = nullptr)
{
    QJsonObject object{{QStringLiteral("text"), QLatin1String(text)}};
    if (deed)
        object.insert(QStringLiteral("deed"), QLatin1String(deed));
    return object;
}

/// Does something once, when it is called.
class Subscriber : public ZDbusSubscriber
{
public:
    explicit Subscriber(std::function<void()> deed) : m_deed(std::move(deed)) {}
    bool invoked(const QUrl &, QJsonObject *, QJsonObject *) override
    {
        if (const std::function<void()> deed = std::exchange(m_deed, nullptr))
            deed();
        return true;
    }

private:
    std::function<void()> m_deed;
};

/// A host with one folder. What it loads is held until it is let go.
class Place
{
public:
    explicit Place(const QJsonObject &section = settings("one"))
    {
        host.emplace(configurationWith(section, Name), QVector<QObject *>{journal});
        host->begin();
        journal->take();
    }
    ~Place()
    {
        libraries.clear();
        settle();
    }

    QJsonObject configurationWith(const QJsonObject &section, const QString &name) const
    {
        return {{QStringLiteral("loader"), QJsonObject{{QStringLiteral("deployed"), folder.path()}}},
                {QStringLiteral("plugins"), QJsonObject{{name, section}}}};
    }
    QStringList configure(const QJsonObject &section, const QString &name = Name)
    {
        return host->configure(configurationWith(section, name));
    }
    bool load(const QString &name)
    {
        folder.drop(name);
        libraries.append(host->services().loader->load0(name));
        return libraries.constLast();
    }
    void letGo()
    {
        libraries.clear();
        settle();
    }
    /// Of settings, line by line.
    QString said()
    {
        static const QRegularExpression ofSettings(
            QStringLiteral(": (read|heard|goes on|plugins|failed to configure)"));
        static const QRegularExpression severity(QStringLiteral("^(info|warning): "));
        return journal->take().filter(ofSettings).replaceInStrings(severity, QString()).join(QLatin1Char('\n'));
    }
    /// Has `deed` done as `url` is called next.
    void once(const char *url, std::function<void()> deed)
    {
        subscribers.append(QSharedPointer<Subscriber>::create(std::move(deed)));
        host->services().dbus->bind0(QUrl(QLatin1String(url)), subscribers.constLast());
    }
    bool isMapped(const QString &plugin) const
    {
        return ::isMapped(folder.filePath(QStringLiteral("lib%1.so").arg(plugin)));
    }

    const Folder folder;
    Journal *const journal = new Journal; // the host's
    std::optional<ZHost> host;
    QVector<QSharedPointer<Subscriber>> subscribers;
    QVector<QSharedPointer<ZLibrary>> libraries;
};

} // namespace

void tst_Configured::everyVersionHears()
{
    Place place;
    QVERIFY(place.load(First));
    QVERIFY(place.load(Second));
    place.said();
    QCOMPARE(place.configure(settings("two")), QStringList{Name});
    QCOMPARE(place.said(), QStringLiteral("heard 1: two\nheard 2: two"));
    QCOMPARE(place.configure({}), QStringList{Name});
    QCOMPARE(place.said(), QStringLiteral("heard 1: nothing\nheard 2: nothing"));
}

void tst_Configured::hearsWhatIsItsOwn()
{
    Place place;
    QVERIFY(place.load(First));
    place.said();
    QCOMPARE(place.configure(settings("one")), QStringList());
    QCOMPARE(place.said(), QString());
    QCOMPARE(place.configure(settings("one"), QStringLiteral("another")), QStringList{Name}); // it has none any more
    QCOMPARE(place.said(), QStringLiteral("heard 1: nothing"));
    QCOMPARE(place.configure(settings("two"), QStringLiteral("another")), QStringList());
    QCOMPARE(place.said(), QString());
    place.configure({{QStringLiteral("txt"), 1}});
    QCOMPARE(place.said(), QStringLiteral("plugins.settled.txt: is not known; known are: text, deed"));
}

void tst_Configured::hearsNothingOfAnotherHost()
{
    Place place, other;
    QVERIFY(place.load(First));
    QVERIFY(other.load(Second));
    place.said();
    other.said();
    QCOMPARE(place.configure(settings("two")), QStringList{Name});
    QCOMPARE(place.said(), QStringLiteral("heard 1: two"));
    QCOMPARE(other.said(), QString());
    QCOMPARE(other.configure(settings("three")), QStringList{Name});
    QCOMPARE(place.said(), QString());
    QCOMPARE(other.said(), QStringLiteral("heard 2: three"));
}

void tst_Configured::hearsOnceUnderTwoNames()
{
    Place place;
    QVERIFY(place.load(First));
    QVERIFY(QFile::link(place.folder.filePath(QStringLiteral("libsettled.1.so")),
                        place.folder.filePath(QStringLiteral("libsettled.3.so"))));
    QVERIFY(place.load(QStringLiteral("settled.3")));
    place.said();
    place.configure(settings("two"));
    QCOMPARE(place.said(), QStringLiteral("heard 1: two"));
}

void tst_Configured::hearsOnItsOwnThread()
{
    Place place;
    QThread thread;
    thread.start();
    {
        const LibraryPaths paths;
        QVERIFY(place.folder.drop(First));
        QCoreApplication::addLibraryPath(place.folder.path());
        ZLibrarySet set(Name, place.host->services().emitter, &thread);
        QSharedPointer<ZLibrary> library = set.load(First, QString(), place.host->services().emitter);
        QVERIFY(library);
        place.said();
        QCOMPARE(place.configure(settings("two")), QStringList{Name});
        QTRY_COMPARE(place.journal->entries().filter(QStringLiteral("heard")),
                     QStringList{QStringLiteral("info: heard 1: two")});
        library.clear();
        QTRY_VERIFY(!place.isMapped(First));
        thread.quit();
        thread.wait();
    }
}

void tst_Configured::isHeldByNobodyButItsLibrary()
{
    Place place;
    QVERIFY(place.load(First));
    place.configure(settings("two"));
    place.letGo();
    QVERIFY(!place.isMapped(First));
    place.said();
    QCOMPARE(place.configure(settings("three")), QStringList());
    QCOMPARE(place.said(), QString());
}

void tst_Configured::tellsWhatItThrows()
{
    Place place;
    QVERIFY(place.load(First));
    QVERIFY(place.load(Second));
    place.said();
    place.configure(settings("two", "throw"));
    QCOMPARE(place.said(), QStringLiteral("heard 1: two\nfailed to configure libsettled.1: no\n"
                                          "heard 2: two\nfailed to configure libsettled.2: no"));
}

void tst_Configured::lastsWhileItIsCalled_data()
{
    QTest::addColumn<QString>("before");
    QTest::newRow("one that holds itself") << "hold";
    QTest::newRow("one that is held") << "";
}

void tst_Configured::lastsWhileItIsCalled()
{
    QFETCH(QString, before);
    Place place(before.isEmpty() ? settings("one") : settings("one", qPrintable(before)));
    QVERIFY(place.load(First));
    place.said();
    place.once("//test/settled", [&] { place.letGo(); });
    place.configure(settings("two", "let go"));
    QVERIFY(place.isMapped(First));
    QCOMPARE(place.said(), QStringLiteral("heard 1: two\ngoes on"));
    settle();
    QVERIFY(!place.isMapped(First));
}

void tst_Configured::hearsWhatChangesWhileItIsLoaded()
{
    Place place;
    QVERIFY(place.load(First));
    place.said();
    place.once("//test/settled", [&] { QCOMPARE(place.configure(settings("two")), QStringList{Name}); });
    QVERIFY(place.load(Second));
    QCOMPARE(place.said(), QStringLiteral("read 2: one\nheard 1: two\nheard 2: two")); // the first is there already
}

void tst_Configured::hearsNothingWhileItIsDestroyed_data()
{
    QTest::addColumn<bool>("isLibraryHeld");
    QTest::newRow("with its library") << false;
    QTest::newRow("before its library") << true;
}

void tst_Configured::hearsNothingWhileItIsDestroyed()
{
    QFETCH(bool, isLibraryHeld);
    Place place;
    QVERIFY(place.load(First));
    place.said();
    bool isAsked = false;
    place.once("//test/destroyed", [&] {
        isAsked = true;
        QCOMPARE(place.configure(settings("two")), QStringList());
    });
    if (isLibraryHeld)
        QSharedPointer<ZObject>(*place.libraries.constLast()).clear(); // the root's one owner
    else
        place.letGo();
    QVERIFY(isAsked);
    QCOMPARE(place.said(), QString());
}

void tst_Configured::isLeftAloneWithoutTheInterface()
{
    Place place;
    QVERIFY(place.folder.drop(QStringLiteral("sturdy"), QStringLiteral("libsturdy.1.so")));
    QVERIFY(place.load(QStringLiteral("sturdy.1")));
    QCOMPARE(place.configure(settings("two"), QStringLiteral("sturdy")), QStringList());
}

/// The plugin of the guide.
void tst_Configured::endpointGoesOnByWhatItHas()
{
    const QString name = QStringLiteral("recorder");
    const QString file = QStringLiteral("librecorder.1");
    Place place;
    const auto isEvery = [&](int every) {
        QJsonObject answer;
        place.host->services().dbus->invoke0(QUrl(QStringLiteral("//recorder")), nullptr, &answer);
        return answer.value(QStringLiteral("every")).toInt() == every;
    };
    const auto configure = [&](const char *json) { place.configure(QJsonDocument::fromJson(json).object(), name); };
    QVERIFY(place.folder.drop(name, QStringLiteral("librecorder.1.so")));
    QVERIFY(place.load(file));
    QVERIFY(place.said().endsWith(QStringLiteral("plugins.recorder.unit: is missing")));
    QVERIFY(!place.host->services().dbus->find0(QUrl(QStringLiteral("//recorder"))));
    place.letGo();
    configure(R"({"unit": "ms"})");
    QVERIFY(place.load(file));
    QVERIFY(isEvery(500));
    configure(R"({"unit": "s", "every": 2})");
    QVERIFY(isEvery(2000));
    configure(R"({"unit": "s", "every": 0})");
    QVERIFY(place.said().endsWith(QStringLiteral("plugins.recorder.every: must be a whole number from 1 to 60000")));
    QVERIFY(isEvery(2000));
    place.host->services().dbus->invoke0(QUrl(QStringLiteral("//recorder/release")), nullptr, nullptr);
}

QTEST_GUILESS_MAIN(tst_Configured)
#include "tst_configured.moc"
