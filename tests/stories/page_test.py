"""The page in a browser, as people use it."""
import signal
import unittest
import zipfile

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

from browser import Page
from halcyon import DATA

CONTRAST = """
const luminance = ([r, g, b]) => [r, g, b].map((c) => c / 255)
  .map((c) => c <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)
  .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
const parse = (text) => (text.match(/[\\d.]+/g) ?? []).map(Number);
const behind = (element) => {
  for (let each = element; each; each = each.parentElement) {
    if (getComputedStyle(each).backgroundImage !== "none") return null;  // a picture: looked at by eye
    const colour = parse(getComputedStyle(each).backgroundColor);
    if ((colour[3] ?? 1) === 1) return colour;
    if (colour[3] > 0) return null;
  }
  return [255, 255, 255];
};
const low = [];
for (const element of document.querySelectorAll("body *")) {
  const own = [...element.childNodes].some((node) => node.nodeType === 3 && node.data.trim());
  if (!own || !element.checkVisibility() || element.closest(":disabled, .unseen, .later, noscript")) continue;
  const back = behind(element);
  if (!back) continue;
  const [one, other] = [luminance(parse(getComputedStyle(element).color)), luminance(back)].sort((a, b) => b - a);
  const ratio = (one + 0.05) / (other + 0.05);
  const text = element.textContent.trim().slice(0, 40);
  if (ratio < 4.5) low.push(`${ratio.toFixed(2)} ${element.tagName}.${element.className}: ${text}`);
}
return low;
"""

UNNAMED = """
const named = "button, input, select, [role=listbox], [role=option], [role=switch], dialog";
const name = (element) => element.textContent.trim() || element.getAttribute("aria-label") || element.labels?.length ||
  element.getAttribute("aria-labelledby") || element.title;
return [...document.querySelectorAll(named)].filter((element) => element.checkVisibility() && !name(element))
  .map((element) => element.outerHTML);
"""


class Stories(Page):
    def test_back_one_tv_up_and_restore_another(self):
        self.choose("a")
        self.launch("backup")
        self.until_text("#run", "Done: everything is in the cloud")
        self.until_text("#cloud", "verified")
        listed = self.channels()
        self.choose("b")
        self.assertNotEqual(self.channels(), listed)
        self.launch("restore")
        self.until_text("#run", "Done: everything is back")
        self.assertRegex(self.text("#run"), r"channels\s+restored")
        self.click("[data-key='marks']")
        self.until(lambda: self.channels() == listed, "the same list")
        self.assertTrue(self.b.tv("diff", "lab/a"))
        self.click("[data-key='compare-now']")
        self.until_text("#compare", "Nothing differs")
        self.assertEqual(self.problems(), [])

    def test_a_refused_restore_is_mended_on_the_page(self):
        self.a.tv("run", "-q")
        self.b.tv("set", "antenna", "0,2")
        self.until_text("#cloud", "1 backup")
        self.until_text("#tv", "terrestrial, satellite")
        self.launch("restore")
        self.until_text("#run", "Refused: the backup does not fit this TV")
        self.until_text("#run", "terrestrial (0), and this TV has terrestrial (0), satellite (2)")
        self.until(lambda: len(self.all(".event.decisive")) == 1)
        self.click("summary")
        self.click("[data-key='antenna-2']")
        self.until_text("#tv details .command", "set antenna 0")
        self.launch("restore")
        self.until_text("#run", "Done: everything is back")

    def test_a_fault_makes_the_run_red_at_its_call(self):
        self.a.tv("run", "-q")
        self.until_text("#cloud", "1 backup")
        self.type("[data-key='find-call']", "BackupFileDone")
        self.click("[aria-label='CIM::ICIGeneral::BackupFileDone result=0']")
        self.until_text("#faults", "1 rule armed")
        self.launch("restore")
        self.until_text("#run", "Done in part: CI files did not come back")
        self.until(lambda: len(self.all(".event.fault.decisive")) == 1)
        self.until_text("#faults", "fired 1×")
        self.until(lambda: self.all(".event.fault[aria-label*=BackupFileDone]"))
        self.type(".event.fault", Keys.ARROW_RIGHT)
        self.until(lambda: "BackupFileDone fail" in self.text("#event"), "the next event by key")
        self.a.tv("run", "-q")
        self.until_text("#cloud", "2 backups")
        self.assertIn("BackupFileDone fail", self.text("#event"))
        self.browser.switch_to.active_element.send_keys(Keys.ARROW_LEFT)
        self.until(lambda: "BackupFileDone(" in self.text("#event"), "the event before by key")

    def test_a_damaged_zip_is_looked_into_before_it_comes_in(self):
        self.a.tv("run", "-q")
        bundle = next(self.folder.glob("cloud/*/*/000001/bundle.zip"))
        with zipfile.ZipFile(bundle) as old, zipfile.ZipFile(self.folder / "customer.zip", "w") as new:
            for entry in old.namelist():
                new.writestr(entry, b"rubbish" if entry == "issDB.zip" else old.read(entry))
        self.type("#file", str(self.folder / "customer.zip"))
        self.until_text("#dialog", "Damaged")
        self.assertIn("iss: ", self.text("#dialog .answer"))
        self.assertIn("metadata is not known", self.text("#dialog .answer"))
        self.assertIn("+ added", self.text("#dialog .differences"))
        self.assertEqual(len(self.a.tv("cloud", "list", "--json").json["backups"]), 1, "only looked at")
        self.click("#dialog .primary")
        self.until_text("#cloud", "2 backups")
        self.until_text("#cloud", "iss damaged")

    def test_names_from_outside_are_text_alone(self):
        names = ["<img src=x onerror=document.title='harmed'>", "abc\u202edcba"]
        with open(self.folder / "list.conf", "w") as file:
            for i, name in enumerate(names):
                file.write(f"{name}:11361:HC23:S19.2E:22000:101=27:102:0:0:{i + 1}:1:1:0\n")
        self.make("c", self.folder / "list.conf")
        self.browser.refresh()
        self.choose("c")
        self.assertIn(names[0], self.text("#tv .rows"))
        self.assertIn("abc\\u{202e}dcba", self.text("#tv .rows"))
        self.assertEqual(self.all("#tv img"), [])
        self.assertEqual(self.browser.title, "Halcyon Lineup")
        self.assertEqual(self.problems(), [])

    def test_a_server_that_comes_back_is_found(self):
        self.until_text("#connection", "connected")
        self.server.send_signal(signal.SIGKILL)
        self.server.communicate()
        self.until_text("#connection", "the server has gone")
        self.a.tv("run", "-q")
        self.serve()
        self.until_text("#connection", "connected")
        self.until_text("#cloud", "1 backup")

    def test_a_run_from_elsewhere_is_shown_as_it_happens(self):
        self.b.tv("run", "-q")
        self.until_text("#run", "Run 1 · backup · backup 1")
        self.until_text("#run", "Done: everything is in the cloud")

    def test_fifty_thousand_channels_scroll(self):
        with open(self.folder / "long.conf", "w") as file:
            for i in range(50_000):
                file.write(f"Channel {i}:{10_000 + i // 60}:HC23:S19.2E:22000:101=27:102:0:0:"
                           f"{i % 60 + 1}:1:{i // 60 + 1}:0\n")
        self.make("c", self.folder / "long.conf")
        self.browser.refresh()
        self.choose("c")
        self.assertIn("50,000 channels", self.text(".panel-head"))
        self.assertLess(len(self.all("#tv .rows li")), 60, "only what is visible is in the page")
        self.type("[data-key='rows']", Keys.END)
        self.until_text("#tv .rows", "Channel 49999")
        self.type("[data-key='search']", "channel 4242")
        self.until_text(".panel-head", "11 channels")
        self.assertEqual(self.browser.switch_to.active_element.get_attribute("data-key"), "search")

    def test_everything_has_a_name_and_enough_contrast_and_a_key(self):
        self.a.tv("run", "-q")
        self.b.tv("fault", "add", "IUtil::RestoreIssDbArchive", "result=0")
        self.until_text("#cloud", "verified")
        self.launch("restore")
        self.until_text("#run", "Done in part")
        self.click("summary")
        for scheme in "dark", "light":
            self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                         {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
            self.assertEqual(self.browser.execute_script(CONTRAST), [], scheme)
        self.assertEqual(self.browser.execute_script(UNNAMED), [])
        reached = set()
        for _ in range(80):
            ActionChains(self.browser).send_keys(Keys.TAB).perform()
            reached.add(self.browser.execute_script(
                "const e = document.activeElement; return e.matches('.event') ? 'event' : e.dataset.key ?? e.id"))
        controls = {"backup", "restore", "rows", "search", "scan", "replay", "event", "file", "find-call"}
        self.assertLessEqual(controls, reached)
        for width in 1024, 1280:
            self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                         {"width": width, "height": 800, "deviceScaleFactor": 1, "mobile": False})
            self.assertLessEqual(self.browser.execute_script("return document.documentElement.scrollWidth"), width)


class Size(unittest.TestCase):
    def test_all_files_of_the_page_stay_small(self):
        files = list((DATA.parent / "simulator/web/page").iterdir())
        self.assertLess(sum(file.stat().st_size for file in files), 120_000)


if __name__ == "__main__":
    unittest.main()
