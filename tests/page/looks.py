# SPDX-License-Identifier: Apache-2.0
"""How the page looks: at which width, by day and by night, and out of what."""
from host import await_
from pagetest import IMAGE, SCRIPT, PageTest

# The texts whose contrast is less than what people with weak sight can read, which is 4.5.
FAINT = """
    const parts = (colour) => (([r, g, b, a = 1]) => [r, g, b, a])(colour.match(/[\\d.]+/g).map(Number));
    const light = (part) => (part /= 255) <= .03928 ? part / 12.92 : ((part + .055) / 1.055) ** 2.4;
    const luminance = ([r, g, b]) => .2126 * light(r) + .7152 * light(g) + .0722 * light(b);
    const ground = (node) => {
        const rectangle = node.closest('svg') && node.parentElement.querySelector('rect');
        const fill = rectangle && getComputedStyle(rectangle).fill;
        for (let colour = fill && fill !== 'none' ? parts(fill) : [0, 0, 0, 0];; node = node.parentElement) {
            if (colour[3] > .99)
                return colour;
            colour = parts(getComputedStyle(node).backgroundColor);
        }
    };
    const texts = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
    const faint = [];
    while (texts.nextNode()) {
        const node = texts.currentNode.parentElement;
        if (!texts.currentNode.textContent.trim() || !node.checkVisibility())
            continue;
        const {fill, color} = getComputedStyle(node);
        const both = [parts(node.closest('svg') ? fill : color), ground(node)].map(luminance);
        const [dark, bright] = both.sort((a, b) => a - b);
        if ((bright + .05) / (dark + .05) < 4.5)
            faint.push(texts.currentNode.textContent);
    }
    return faint;
"""


class Looks(PageTest):
    def open_all(self):
        self.browser.run("""
            for (const each of document.querySelectorAll('details'))
                each.open = true;
            if (document.getElementById('detail').hidden)
                document.querySelector('[title="libexhibit.2.so"]').click();
        """)

    def test_shows_the_detail_of_a_plugin_and_who_holds_it(self):
        self.open_all()
        picture = " ".join(self.browser.texts("#detail-picture svg g"))
        self.assertIn("an endpoint at //exhibit", picture.replace("  ", " "))
        self.assertIn("an activity", picture)
        self.assertEqual(self.browser.run("return document.querySelectorAll('#detail-picture svg path').length"), 3)
        self.assertIn("left null", self.browser.row("detail-components", "Versioned"))
        self.assertIn("given", self.browser.row("detail-components", "zLogger"))
        self.browser.run("document.querySelector('#plugins-table [title^=\"libgreeter.3\"]').click()")
        await_(lambda: "given to Exhibit of libexhibit.2.so" in self.browser.text("detail-picture"), "who is given it")
        self.browser.run("document.querySelector('[title=\"libexhibit.2.so\"]').click()")

    def test_needs_no_sideways_scroll(self):
        self.open_all()
        for width in (320, 360, 768, 1100, 1280, 1920):
            with self.subTest(width=width):
                self.browser.resize(width, 900)
                await_(lambda: self.browser.run("return innerWidth") == width, "the width")
                self.assertLessEqual(self.browser.run("return document.documentElement.scrollWidth"), width)
                self.assertEqual(self.browser.run("""
                    return [...document.querySelectorAll('main *')].filter((node) => node.checkVisibility() &&
                        !node.closest('.unseen, thead, .scroll, svg') && node.getBoundingClientRect().right >
                            node.closest('.card, .plots, main').getBoundingClientRect().right + 1)
                        .map((node) => node.outerHTML.slice(0, 120))"""), [])
        self.browser.resize(1280, 900)

    def test_can_be_read_by_day_and_by_night(self):
        self.open_all()
        grounds = set()
        for scheme in ("light", "dark"):
            with self.subTest(scheme=scheme):
                self.browser.prefer(scheme)
                grounds.add(self.browser.run("return getComputedStyle(document.body).backgroundColor"))
                self.assertEqual(self.browser.run(FAINT), [])
        self.assertEqual(len(grounds), 2)
        self.browser.prefer("light")

    def test_loads_nothing_from_elsewhere(self):
        urls = self.browser.run("return performance.getEntriesByType('resource').map(({name}) => name)")
        self.assertTrue(urls)
        self.assertEqual([url for url in urls if not url.startswith(self.host.address)], [])

    def test_shows_markup_as_text(self):
        self.host.call("//exhibit/say", text=f"{IMAGE} {SCRIPT}")
        self.host.put(self.host.hot_deploy, self.plugins / "libecho.so", f"lib{IMAGE}.so")
        self.browser.await_row("plugins-table", f"lib{IMAGE}.so", "runs")
        self.browser.await_row("endpoints-table", f"//exhibit/{SCRIPT}", "alive")
        self.browser.await_text("log-lines", f"{IMAGE} {SCRIPT}")
        self.browser.await_text("events", f"lib{IMAGE}.so")
        self.browser.run("document.querySelector(arguments[0]).click()", f'[title="lib{IMAGE}.so"]')
        self.assertIn(f"lib{IMAGE}.so", self.browser.text("detail-title"))
        self.browser.run("document.querySelector(arguments[0]).click()", f'[aria-label="Call //exhibit/{SCRIPT}…"]')
        self.assertEqual(
            self.browser.run("return document.querySelectorAll('body script, body img, body iframe').length"), 0)
