#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""run.py HOST PLUGINS [UNITTEST ARGUMENTS]: tries the page of a host, HOST, in a browser. The test plugins are in the
folder PLUGINS. Without a browser it fails: nobody else would notice that the page does not work.
"""
import sys
import tempfile
import unittest
from pathlib import Path

from browser import Browser
from glance import Glance
from host import Site
from keyboard import Keyboard
from lives import Growth, Lives
from looks import Looks
from pagetest import PageTest
from steering import Steering

SECTIONS = {
    "logger": {"debug": 1, "log": {"zdefault": 3}},
    "guard": {"probation": 3000},  # the shortest in which somebody can turn out to be unhealthy
    "schedule": [
        {"url": "//exhibit/later", "every": 3600000},
        {"url": "//nobody/there", "every": 50, "keep": True},
        {"url": "//exhibit/once", "every": 1, "repeat": False},
    ],
}


def main(host, plugins, *arguments):
    with tempfile.TemporaryDirectory() as folder:
        site = Site(host, folder, ["greeter", "exhibit", "guarded"], SECTIONS)
        for name, file in {"greeter": "greeter", "exhibit": "exhibit", "guarded": "guarded_Serve"}.items():
            site.deploy(Path(plugins) / f"lib{file}.so", f"lib{name}.so")
        browser = Browser()
        try:
            site.start()
            PageTest.host, PageTest.browser, PageTest.plugins = site, browser, Path(plugins)
            # In the order in which they are written: later ones find what earlier ones have done.
            suite = unittest.TestSuite(case(name) for case in (Glance, Steering, Keyboard, Looks, Growth, Lives)
                                       for name in vars(case) if name.startswith("test_"))
            result = unittest.TextTestRunner(verbosity=2, failfast="--failfast" in arguments).run(suite)
            if not result.wasSuccessful():
                print(site.written()[-8000:], file=sys.stderr)
            return 0 if result.wasSuccessful() else 1
        finally:
            browser.close()
            if site.process:
                site.process.kill()
                site.process.wait()


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
