"""A lab of simulated TVs with its page, in a real browser."""
import os
import subprocess

from selenium import webdriver
from selenium.common.exceptions import (ElementClickInterceptedException, ElementNotInteractableException,
                                        StaleElementReferenceException)
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.utils import is_connectable
from selenium.webdriver.support.ui import WebDriverWait

from halcyon import DATA, Story, Tv

WAIT = 20  # seconds at most for a condition
REDRAWN = [ElementClickInterceptedException, ElementNotInteractableException, StaleElementReferenceException]


class LoopbackService(Service):
    """The driver at its address: Selenium calls it localhost, which not every machine can resolve."""

    @property
    def service_url(self):
        return f"http://127.0.0.1:{self.port}"

    def is_connectable(self):
        return is_connectable(self.port, "127.0.0.1")


def start_browser(scheme="dark", width=1280, height=800):
    options = webdriver.ChromeOptions()
    # By a pipe: the driver would look for the browser at localhost, too.
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
                     "--remote-debugging-pipe"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    browser = webdriver.Chrome(service=LoopbackService("/usr/bin/chromedriver"), options=options)
    # The size of the page, not of the window around it.
    browser.set_script_timeout(WAIT * 3)
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                            {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
    browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                            {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
    return browser


class Lab(Story):
    """TV a with a list of its own, TV b fresh from the factory, and a server of both."""

    def setUp(self):
        super().setUp()
        (self.folder / "lab").mkdir()
        self.a = self.make("a", DATA / "channels.conf")
        self.b = self.make("b", DATA / "factory.conf")
        self.port = 0
        self.serve()

    def make(self, name, channels):
        return Tv(self.folder, "lab/" + name, channels=channels, serial=name.upper())

    def serve(self):
        """Starts the server; the second time at the address that it had."""
        words = ["halcyon-tv", "serve", "--lab", "lab", "--cloud", "cloud", "--port", str(self.port)]
        self.server = subprocess.Popen(words, cwd=self.folder, text=True, stdout=subprocess.PIPE)
        self.addCleanup(self.stop)
        self.address = self.server.stdout.readline().strip()
        self.origin, self.token = self.address.split("/#")
        self.port = int(self.origin.rsplit(":", 1)[1])

    def stop(self):
        if self.server.poll() is None:
            self.server.terminate()
            self.server.communicate(timeout=WAIT)


class Page(Lab):
    """With the page open in a browser, which is started once for all tests."""
    browser = None

    @classmethod
    def setUpClass(cls):
        cls.browser = start_browser()
        cls.addClassCleanup(cls.browser.quit)

    def setUp(self):
        super().setUp()
        self.addCleanup(self.leave)
        self.browser.get(self.address)
        self.browser.execute_script("sessionStorage.removeItem('tab'); localStorage.clear()")
        self.resize(1280, 800)
        self.media(prefers_color_scheme="dark")
        self.choose("b")

    def leave(self):
        """Before the server ends, so that no test hears of another's."""
        first, *others = self.browser.window_handles
        for window in others:
            self.browser.switch_to.window(window)
            self.browser.close()
        self.browser.switch_to.window(first)
        self.browser.get("about:blank")
        self.browser.get_log("browser")

    def until(self, condition, message=""):
        wait = WebDriverWait(self.browser, WAIT, poll_frequency=0.05, ignored_exceptions=REDRAWN)
        return wait.until(lambda _: condition(), message)

    def all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.browser.execute_script("return document.querySelector(arguments[0])?.innerText ?? ''", selector)

    def until_text(self, selector, text):
        self.until(lambda: text in self.text(selector), f"no {text!r} in {selector}: {self.text(selector)!r}")

    def click(self, selector):
        def clicked():
            found = [element for element in self.all(selector) if element.is_displayed() and element.is_enabled()]
            if found:
                found[0].click()
            return bool(found)
        self.until(clicked, f"nothing to click at {selector}")

    def type(self, selector, text):
        def typed():
            found = self.all(selector)
            if found:
                found[0].send_keys(text)
            return bool(found)
        self.until(typed, f"nothing to type into at {selector}")

    def choose(self, tv):
        self.click(f"[data-key='tv-{tv}']")
        self.until(lambda: f"{tv} as its owner sees it" in self.browser.execute_script(
            "return document.querySelector('#tv-title')?.textContent ?? ''"))
        self.until(lambda: self.all("#tv .rows li"))

    def running(self, tv, *words):
        """The command runs meanwhile; at the end, until it has ended."""
        environment = dict(os.environ, HALCYON_TV_HOME=str(tv.home), HALCYON_CLOUD=str(tv.cloud))
        return subprocess.Popen(["halcyon-tv", *words], env=environment, stdout=subprocess.DEVNULL)

    def tab(self, name):
        self.click(f"[data-key='tab-{name}']")

    def pause(self):
        """Until the page has drawn what it has got."""
        self.browser.execute_async_script("requestAnimationFrame(() => requestAnimationFrame(arguments[0]))")

    def arm(self, call, failure):
        self.tab("faults")
        self.type("[data-key='find-call']", call.split("::")[-1])
        self.click(f"[aria-label='Arm {call} {failure}']")
        self.until_text("[data-key='tab-faults']", "armed")

    def media(self, **features):
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": name.replace("_", "-"), "value": value} for name, value in features.items()]})

    def resize(self, width, height, scale=1):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": scale, "mobile": False})

    def channels(self):
        return [line for line in self.text("#tv .rows").splitlines() if line]

    def launch(self, operation):
        self.click(f"[data-key='{operation}']")

    def problems(self):
        """The browser's complaints, except those about a server that is gone."""
        return [entry["message"] for entry in self.browser.get_log("browser")
                if "ERR_CONNECTION" not in entry["message"] and "ERR_INCOMPLETE" not in entry["message"]
                and "the server responded with a status of 4" not in entry["message"]]
