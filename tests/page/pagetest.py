# SPDX-License-Identifier: Apache-2.0
"""What the tests of the page have in common: one host and one browser, which go through all of them."""
import unittest

from host import TOKEN

SCRIPT = "<script>alert(1)</script>"
IMAGE = "<img src=x onerror=alert(1)>"


class PageTest(unittest.TestCase):
    host = None
    browser = None
    plugins = None  # the folder of those that are built for tests

    @classmethod
    def setUpClass(cls):
        cls.browser.resize(1280, 900)
        cls.browser.prefer("light")
        if cls.browser.run("return location.origin + '/'") != cls.host.address:
            cls.browser.open(cls.host.address, TOKEN)
            cls.browser.complaints()  # of what was refused without the token

    def tearDown(self):
        self.assertEqual(self.complaints(), [], "what the browser complains of")

    def complaints(self):
        return self.browser.complaints()

    def confirm(self, question):
        """Answers the dialog that asks it."""
        self.browser.await_dialog("question")
        self.assertEqual(self.browser.text("question-title"), question)
        self.browser.button(self.browser.text("question-yes")).click()
        self.browser.await_dialog("question", False)
