// SPDX-License-Identifier: Apache-2.0
// Tests that fail, each for a reason of its own.
#include "folder.h"

#include <QTest>

#include <zdefaultloader.h>
#include <zpluginfixture.h>

namespace {

const QUrl Rain(QStringLiteral("//rain"));
const QUrl Count(QStringLiteral("//handed/count"));

/// Has no more calls handled once the next version is bound.
class ForgetfulBus : public ZTestBus
{
public:
    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override
    {
        if (url.host() == Count.host() && ++m_bound > 1)
            refuse(Count);
        return ZTestBus::bind0(url, subscriber);
    }

private:
    int m_bound = 0;
};

} // namespace

class Failures : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void configurationIsNoJson() { ZLiteralConfig config("{1"); }
    void configurationIsNoObject() { ZLiteralConfig config("[1]"); }
    void isNotThere()
    {
        ZPluginFixture plugin;
        plugin.load(QStringLiteral("/none/libnone.so"));
    }
    void doesNotLoad()
    {
        ZPluginFixture plugin;
        plugin.load(pluginFile(QStringLiteral("noroot")));
    }
    void isNotHandled()
    {
        ZPluginFixture plugin;
        plugin.call(Rain);
    }
    void hasNothingToReplace()
    {
        ZPluginFixture plugin;
        plugin.replace(pluginFile(QStringLiteral("plain")), Rain);
    }
    void hasNothingToLeave()
    {
        ZPluginFixture plugin;
        plugin.leavesMemory();
    }
    void missesFromTheBeginning() { replaceEcho(Rain); }
    void throwsWhereItIsCalled() { replaceEcho(QUrl(QStringLiteral("//echo/throw"))); }
    void throwsWhatItLikes() { replaceEcho(QUrl(QStringLiteral("//echo/odd"))); }
    void missesWhatTheTestCalls()
    {
        ZPluginFixture plugin;
        plugin.load(pluginFile(QStringLiteral("handed.1")));
        plugin.replace(pluginFile(QStringLiteral("handed.2")), [] { return false; });
    }
    void missesAsItIsReplaced()
    {
        ZPluginFixture plugin({new ForgetfulBus});
        plugin.load(pluginFile(QStringLiteral("handed.1")));
        plugin.replace(pluginFile(QStringLiteral("handed.2")), Count);
    }
    void isReplacedByWhatDoesNotLoad()
    {
        ZPluginFixture plugin;
        plugin.load(pluginFile(QStringLiteral("handed.1")));
        plugin.replace(pluginFile(QStringLiteral("noroot")), Count);
    }
    void staysBesideTheNext() { replaceEcho(QUrl(QStringLiteral("//echo"))); }
    void stays()
    {
        ZPluginFixture plugin;
        plugin.load(pluginFile(QStringLiteral("handed.1")));
        plugin.leavesMemory(1);
    }
    void staysToTheEnd()
    {
        ZPluginFixture plugin;
        plugin.load(pluginFile(QStringLiteral("nodelete")));
    }
    void takesNoLogger() { ZPluginFixture plugin({new ZRecordingLogger}); }
    void takesNoLoader() { ZPluginFixture plugin({new ZDefaultLoader}); }

private:
    static void replaceEcho(const QUrl &url)
    {
        const QString echo = pluginFile(QStringLiteral("echo"));
        ZPluginFixture plugin;
        plugin.load(echo);
        plugin.replace(echo, url);
    }
};

QTEST_GUILESS_MAIN(Failures)
#include "failures.moc"
