# SPDX-License-Identifier: Apache-2.0
"""What can be seen without touching anything."""
import re

from host import await_
from pagetest import PageTest


class Glance(PageTest):
    def test_tells_that_the_host_is_healthy_and_which_versions_run(self):
        self.assertEqual(self.browser.text("state-badge"), "healthy")
        self.assertEqual(self.browser.text("name"), "greetings")
        self.assertRegex(self.browser.driver.title, "^healthy · greetings")
        self.browser.await_row("plugins-table", "libgreeter.so", "runs")
        self.assertIn("libgreeter.so", self.browser.row("services-table", "Greeter"))

    def test_tells_of_an_exchange_while_it_is_open(self):
        self.host.put(self.host.hot_deploy, self.plugins / "libgreeter.2.so")
        self.browser.await_row("plugins-table", "libgreeter.2.so", "runs")
        self.browser.await_row("services-table", "Greeter", "1 time")
        self.assertIn("GreeterPlugin of libgreeter.so", self.browser.row("services-table", "Greeter"))
        self.assertTrue([event for event in self.browser.texts("#events li")
                         if "exchanged" in event and "GreeterPlugin of libgreeter.2.so" in event])

    def test_tells_of_a_drop_a_refusal_and_a_version_that_is_taken_back(self):
        self.host.put(self.host.inbox, self.plugins / "libgreeter.2.so", "libgreeter.3.so")
        self.await_event("dropped libgreeter.3.so")
        damaged = self.host.folder / "damaged"
        damaged.write_text("no plugin at all")
        self.host.put(self.host.inbox, damaged, "libdamaged.so")
        self.await_event("refused libdamaged.so")
        await_(lambda: "good" in self.browser.row("plugins-table", "libguarded.so"), "a good version")
        self.host.put(self.host.hot_deploy, self.plugins / "libguarded_BeUnhealthy.so", "libguarded.2.so")
        self.await_event("taken back libguarded.2.so")
        self.browser.await_row("plugins-table", "libguarded.2.so", "quarantined")
        self.browser.await_text("attention", "libguarded.2.so is quarantined: ")

    def await_event(self, text):
        await_(lambda: [event for event in self.browser.texts("#events li") if text in event], f"the event {text}")

    def test_shows_the_events_that_are_chosen(self):
        self.choose("lately-kinds", "trouble")
        shown = self.browser.texts("#events .kind")
        self.assertIn("taken back", shown)
        self.assertNotIn("loaded", shown)
        self.choose("lately-kinds", "")
        self.assertIn("loaded", self.browser.texts("#events .kind"))

    def choose(self, id_, value):
        self.browser.run("""
            const list = document.getElementById(arguments[0]);
            list.value = arguments[1];
            list.dispatchEvent(new Event('change'));
        """, id_, value)

    def test_tells_what_is_scheduled_next_and_what_has_failed(self):
        self.assertRegex(self.browser.row("schedule-table", "//exhibit/later"), r"waiting.*in \d+ (min|h)")
        self.browser.await_row("schedule-table", "//nobody/there", "times in a row")
        self.browser.await_row("schedule-table", "//exhibit/once", "ended")
        self.browser.await_text("attention", "//nobody/there, failed ")
        self.assertIn("//nobody/there", self.browser.text("facts"))

    def test_tells_of_the_bus_past_the_process_once_a_plugin_takes_it_there(self):
        self.assertTrue(self.browser.run("return document.getElementById('bus').hidden"))
        self.host.put(self.host.hot_deploy, self.plugins / "libafar.so")
        self.browser.await_text("bus-facts", "connected to nats://127.0.0.1:4222")
        facts = self.browser.text("bus-facts")
        for expected in ("node6, in the domain shop", "120 calls, 4 failed, 1 under way; 0.5 ms in the middle",
                         "nobody 3, too late 1", "8 of 8 threads busy, 5 waiting", "report: this process has it"):
            self.assertIn(expected, facts)
        self.assertIn("4 ms behind", self.browser.row("bus-hosts", "node7"))
        self.assertEqual(self.browser.text("bus-count"), "1 host seen")

    def test_shows_the_log_as_it_comes_and_as_it_is_filtered(self):
        self.host.call("//exhibit/say", text="a line for the reader")
        await_(lambda: self.logged("a line for the reader"), "the line")
        self.browser.write("#log-filter", "FOR THE reader")
        await_(lambda: len(self.browser.texts("#log-lines li")) == 1, "one line alone")
        self.host.call("//exhibit/say", text="another line")
        self.host.call("//exhibit/say", text="one more for the reader")
        await_(lambda: self.logged("one more"), "the line that came while it was filtered")
        self.assertFalse(self.logged("another line"))
        self.browser.write("#log-filter", "")
        await_(lambda: self.logged("another line"), "the line that was left out")
        self.choose("log-severity", "3")
        self.assertFalse(self.logged("for the reader"))
        self.choose("log-severity", "7")

    def logged(self, text):
        return [line for line in self.browser.texts("#log-lines li") if text in line]

    def test_draws_figures_over_time(self):
        await_(lambda: self.browser.texts(".plot .value") and all(
            line and len(re.findall("[ML]", line)) > 2 for line in self.lines()), "three points in each plot")
        self.assertEqual(self.browser.texts(".plot h3"), ["Memory", "Threads", "CPU", "Loop delay"])
        self.assertRegex(self.browser.texts(".plot .value")[0], "MiB$")

    def lines(self):
        return self.browser.run(
            "return [...document.querySelectorAll('.plot .line')].map((line) => line.getAttribute('d'))")
