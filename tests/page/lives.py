# SPDX-License-Identifier: Apache-2.0
"""A host that asks for its token, one that goes and comes back, and one that changes for a long time."""
from selenium.webdriver.common.keys import Keys

from host import TOKEN
from pagetest import PageTest

EXCHANGES, REPORTS = 1000, 100
SLACK = 1024 * 1024  # bytes; the plots have room for more points, and the driver's scripts stay


class Growth(PageTest):
    def test_does_not_grow_by_a_thousand_exchanges(self):
        self.host.call("//exhibit/exchange", times=1200)  # more than the host and the page keep of it
        for _ in range(25):
            self.host.call("//exhibit/say", text="one of many", times=100)
        self.browser.await_text("log-note", "the last of many")
        self.follow()
        before = self.browser.footprint()
        done = 0
        while done < EXCHANGES or self.browser.run("return reports") < REPORTS:
            for _ in range(50):
                self.host.call("//exhibit/exchange", times=2)
            done += 100
        self.follow()
        after = self.browser.footprint()
        self.assertLessEqual(after["nodes"], before["nodes"] + 200, (before, after))
        self.assertLessEqual(after["listeners"], before["listeners"] + 10, (before, after))
        self.assertLessEqual(after["heap"], before["heap"] + SLACK, (before, after))

    def follow(self):
        """Has the page ask at once, again and again, as if somebody came back to look, and waits until it knows all."""
        self.browser.run("""
            clearInterval(window.looks);
            window.reports = 0;
            window.looks = setInterval(() => document.dispatchEvent(new Event('visibilitychange')), 50);
            window.watch ??= new PerformanceObserver((list) => {
                reports += list.getEntries().filter(({name}) => name.endsWith('/v1/report')).length;
            });
            watch.observe({type: 'resource'});
        """)
        count = next(each["exchanges"] for each in self.host.report()["services"] if each["interface"] == "ZTempFile")
        self.browser.await_row("services-table", "ZTempFile", f"{count} times")


class Lives(PageTest):
    def complaints(self):
        """A browser tells of each request that has failed, which is what happens here."""
        return [line for line in self.browser.complaints() if "Failed to load resource" not in line]

    def test_asks_for_the_token_until_it_is_the_right_one(self):
        first = self.browser.driver.current_window_handle
        self.browser.driver.switch_to.new_window("tab")
        try:
            self.browser.driver.get(self.host.address)
            self.browser.await_dialog("token")
            self.browser.await_text("state-badge", "locked")
            self.browser.press(TOKEN[:-1], Keys.ENTER)
            self.browser.await_text("token-error", "does not take this token")
            self.browser.press(Keys.ESCAPE)
            self.browser.await_dialog("token", False)
            self.browser.click("Give the token…")
            self.browser.await_dialog("token")
            self.browser.press(TOKEN, Keys.ENTER)
            self.browser.await_text("state-badge", "healthy")
            self.browser.await_text("log-state", "live")
            self.browser.driver.refresh()
            self.browser.await_text("state-badge", "healthy")
            self.assertEqual(self.browser.run("return [localStorage.length, document.cookie]"), [0, ""])
        finally:
            self.browser.driver.close()
            self.browser.driver.switch_to.window(first)

    def test_tells_that_the_host_is_gone_and_goes_on_when_it_is_back(self):
        self.assertEqual(self.host.stop(), 0)
        self.browser.await_text("state-badge", "no answer")
        self.assertTrue(self.browser.run("return document.body.classList.contains('stale')"))
        self.host.start()
        self.browser.await_text("state-badge", "healthy")
        self.browser.await_text("notice-text", "The host was started anew")
        self.browser.await_text("log-state", "live")
        self.host.call("//exhibit/say", text="said in another life")
        self.browser.await_text("log-lines", "said in another life")
        self.assertFalse(self.browser.run("return document.body.classList.contains('stale')"))
