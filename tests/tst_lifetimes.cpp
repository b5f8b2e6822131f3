// SPDX-License-Identifier: Apache-2.0
#include "folder.h"
#include "program.h"
#include "testcase.h"

/// Components and plugins that come and go, each story told by a process of its own: a wrong one crashes, or hangs.
class tst_Lifetimes : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void deletionsComeBeforeTheFileLeaves_data();
    void deletionsComeBeforeTheFileLeaves() { live(); }
    void componentsEndWhereTheyLive_data();
    void componentsEndWhereTheyLive() { live(); }
    void operationsFinishThoughTheirServiceIsReplaced_data();
    void operationsFinishThoughTheirServiceIsReplaced() { live(); }
    void nobodyWaitsForALock_data();
    void nobodyWaitsForALock() { live(); }
    void whatAPluginThrowsIsTheReason_data();
    void whatAPluginThrowsIsTheReason() { live(); }
    void whatStaysIsSaidToStay_data();
    void whatStaysIsSaidToStay() { live(); }

private:
    static void columns();
    static void live();
};

namespace {

/// The first of `lines` that does not come, in this order, among those of `text`; null if all do.
QString missing(const QStringList &lines, const QString &text)
{
    int found = 0;
    const QStringList all = text.split(QLatin1Char('\n'));
    for (const QString &line : all) {
        if (found < lines.size() && line == lines.at(found))
            ++found;
    }
    return lines.value(found);
}

} // namespace

void tst_Lifetimes::columns()
{
    QTest::addColumn<QStringList>("told");
    QTest::addColumn<QString>("untold");
}

void tst_Lifetimes::live()
{
    QFETCH(QStringList, told);
    QFETCH(QString, untold);
    const Folder deployed, hotDeploy;
    for (const char *plugin : {"mortal", "founder", "nodelete", "threadlocal", "unique"})
        QVERIFY(deployed.drop(QLatin1String(plugin)));
    QVERIFY(deployed.drop(QStringLiteral("mortal"), QStringLiteral("libmortal.1.so")));
    QVERIFY(deployed.drop(QStringLiteral("plain"), QStringLiteral("libother.1.so")));
    const Result result = runProgram(QStringLiteral(LIFETIMES),
                                     {QString::fromLatin1(QTest::currentDataTag()), deployed.path(), hotDeploy.path()});
    const QString lacking = missing(told, result.err);
    QVERIFY2(lacking.isNull(), qPrintable(QStringLiteral("lacks \"%1\":\n%2").arg(lacking, result.err)));
    QVERIFY2(untold.isEmpty() || !result.err.contains(untold), qPrintable(result.err));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.out, QString());
}

void tst_Lifetimes::deletionsComeBeforeTheFileLeaves_data()
{
    columns();
    const QStringList chain{"the root ends", "link 3 ends", "link 2 ends", "link 1 ends", "its code ends"};
    const QStringList plain = chain + QStringList{"unloaded: libmortal"};
    const QStringList version = chain + QStringList{"unloaded: libmortal.1"};
    QTest::newRow("deletions of a root that nobody owns") << plain << QString();
    QTest::newRow("deletions without an event loop") << plain << QString();
    QTest::newRow("a long chain of deletions")
        << QStringList{"the root ends", "link 60 ends", "link 30 ends", "link 1 ends", "its code ends"} << QString();
    QTest::newRow("deletions of a shared root") << version << QString();
    QTest::newRow("deletions of a service that is replaced") << plain << QString();
    QTest::newRow("deletions on another thread")
        << QStringList{"the root ends elsewhere", "link 3 ends",          "link 2 ends", "link 1 ends",
                       "its code ends",           "unloaded: libmortal.1"}
        << QString();
    QTest::newRow("deletions on another event loop")
        << QStringList{"the root ends elsewhere", "link 3 ends",          "link 2 ends", "link 1 ends",
                       "its code ends",           "unloaded: libmortal.1"}
        << QString();
    QTest::newRow("deletions in a nested event loop") << plain << QString();
    QTest::newRow("single shots of a root that has gone")
        << QStringList{"the root ends", "its code ends", "the program shoots", "the time is up"}
        << QStringLiteral("shot\n");
    QTest::newRow("deletions in the order of an end") << chain + QStringList{"the end"} << QString();
    QTest::newRow("deletions as the program quits") << plain << QString();
}

void tst_Lifetimes::componentsEndWhereTheyLive_data()
{
    columns();
    const QString elsewhere = QStringLiteral("elsewhere");
    QTest::newRow("a service is let go by a call on another thread")
        << QStringList{"nobody holds it", "the root ends", "its code ends"} << elsewhere;
    QTest::newRow("a component that is shared ends at home") << QStringList{"ends at home"} << elsewhere;
    QTest::newRow("a component without an event loop at home") << QStringList{"ends elsewhere"} << QString();
    QTest::newRow("a component whose thread has ended") << QStringList{"ends elsewhere", "ends elsewhere"} << QString();
    QTest::newRow("a component ends with the thread it lives on") << QStringList{"ends at home"} << elsewhere;
    QTest::newRow("a root ends with the thread it lives on") << QStringList{"the root ends"} << elsewhere;
    QTest::newRow("a root lives where the loader does")
        << QStringList{"loaded: mortal", "the root ends", "the event loop has ended"} << elsewhere;
    QTest::newRow("one count for all shares") << QStringList{"alive"} << QString();
}

void tst_Lifetimes::operationsFinishThoughTheirServiceIsReplaced_data()
{
    columns();
    QTest::newRow("the loader is replaced by what its list names")
        << QStringList{"the loader is replaced", "failed to unload: libother.1", "its list is loaded"} << QString();
    QTest::newRow("the loader is replaced by what it is asked for")
        << QStringList{"the loader is replaced", "loaded: mortal", "loaded: libmortal.1", "gone"} << QString();
    QTest::newRow("the loader is replaced by what is dropped")
        << QStringList{"the loader is replaced", "loaded: libmortal", "gone"} << QString();
    QTest::newRow("the emitter is replaced by what it injects")
        << QStringList{"alive", "loaded: libmortal.1", "gone"} << QString();
    QTest::newRow("the logger is replaced by what reads its lines") << QStringList{"one", "two"} << QString();
    QTest::newRow("the context is replaced by a value that it drops") << QStringList{"dropped"} << QString();
    QTest::newRow("the bus is replaced by what it calls") << QStringList{"handled", "another bus"} << QString();
    QTest::newRow("job pools are replaced under a job") << QStringList{"done"} << QString();
    QTest::newRow("thread pools are replaced under an activity") << QStringList{"done"} << QString();
    QTest::newRow("plugins are dropped while one is loaded")
        << QStringList{"loaded: libother.1", "loaded: libmortal"} << QStringLiteral("failed to rename");
    QTest::newRow("one of two libraries of a root goes") << QStringList{"two", "shared"} << QString();
    QTest::newRow("the scheduler is replaced by its own command") << QStringList{"withdrawn"} << QString();
}

void tst_Lifetimes::nobodyWaitsForALock_data()
{
    columns();
    QTest::newRow("a root ends while another thread loads")
        << QStringList{"the root ends", "loaded: other.1", "unloaded: libmortal"} << QString();
    QTest::newRow("a root asks for itself as it ends")
        << QStringList{"the root ends",
                       "failed to load mortal: The shared library was not found.",
                       "failed to load libmortal.1: its root object is being destroyed",
                       "null",
                       "null",
                       "its code ends",
                       "unloaded: libmortal.1"}
        << QString();
    for (const char *story : {"a writer runs an event loop", "a broadcast runs an event loop"})
        QTest::newRow(story) << QStringList{"the nested loop ends", "the root ends", "unloaded: libmortal"}
                             << QString();
    QTest::newRow("a constructor asks for its own file")
        << QStringList{"failed to load mortal.1: it is being loaded or unloaded", "null", "loaded: libmortal.1",
                       "the root ends", "unloaded: libmortal.1"}
        << QString();
    QTest::newRow("a service is replaced under a job of its own")
        << QStringList{"the job ends", "replaced", "unloaded: libmortal.1"} << QString();
    QTest::newRow("a service is replaced by its next version")
        << QStringList{"the job ends", "its code ends", "unloaded: libmortal"} << QString();
    QTest::newRow("a constructor waits for those who wire and load")
        << QStringList{"loaded: other.1", "the thread has ended", "loaded: mortal"} << QString();
    QTest::newRow("two threads load one plugin") << QStringList{"the same"} << QString();
    QTest::newRow("the loader is let go while its files are unloaded")
        << QStringList{"the root ends", "the loader is gone", "its code ends"} << QString();
}

void tst_Lifetimes::whatAPluginThrowsIsTheReason_data()
{
    columns();
    const auto add = [](const char *story, const QString &what) {
        QTest::newRow(story) << QStringList{QStringLiteral("failed to load mortal.1: ") + what, "null",
                                            "loaded: mortal.1", "loaded"}
                             << QString();
    };
    add("a constructor throws", QStringLiteral("no licence"));
    add("a writer throws", QStringLiteral("no database"));
    add("a writer throws a number", QStringLiteral("an exception of an unknown type"));
    add("a writer throws without a word", QStringLiteral("an exception without a word"));
    QTest::newRow("the logger throws") << QStringList{"loaded", "null", "gone"} << QString();
    QTest::newRow("a dropped plugin throws")
        << QStringList{"failed to load libmortal: no database", "the root ends", "unloaded: libmortal"} << QString();
}

void tst_Lifetimes::whatStaysIsSaidToStay_data()
{
    columns();
    const auto add = [](const char *story, const char *line) {
        QTest::newRow(story) << QStringList{QLatin1String(line)} << QStringLiteral("unloaded");
    };
    add("a file with thread-local objects",
        "stays in memory: libthreadlocal: a thread that still runs has an object of it that is thread_local and has a "
        "destructor");
    add("a file with unique symbols",
        "stays in memory: libunique: something else uses it, or it has GNU unique symbols, which are never let go");
    add("a file that is linked to stay", "stays in memory: libnodelete: it is linked with -z nodelete");
    add("a file that brought a delegate", "stays in memory: libfounder: it brought the first delegate of an interface");
}

QTEST_GUILESS_MAIN(tst_Lifetimes)

#include "tst_lifetimes.moc"
