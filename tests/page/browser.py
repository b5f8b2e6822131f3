# SPDX-License-Identifier: Apache-2.0
"""A browser without a window, with the page in it."""
import base64
import shutil
import sys

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.keys import Keys
except ImportError:
    sys.exit("FAIL: the page cannot be tried without a browser: install python3-selenium")

from host import await_

OPTIONS = (
    "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
    "--disable-background-networking", "--disable-component-update", "--no-first-run", "--no-proxy-server",
)


def program(name):
    return shutil.which(name) or sys.exit(f"FAIL: the page cannot be tried without a browser: install {name}")


class Browser:
    def __init__(self):
        options = webdriver.ChromeOptions()
        options.binary_location = program("chromium")
        for option in OPTIONS:
            options.add_argument(option)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(options=options, service=Service(program("chromedriver")))
        self.tell("Page.addScriptToEvaluateOnNewDocument", source="""
            window.violations = [];
            document.addEventListener('securitypolicyviolation', ({blockedURI}) => violations.push(blockedURI));
            window.alert = (text) => violations.push(`alert ${text}`);
        """)
        self.resize(1280, 900)

    def close(self):
        self.driver.quit()

    def tell(self, command, **parameters):
        """To the browser itself, by its developers' protocol."""
        return self.driver.execute_cdp_cmd(command, parameters)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def resize(self, width, height, scale=1):
        self.tell("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=scale,
                  mobile=False)

    def prefer(self, scheme):
        self.tell("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
        await_(lambda: self.run("""
            return matchMedia(`(prefers-color-scheme: ${arguments[0]})`).matches &&
                getComputedStyle(document.body).color && document.getAnimations().length === 0""", scheme),
               f"it has come to rest, {scheme}")

    def open(self, address, token):
        """As somebody does who comes for the first time."""
        self.driver.get(address)
        self.await_dialog("token")
        self.press(token, Keys.ENTER)
        self.await_text("state-badge", "healthy")
        self.await_text("log-state", "live")

    # What there is

    def text(self, id_):
        return self.run("return document.getElementById(arguments[0]).textContent", id_)

    def texts(self, selector):
        return self.run("return [...document.querySelectorAll(arguments[0])].map((node) => node.textContent)", selector)

    def row(self, table, word):
        """The text of the row of a table that has `word` in it; empty if there is none."""
        return next((text for text in self.texts(f"#{table} tbody tr") if word in text), "")

    def await_text(self, id_, text):
        return await_(lambda: text in self.text(id_), f"{id_} tells {text}, but {self.text(id_)!r}")

    def await_row(self, table, word, text):
        return await_(lambda: text in self.row(table, word), f"{table} tells {text} of {word}")

    def await_dialog(self, id_, is_open=True):
        await_(lambda: self.run("return document.getElementById(arguments[0]).open", id_) == is_open,
               f"{id_} is {'open' if is_open else 'closed'}")

    def focus(self):
        """What has it: the id, or else the name."""
        return self.run("const {id, ariaLabel, textContent, tagName} = document.activeElement;"
                        "return id || ariaLabel || textContent.trim() || tagName")

    def await_focus(self, name):
        await_(lambda: self.focus() == name, f"the focus on {name}, which is on {self.focus()}")

    def complaints(self):
        """What the browser has written to its console since the last time, and what the page was kept from."""
        lines = [f"{line['level']} {line['message']}" for line in self.driver.get_log("browser")]
        return lines + self.run("return violations.splice(0)")

    # What somebody does

    def press(self, *keys):
        ActionChains(self.driver).send_keys(*keys).perform()

    def press_on(self, selector, *keys):
        """Where it has the focus; nothing is clicked."""
        self.run("document.querySelector(arguments[0]).focus()", selector)
        self.press(*keys)

    def write(self, selector, text):
        """In the place of what is there."""
        self.press_on(selector, "")
        ActionChains(self.driver).key_down(Keys.CONTROL).send_keys("a").key_up(Keys.CONTROL).perform()
        self.press(Keys.DELETE, text)

    def button(self, label):
        """The one of that name that can be seen."""
        return await_(lambda: self.run("""
            return [...document.querySelectorAll('button')].find((button) =>
                (button.ariaLabel ?? button.textContent) === arguments[0] && button.checkVisibility())""", label),
                      f"a button {label}")

    def click(self, label):
        self.button(label).click()

    def picture(self, file, clip=None):
        """What is in sight; or a part of the page, as {x, y, width, height}."""
        more = {"clip": {**clip, "scale": 1}, "captureBeyondViewport": True} if clip else {}
        data = self.tell("Page.captureScreenshot", format="png", **more)["data"]
        file.write_bytes(base64.b64decode(data))

    # What it takes

    def footprint(self):
        """Once everything is collected that can be: nodes, and bytes of the heap."""
        for _ in range(3):
            self.tell("HeapProfiler.collectGarbage")
        self.tell("Performance.enable")
        figures = {each["name"]: each["value"] for each in self.tell("Performance.getMetrics")["metrics"]}
        return {"nodes": figures["Nodes"], "listeners": figures["JSEventListeners"], "heap": figures["JSHeapUsedSize"]}

    def controls(self):
        """Each thing that can be used or read as a whole: its role and its name, as a screen reader tells them."""
        nodes = self.tell("Accessibility.getFullAXTree")["nodes"]
        return [(node["role"]["value"], node.get("name", {}).get("value", "")) for node in nodes
                if not node["ignored"]]
