"""Pictures of the page in its states, to be looked at.
  shots.py FOLDER
"""
import pathlib
import sys
import unittest

from browser import Page

FOLDER = pathlib.Path(sys.argv.pop()) if len(sys.argv) == 2 else pathlib.Path("shots")
SIZES = [(1280, 800), (1920, 1080)]


class Shots(Page):
    def shoot(self, name, whole=True):
        """The page in both sizes and both schemes; `whole`: with what is below the window's edge."""
        for width, height in SIZES:
            for scheme in "dark", "light":
                self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
                    {"name": "prefers-color-scheme", "value": scheme},
                    {"name": "prefers-reduced-motion", "value": "reduce"}]})
                self.resize(width, height)
                tall = self.browser.execute_script("return document.documentElement.scrollHeight")
                self.resize(width, max(height, tall) if whole else height)
                self.browser.execute_script("dispatchEvent(new Event('resize'))")
                self.browser.save_screenshot(str(FOLDER / f"{name}-{width}-{scheme}.png"))

    def resize(self, width, height):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def test_each_state(self):
        self.shoot("empty")
        self.a.tv("set", "favname2", "News & Sport")
        self.a.tv("set", "service", "8")
        self.a.tv("set", "category", "1/2/0")
        self.a.tv("run", "-q")
        self.until_text("#cloud", "verified")
        self.type("[data-key='find-call']", "BackupFileDone")
        self.click("[aria-label='CIM::ICIGeneral::BackupFileDone result=0']")
        self.until_text("#faults", "1 rule armed")
        self.launch("restore")
        self.until_text("#run", "Done in part")
        self.until(lambda: len(self.all(".event.fault.decisive")) == 1)
        self.browser.execute_script("document.querySelector('.event.fault').focus({preventScroll: true})")
        self.click("[data-key='compare-now']")
        self.until_text("#compare", "~ differs")
        self.shoot("in-part")
        self.shoot("in-part-window", whole=False)
        self.b.tv("set", "antenna", "0,2")
        self.until_text("#tv", "terrestrial, satellite")
        self.click("summary")
        self.launch("restore")
        self.until_text("#run", "Refused")
        self.shoot("refused")
        self.click("[data-key='show-000001']")
        self.until_text("#dialog", ": refused: ")
        self.shoot("bundle", whole=False)


if __name__ == "__main__":
    FOLDER.mkdir(parents=True, exist_ok=True)
    unittest.main(argv=sys.argv[:1])
