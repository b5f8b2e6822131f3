// SPDX-License-Identifier: Apache-2.0
// The test of a plugin. Each function loads it into a host of its own; in the end the plugin has to be unloaded.
#include <zpluginfixture.h>

#include <QTest>

class RainTest : public QObject
{
    Q_OBJECT

private slots:
    void addsWhatFalls()
    {
        ZPluginFixture plugin;
        QVERIFY(plugin.load(PLUGIN_FILE));
        plugin.call(m_rain, {{"mm", 2}});
        QCOMPARE(plugin.call(m_rain, {{"mm", 3}})["mm"].toInt(), 5);
    }

    // The test says when an hour is over.
    void tellsTheSumOnceAnHourAndBeginsAnew()
    {
        const auto scheduler = new ZHandScheduler;
        ZPluginFixture plugin({scheduler}); // the fixture owns it
        QVERIFY(plugin.load(PLUGIN_FILE));
        plugin.call(m_rain, {{"mm", 2}});
        QCOMPARE(scheduler->tick(), 1);
        QVERIFY(plugin.log()->has("rain: 2 mm"));
        QCOMPARE(plugin.call(m_rain)["mm"].toInt(), 0);
    }

    // Several threads call meanwhile: no call is missed, and the file of the version before is unloaded.
    void isReplacedByItsNextVersion()
    {
        ZPluginFixture plugin;
        QVERIFY(plugin.load(PLUGIN_FILE));
        plugin.call(m_rain, {{"mm", 7}});
        QVERIFY(plugin.replace(NEXT_FILE, m_rain));
        QCOMPARE(plugin.call(m_rain), (QJsonObject{{"mm", 7}, {"version", 2}}));
    }

private:
    const QUrl m_rain{"//rain"};
};

QTEST_GUILESS_MAIN(RainTest)
#include "test_rain.moc"
