#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""pictures.py HOST PLUGINS FOLDER: takes the pictures of the page that are shown in the documentation, of a host with
the demo's plugins, which are in the folder PLUGINS. The host's own folders are in /tmp/app, for the page shows their names.
"""
import shutil
import sys
from pathlib import Path

from browser import Browser
from host import TOKEN, Site, await_

SECTIONS = {
    "logger": {"debug": 1, "log": {"zdefault": 3}},
    "guard": {"probation": 3000},
    "schedule": [{"url": "//clock", "every": 2000}, {"url": "//report/nightly", "every": 5000, "keep": True}],
}
APP = Path("/tmp/app")


def take(browser, folder):
    browser.resize(1280, 800)
    browser.prefer("light")
    browser.picture(folder / "page.png")
    browser.prefer("dark")
    browser.picture(folder / "page-dark.png")
    browser.prefer("light")
    browser.resize(390, 844)
    browser.picture(folder / "page-phone.png")
    browser.resize(1280, 800)
    browser.run("document.querySelector('[title=\"libjsonlog.2.so\"]').click()")
    clip = browser.run("""
        const {x, y, width, height} = document.getElementById('plugins').getBoundingClientRect();
        return {x: x + scrollX - 8, y: y + scrollY - 8, width: width + 16, height: height + 16};""")
    browser.picture(folder / "page-detail.png", clip)


def main(host, plugins, folder):
    plugins, folder = Path(plugins), Path(folder)
    folder.mkdir(exist_ok=True)
    APP.mkdir()
    site = Site(host, APP, ["heartbeat", "clock"], SECTIONS)
    for name in ("heartbeat", "clock", "jsonlog"):
        site.deploy(plugins / f"lib{name}.so")
    site.plugins.insert(0, "jsonlog")
    browser = Browser()
    try:
        site.start()
        browser.resize(1280, 800)
        browser.open(site.address, TOKEN)
        browser.run("document.activeElement.blur()")
        for name in ("libjsonlog.2.so", "libclock.2.so"):
            await_(lambda plain=name.replace(".2", ""): "good" in browser.row("plugins-table", plain), "a good version")
            site.put(site.inbox, plugins / name)
            browser.await_row("plugins-table", name, "good")
        # A curve takes its time.
        await_(lambda: browser.run("return document.querySelector('.plot .line').getAttribute('d').split('L').length")
               > 20, "some figures")
        take(browser, folder)
    finally:
        browser.close()
        if site.process:
            site.stop()
        shutil.rmtree(APP)


if __name__ == "__main__":
    main(*sys.argv[1:])
