"""The documentation as a site: nothing leads nowhere, and it is searched without a server."""
import importlib.machinery
import importlib.util
import pathlib
import shutil
import subprocess
import unittest

from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

from browser import WAIT, start_browser
from halcyon import ROOT, Story

loader = importlib.machinery.SourceFileLoader("site_script", str(ROOT / "scripts/site"))
site = importlib.util.module_from_spec(importlib.util.spec_from_loader("site_script", loader))
loader.exec_module(site)


class Site(Story):
    def test_it_names_what_leads_nowhere(self):
        (self.folder / "README.md").write_text(
            "# A\n\n[b](b.md#there-x) [c](b.md#missing) [d](d.md) [e](#nowhere)\n\n"
            "<img src='https://example.org/x.png'>\n\n## Documentation\n\n- [b](b.md)\n")
        (self.folder / "b.md").write_text("# B\n\n## There `x`\n\n[up](README.md#documentation)\n")
        (self.folder / "orphan.md").write_text("# C\n")
        self.assertEqual(site.build(self.folder, self.folder / "site", {}), [
            "README.md: no file d.md", "orphan.md: nothing leads there from the README",
            "index.html: no heading #missing in b.html",
            "index.html: no file d.md", "index.html: no heading #nowhere in index.html",
            "index.html: loads https://example.org/x.png"])
        self.assertIn('["b.html", "B", "there-x", "There x", "up"]', (self.folder / "site/sections.js").read_text())

    def test_it_is_whole_and_can_be_searched_from_files(self):
        programs = pathlib.Path(shutil.which("halcyon-manual")).parent
        built = subprocess.run(["/usr/bin/python3", ROOT / "scripts/site", programs, self.folder / "site"],
                               capture_output=True, text=True, check=False)
        self.assertEqual((built.returncode, built.stderr), (0, ""))
        browser = start_browser(width=390)
        self.addCleanup(browser.quit)
        browser.get((self.folder / "site/docs/testing.html").as_uri())
        browser.find_element(By.TAG_NAME, "body").send_keys("/")
        browser.switch_to.active_element.send_keys("fault add call failure")
        first = WebDriverWait(browser, WAIT).until(lambda _: browser.find_elements(By.CSS_SELECTOR, "header li a"))[0]
        self.assertEqual(first.text, "halcyon-tv(1): halcyon-tv fault add")
        first.click()
        WebDriverWait(browser, WAIT).until(lambda _: "man/halcyon-tv.html#halcyon-tv-fault-add" in browser.current_url)
        for page in sorted((self.folder / "site").rglob("*.html")):
            browser.get(page.as_uri())
            wide = browser.execute_script("return document.documentElement.scrollWidth - innerWidth")
            self.assertLessEqual(wide, 0, page)
        self.assertEqual(browser.get_log("browser"), [])


if __name__ == "__main__":
    unittest.main()
