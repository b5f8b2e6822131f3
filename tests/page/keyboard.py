# SPDX-License-Identifier: Apache-2.0
"""The page without a mouse, and without sight."""
from selenium.webdriver.common.keys import Keys

from host import await_
from pagetest import PageTest

NAMED = {"button", "link", "textbox", "searchbox", "combobox", "checkbox", "spinbutton", "table", "region", "dialog",
         "log", "navigation", "image", "columnheader", "rowheader", "DisclosureTriangle", "heading"}


class Keyboard(PageTest):
    def test_comes_to_every_control_in_their_order(self):
        await_(self.walks_through_all, "by Tab each control comes after the one before it in the page")

    def walks_through_all(self):
        """False also where a button comes or goes meanwhile."""
        self.browser.press_on(".skip", "")
        self.browser.run("window.reached = [document.activeElement]")
        while self.browser.run("return reached[reached.length - 1] !== document.body"):
            self.browser.press(Keys.TAB)
            self.browser.run("""
                const node = document.activeElement;
                reached.push(reached.includes(node) ? document.body : node);""")
        return self.browser.run("""
            const controls = 'a[href], button, input, select, textarea, summary, [tabindex="0"]';
            const wanted = [...document.querySelectorAll(controls)].filter((node) => node.checkVisibility());
            reached.pop();
            return wanted.length > 20 && wanted.length === reached.length &&
                wanted.every((node, i) => node === reached[i]);""")

    def test_shows_where_the_focus_is(self):
        self.browser.press_on(".skip", Keys.TAB)
        self.assertNotEqual(self.browser.run("return getComputedStyle(document.activeElement).outlineStyle"), "none")

    def test_skips_to_the_contents(self):
        self.browser.press_on(".skip", Keys.ENTER)
        self.browser.await_focus("main")

    def test_asks_with_the_harmless_answer_first_and_gives_the_focus_back(self):
        run = '[aria-label="Run entry 0, //exhibit/later…"]'
        self.browser.press_on(run, Keys.ENTER)
        self.browser.await_dialog("question")
        self.browser.await_focus("question-no")
        self.browser.press(Keys.ESCAPE)
        self.browser.await_dialog("question", False)
        self.browser.await_focus("Run entry 0, //exhibit/later…")
        before = self.host.report()["schedule"][0]["runs"]
        self.browser.press(Keys.ENTER)
        self.browser.await_dialog("question")
        self.browser.press(Keys.TAB)
        self.browser.await_focus("question-yes")
        self.browser.press(Keys.ENTER)
        self.browser.await_dialog("question", False)
        self.browser.await_focus("Run entry 0, //exhibit/later…")
        self.assertEqual(self.host.report()["schedule"][0]["runs"], before + 1)

    def test_goes_on_to_the_button_that_takes_the_place_of_one(self):
        self.browser.press_on('[aria-label="Cancel entry 0, //exhibit/later…"]', Keys.ENTER)
        self.confirm("Cancel //exhibit/later?")
        self.browser.await_focus("Restart entry 0, //exhibit/later…")
        self.browser.press(Keys.ENTER)
        self.confirm("Restart //exhibit/later?")
        await_(lambda: self.host.report()["schedule"][0]["state"] == "waiting", "the entry waits again")

    def test_opens_the_detail_of_a_plugin_and_comes_back(self):
        self.browser.press_on('[title="libexhibit.2.so"]', Keys.ENTER)
        self.browser.await_focus("detail-title")
        self.browser.press(Keys.ESCAPE)
        self.assertTrue(self.browser.run("return document.getElementById('detail').hidden"))
        self.browser.await_focus("libexhibit.2.so")

    def test_has_a_name_for_everything(self):
        self.browser.run("for (const each of document.querySelectorAll('details')) each.open = true")
        self.browser.press_on('[title="libexhibit.2.so"]', Keys.ENTER)
        self.browser.await_focus("detail-title")
        controls = self.browser.controls()
        roles = {role for role, _ in controls}
        self.assertLessEqual({"button", "link", "textbox", "searchbox", "combobox", "checkbox", "spinbutton", "table",
                              "log", "image"}, roles)
        self.assertEqual([role for role, name in controls if role in NAMED and not name.strip()], [])
        self.browser.press(Keys.ESCAPE)

    def test_gives_its_dialogs_names(self):
        self.browser.click("Reload…")
        self.browser.await_dialog("question")
        self.assertIn(("dialog", "Reload the configuration?"), self.browser.controls())
        self.browser.press(Keys.ESCAPE)
        self.browser.await_dialog("question", False)
