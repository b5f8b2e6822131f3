// SPDX-License-Identifier: Apache-2.0
#include "testcase.h"

#include <pluginname.h>

#include <QFile>

#include <climits>

/// The names under which zdeploy drops.
class tst_PluginName : public TestCase
{
    Q_OBJECT

private Q_SLOTS:
    void countsOn_data();
    void countsOn();
    void sortsLastAndStaysShortOverManyDrops_data();
    void sortsLastAndStaysShortOverManyDrops();
    void findsAShorterNameWhereALongerOneHasNoRoom_data();
    void findsAShorterNameWhereALongerOneHasNoRoom();
    void countsOnAsTheLoaderFindsVersions_data();
    void countsOnAsTheLoaderFindsVersions();
};

namespace {

/// The name under which the plain file is dropped after the one of this version; with no version, after the plain one.
PluginName after(const PluginName &last) { return PluginName{last.plugin, QString()}.next({last.file()}); }

} // namespace

void tst_PluginName::countsOn_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("next");
    const auto row = [](const char *version, const char *next) {
        QTest::newRow(version) << QString::fromLatin1(version) << QString::fromLatin1(next);
    };
    row("", "0001");
    row("0001", "0002");
    row("0099", "0100");
    row("9998", "9999");
    row("9999", "A00000");
    row("A00000", "A00001");
    row("A99999", "B000000");
    row("B999999", "C0000000");
    row("Y99999999999999999999999999999", "Z000000000000000000000000000000");
    row("Z999999999999999999999999999999", "ZA00000");
    // names that others have given
    row("1", "2");
    row("9", "A00000");
    row("90", "91");
    row("99", "A00000");
    row("900", "901");
    row("1.2", "1.3");
    row("1.9", "1.A00000");
    row("1.A99999", "1.B000000");
    row("beta", "beta0001");
    row("rc9", "rcA00000");
    row("A9", "AA00000"); // no letter of ours: it would have five digits
    row("20250131-235959999", "20250131-235960000");
    row("20250131-999999999", "20250131-A00000");
}

void tst_PluginName::countsOn()
{
    QFETCH(QString, version);
    const PluginName name{QStringLiteral("plain"), version};
    QTEST(after(name).version, "next");
    QVERIFY(after(name).isNewest({name.file()}));
}

void tst_PluginName::sortsLastAndStaysShortOverManyDrops_data()
{
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<QString>("version");
    QTest::addColumn<int>("longest");
    const auto row = [](const char *version, int longest) {
        QTest::newRow(version) << QString("plain") << QString::fromLatin1(version) << longest;
    };
    row("", 6);
    for (const char *const version : {"0001", "1", "9", "90", "900", "990", "9900"})
        row(version, 6);
    for (const char *const version : {"1.2", "1.9", "1.90"})
        row(version, 8);
    row("A99999", 7);
    row("beta", 10);
    QTest::newRow("244 nines") << QString("plain") << QString(244, '9') << 244;
    QTest::newRow("a plugin with a long name") << QString(245, 'p') << QString() << 3;
}

void tst_PluginName::sortsLastAndStaysShortOverManyDrops()
{
    QFETCH(QString, plugin);
    QFETCH(QString, version);
    QFETCH(int, longest);
    PluginName last{plugin, version};
    const int drops = longest > 3 ? 100000 : 150; // there are not so many names of so few characters
    for (int drop = 0; drop < drops; ++drop) {
        const PluginName next = after(last);
        // As the loader sorts them: the plain name, then the others as texts.
        if (!last.version.isEmpty() && next.file() <= last.file())
            QFAIL(qPrintable(QStringLiteral("%1 follows %2").arg(next.file(), last.file())));
        if (next.version.size() > longest)
            QFAIL(qPrintable(QStringLiteral("%1 after %2 drops").arg(next.version).arg(drop)));
        last = next;
    }
}

void tst_PluginName::findsAShorterNameWhereALongerOneHasNoRoom_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("next");
    QTest::newRow("no digits") << QString(243, 'z') << "~";
    QTest::newRow("only the last can be raised") << QString(242, '~') + 'z' << QString(243, '~');
    QTest::newRow("nines after all others") << QString(242, '~') + '9' << QString(242, '~') + 'A';
}

void tst_PluginName::findsAShorterNameWhereALongerOneHasNoRoom()
{
    QFETCH(QString, version);
    const PluginName name{QStringLiteral("plain"), version};
    QVERIFY(QFile::encodeName(name.file()).size() <= NAME_MAX);
    QTEST(after(name).version, "next");
    QVERIFY(after(name).isNewest({name.file()}));
}

void tst_PluginName::countsOnAsTheLoaderFindsVersions_data()
{
    QTest::addColumn<QString>("dropped");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("next");
    QTest::newRow("a version in another case") << "libfoo.so" << QStringList{"libFoo.0001.so"} << "libFoo.0002.so";
    QTest::newRow("a case that sorts before it")
        << "libFoo.0003.so" << QStringList{"libfoo.so", "libfoo.0001.so"} << "libfoo.0002.so";
    QTest::newRow("versions in both") << "libfoo.so" << QStringList{"libfoo.0001.so", "libFoo.0007.so"}
                                      << "libfoo.0002.so";
    QTest::newRow("a plain file in another case") << "libfoo.so" << QStringList{"libFoo.so"} << "libfoo.so";
    QTest::newRow("a plain file of a version in another case")
        << "libFoo.1.so" << QStringList{"libfoo.so"} << "libFoo.1.so";
    QTest::newRow("another plugin") << "libfoo.so" << QStringList{"libfool.1.so"} << "libfoo.so";
}

void tst_PluginName::countsOnAsTheLoaderFindsVersions()
{
    QFETCH(QString, dropped);
    QFETCH(QStringList, files);
    QTEST(PluginName::parse(dropped).next(files).file(), "next");
}

QTEST_GUILESS_MAIN(tst_PluginName)

#include "tst_pluginname.moc"
