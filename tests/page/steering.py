# SPDX-License-Identifier: Apache-2.0
"""What the buttons do: they ask, and then act."""
from selenium.webdriver.common.keys import Keys

from host import await_
from pagetest import PageTest


class Steering(PageTest):
    def entry(self, index):
        return self.host.report()["schedule"][index]

    def test_runs_an_entry_when_it_is_told_yes(self):
        before = self.entry(0)["runs"]
        self.browser.click("Run entry 0, //exhibit/later…")
        self.browser.await_dialog("question")
        self.assertEqual(self.entry(0)["runs"], before)
        self.confirm("Run //exhibit/later?")
        self.assertEqual(self.entry(0)["runs"], before + 1)
        self.browser.await_text("notice-text", "Entry 0, //exhibit/later, is run.")

    def test_does_nothing_when_it_is_told_no(self):
        for answer in (lambda: self.browser.click("Cancel"), lambda: self.browser.press(Keys.ESCAPE)):
            self.browser.click("Cancel entry 0, //exhibit/later…")
            self.browser.await_dialog("question")
            answer()
            self.browser.await_dialog("question", False)
        self.assertEqual(self.entry(0)["state"], "waiting")

    def test_cancels_an_entry_and_restarts_it(self):
        self.browser.click("Cancel entry 0, //exhibit/later…")
        self.confirm("Cancel //exhibit/later?")
        self.assertEqual(self.entry(0)["state"], "ended")
        self.browser.click("Restart entry 0, //exhibit/later…")
        self.confirm("Restart //exhibit/later?")
        await_(lambda: self.entry(0)["state"] == "waiting", "the entry waits again")

    def test_rolls_a_plugin_back(self):
        bad = "libguarded.4.so"
        self.host.put(self.host.hot_deploy, self.plugins / "libguarded_Serve.so", bad)
        await_(lambda: self.host.running("guarded") == bad, f"{bad} runs")
        self.browser.click("Roll back guarded…")
        self.assertEqual(self.host.running("guarded"), bad)
        self.confirm("Roll back guarded?")
        self.browser.await_text("notice-text", "guarded is rolled back: ")
        newer = self.browser.text("notice-text").split(" comes again as ")[1].rstrip(".")
        await_(lambda: self.host.running("guarded") == newer, f"{newer} runs")
        self.browser.await_row("plugins-table", newer, "runs")

    def test_has_an_older_version_released(self):
        self.host.put(self.host.hot_deploy, self.plugins / "libexhibit.so", "libexhibit.2.so")
        self.browser.await_row("plugins-table", "libexhibit.so", "older, still in memory")
        self.browser.click("Release older versions of exhibit…")
        self.confirm("Release exhibit?")
        self.browser.await_text("notice-text", "//exhibit of libexhibit.so")
        await_(lambda: "older" not in self.browser.row("plugins-table", "libexhibit.so"), "it has left memory")

    def test_calls_an_endpoint_when_it_is_told_yes(self):
        self.browser.click("Call //exhibit…")
        self.assertEqual(self.browser.focus(), "call-in")
        self.browser.write("#call-in", '{"text": "hello"}')
        self.browser.press_on("#call-url", Keys.ENTER)
        self.browser.await_dialog("question")
        self.assertIn('"text": "hello"', self.browser.text("question-more"))
        self.assertEqual(self.browser.text("call-result"), "")
        self.confirm("Call //exhibit?")
        self.assertIn("//exhibit has handled it", self.browser.text("call-result"))
        self.assertIn('"text": "hello"', self.browser.text("call-out"))

    def test_sends_nothing_that_is_no_object(self):
        for text in ("[1]", "{"):
            self.browser.write("#call-in", text)
            self.browser.press_on("#call-url", Keys.ENTER)
            self.assertNotEqual(self.browser.text("call-error"), "")
            self.assertEqual(self.browser.focus(), "call-in")
            self.browser.await_dialog("question", False)

    def test_asks_before_every_endpoint_is_called(self):
        self.browser.write("#call-in", "{}")
        self.browser.write("#call-url", "/nothing")
        self.browser.press_on("#call-url", Keys.ENTER)
        self.browser.await_dialog("question")
        self.assertIn("every endpoint is called", self.browser.text("question-text"))
        self.browser.press(Keys.ESCAPE)
        self.browser.await_dialog("question", False)

    def test_has_the_configuration_reloaded(self):
        self.browser.click("Reload…")
        self.confirm("Reload the configuration?")
        self.browser.await_text("notice-text", "told to reload")
