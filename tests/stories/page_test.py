"""The page in a browser, as people use it."""
import re
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
  if (!own || !element.checkVisibility() || element.closest(":disabled, .unseen, .later, noscript, .screen")) continue;
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


# Ten times: until the replay has hidden what comes later, and until it shows everything again.
REPLAYS = """
const done = arguments[0];
const press = (label) => document.querySelector(`[aria-label='${label}']`).click();
const hides = () => document.querySelector(".mark-button.later") !== null;
const until = (condition) => new Promise((resolve) => {
  const look = () => condition() ? resolve() : requestAnimationFrame(look);
  look();
});
(async () => {
  for (let i = 0; i < 10; i++) {
    press("Replay the run");
    await until(hides);
    if (i < 9) press("Stop the replay");
    await until(() => !hides() && document.querySelector("[aria-label='Replay the run']") !== null);
  }
  done();
})();
"""

ROWS = "return [...document.querySelectorAll('#tv .rows li')].map((row) => row.innerText.replaceAll('\\n', ' '))"


class Stories(Page):
    def listed(self):
        return self.browser.execute_script(ROWS)

    def test_back_one_tv_up_and_restore_another(self):
        self.choose("a")
        self.launch("backup")
        self.until_text("#verdict", "Everything is in the cloud")
        self.until_text("#panel", "verified")
        listed = self.listed()
        self.choose("b")
        self.assertNotEqual(self.listed(), listed)
        self.launch("restore")
        self.until_text("#verdict", "Everything is back")
        self.assertRegex(self.text("#verdict"), r"from backup 1, at \d+\.\d{3} s, call \d+ of \d+")
        self.assertRegex(self.text("#items"), r"channels\s+restored\s+15 channels")
        self.until(lambda: any(row.startswith("−") and "Welcome Channel" in row for row in self.listed()), "the marks")
        self.click("[data-key='marks']")
        self.until(lambda: self.listed() == listed, "the same list")
        self.tab("compare")
        self.click("[data-key='compare-now']")
        self.until_text("#panel", "Nothing differs")
        self.b.tv("set", "favname1", "Other")
        self.until_text("#panel", "favourites 1")
        self.b.tv("set", "favourite", 2, "add", 22, 1)
        self.b.tv("set", "lock", 22, "on")
        self.until_text("#panel", "favourite list 2")
        self.b.tv("set", "category", "1/2/0")
        self.until(lambda: self.listed() == ["22 Bergsport 24 favourite 2:1, locked · scrambled",
                                             "1 Nordlicht Eins favourite 2:2"], "the favourites in their order")
        self.assertEqual(self.problems(), [])

    def test_a_refused_restore_is_mended_by_its_remedy(self):
        self.a.tv("run", "-q")
        self.b.tv("set", "antenna", "0,2")
        self.until_text("#panel", "antenna differs")
        self.until_text("#tv", "terrestrial, satellite")
        self.launch("restore")
        self.until_text("#verdict", "The backup does not fit this TV")
        self.until_text("#verdict", "terrestrial (0), and this TV has terrestrial (0), satellite (2)")
        self.assertEqual(len(self.all(".caption.decisive")), 1)
        self.click("[data-key='remedy']")
        self.until_text("#verdict", "Everything is back")
        self.until_text("#panel", "verified")

    def test_from_the_verdict_to_the_event_to_the_remedy_by_keys(self):
        self.a.tv("run", "-q")
        self.until_text("#panel", "1")
        self.arm("CIM::ICIGeneral::BackupFileDone", "result=0")
        self.launch("restore")
        self.until_text("#verdict", "The CI files did not come back")
        self.until_text("[data-key='tab-faults']", "armed")
        self.until_text("#event", "BackupFileDone(")
        self.assertIn("fault rule 1", self.text(".caption.decisive"))
        when = re.search(r"at [\d.]+ s, call \d+ of \d+", self.text("#verdict"))[0]
        focused = "return document.activeElement.dataset.key ?? ''"
        body = self.browser.find_element("tag name", "body")
        for _ in range(40):
            if self.browser.execute_script(focused) == "decided":
                break
            ActionChains(self.browser).send_keys(Keys.TAB).perform()
        ActionChains(self.browser).send_keys(Keys.ENTER).perform()
        self.until(lambda: self.all(".mark-button:focus[aria-label*=BackupFileDone]"))
        self.assertIn(when, self.text("#event"))
        self.assertRegex(self.browser.current_url, r"#/b/1/\d+$")
        ActionChains(self.browser).send_keys(Keys.ARROW_RIGHT).perform()
        self.until(lambda: when not in self.text("#event"), "the next event")
        ActionChains(self.browser).send_keys("d").perform()
        self.until_text("#event", when)
        body.send_keys(Keys.NULL)
        for _ in range(40):
            if self.browser.execute_script(focused) == "remedy":
                break
            ActionChains(self.browser).key_down(Keys.SHIFT).send_keys(Keys.TAB).key_up(Keys.SHIFT).perform()
        ActionChains(self.browser).send_keys(Keys.ENTER).perform()
        self.until_text("#verdict", "Everything is back")
        self.assertEqual(self.b.tv("fault", "list", "--json").json["rules"], [])

    def test_what_one_does_outlives_what_happens_elsewhere(self):
        """A click, a draft, a selection, the focus and the place in a list."""
        for _ in range(3):
            self.a.tv("run", "-q")
        self.until(lambda: self.text("#panel").count("verified") == 3)
        button = self.all("[data-key='more-000002']")[0]
        mouse = ActionChains(self.browser)
        mouse.click_and_hold(button).perform()
        self.b.tv("set", "favname3", "Pressed")
        self.a.tv("run", "-q")
        self.until(lambda: len(self.browser.execute_async_script(
            "import('/state.js').then(({state}) => arguments[0](state.backups))")) == 4, "the event has come")
        ActionChains(self.browser).release().perform()
        self.until(lambda: self.all("[data-key='remove-000002']"), "the click")
        self.tab("setup")
        self.until(lambda: self.browser.execute_script(
            "return document.querySelector('[data-key=favname3]')?.value") == "Pressed")
        field = self.all("[data-key='favname1']")[0]
        field.send_keys(Keys.END, Keys.SHIFT, Keys.HOME)
        field.send_keys("Fam")
        self.browser.execute_script("document.querySelector('[data-key=favname1]').setSelectionRange(1, 2);"
                                    "const panel = document.querySelector('#tab-panel');"
                                    "panel.style.maxHeight = '160px'; panel.scrollTop = 40")
        self.b.tv("set", "favname2", "Elsewhere")
        self.a.tv("run", "-q")
        self.until(lambda: self.browser.execute_script(
            "return document.querySelector('[data-key=favname2]').value") == "Elsewhere")
        self.assertEqual(self.browser.execute_script(
            "const it = document.activeElement; return [it.dataset.key, it.value, it.selectionStart, it.selectionEnd,"
            "document.querySelector('#tab-panel').scrollTop > 0]"), ["favname1", "Fam", 1, 2, True])
        self.assertEqual(self.b.tv("status", "--json").json["favourites"][0], "Favourites 1", "nothing is saved yet")
        self.tab("cloud")
        self.assertEqual(self.b.tv("status", "--json").json["favourites"][0], "Favourites 1", "nor by leaving")
        self.tab("setup")
        self.type("[data-key='favname1']", Keys.END + " lists" + Keys.ENTER)
        self.until(lambda: self.b.tv("status", "--json").json["favourites"][0] == "Favourites 1 lists")

    def test_an_input_method_can_compose(self):
        self.type("[data-key='search']", Keys.NULL)
        compose = self.browser.execute_cdp_cmd
        for text in "に", "にほ", "にほん":
            compose("Input.imeSetComposition", {"text": text, "selectionStart": len(text), "selectionEnd": len(text)})
            self.b.tv("set", "favname1", text)
            self.pause()
        compose("Input.insertText", {"text": "日本"})
        value = "return document.querySelector('[data-key=search]').value"
        self.assertEqual(self.browser.execute_script(value), "日本")

    def test_seven_tabs_hang_nothing(self):
        for _ in range(6):
            self.browser.switch_to.new_window("tab")
            self.browser.get(self.address)
            self.resize(1280, 800)
            self.until_text("#connection", "connected")
        self.choose("a")
        self.launch("backup")
        self.until_text("#verdict", "Everything is in the cloud")
        self.browser.switch_to.window(self.browser.window_handles[0])
        self.until_text("[data-key='tab-cloud']", "1 backup")
        self.assertEqual(self.problems(), [])

    def test_a_replay_begins_each_time_and_ends_with_everything(self):
        self.launch("backup")
        self.until_text("#verdict", "Everything is in the cloud")
        for motion in "no-preference", "reduce":
            self.media(prefers_reduced_motion=motion)
            self.browser.execute_async_script(REPLAYS)

    def test_a_run_that_is_open_when_the_page_comes_is_followed(self):
        self.b.tv("fault", "add", "bnr_response", "delay=8000")
        with self.running(self.b, "run", "-q", "--realtime"):
            self.until_text("#verdict", "UNDER WAY")
            self.browser.refresh()
            self.until_text("#verdict", "UNDER WAY")
            self.until_text("#verdict", "waits for the cloud service's response")
            self.assertTrue(self.all("[data-key='backup']:disabled"))
        self.until_text("#verdict", "Everything is in the cloud")
        run = self.b.tv("record", "--json").json
        self.click("[data-key='details']")
        self.until(lambda: len(self.all(".mark-button")) == len(run["timeline"]), "each event once")

    def test_an_old_run_that_is_studied_stays(self):
        self.launch("backup")
        self.until_text("#verdict", "Everything is in the cloud")
        self.b.tv("run", "-q")
        self.until_text("[data-key='open-history']", "Run 2")
        self.tab("history")
        self.click("[data-key='show-run-1']")
        self.until_text("[data-key='open-history']", "Run 1")
        self.b.tv("run", "-q")
        self.until_text("[data-key='newer']", "Run 3 is newer")
        self.assertIn("Run 1", self.text("[data-key='open-history']"))
        self.click("[data-key='beside-2']")
        self.until_text("#side-by-side", "Run 2")
        self.browser.refresh()
        self.until_text("[data-key='open-history']", "Run 1")
        self.click("[data-key='tv-a']")
        self.until_text("#verdict", "Nothing has been run")
        self.browser.back()
        self.until_text("[data-key='open-history']", "Run 1")

    def test_a_broken_tv_leaves_the_others_alone(self):
        (self.folder / "lab/0").mkdir()
        (self.folder / "lab/0/tv.db").write_bytes(b"rubbish")
        self.until_text("[data-key='tv-0']", "broken")
        self.browser.get(self.origin + "/#/")
        self.browser.refresh()
        self.until(lambda: self.all("#tv .rows li"), "the first that can be read")
        self.click("[data-key='tv-0']")
        self.until_text("#verdict", "This TV cannot be read")
        self.choose("b")
        self.launch("backup")
        self.until_text("#verdict", "Everything is in the cloud")

    def test_a_launch_that_fails_is_a_verdict(self):
        self.launch("backup")
        self.until_text("#verdict", "Everything is in the cloud")
        (self.b.home / "runs").rename(self.b.home / "old-runs")
        (self.b.home / "runs").write_text("in the way")
        self.launch("backup")
        self.until_text("#verdict", "NOT STARTED")
        self.assertNotIn("Everything", self.text("#verdict"))

    def test_a_backup_older_than_the_twelfth_is_verified_when_it_is_seen(self):
        for _ in range(15):
            self.a.tv("run", "-q")
        bundle = next(self.folder.glob("cloud/*/*/000001/bundle.zip"))
        row = "tr:has([data-key='more-000001'])"
        self.browser.refresh()
        self.until_text("[data-key='tab-cloud']", "15 backups")
        self.until_text("#panel", "verified")
        self.assertIn("not looked at yet", self.text(row))
        self.browser.execute_script(f"document.querySelector(\"{row}\").scrollIntoView()")
        self.until_text(row, "verified")
        content = bundle.read_bytes()
        bundle.write_bytes(content[:-40])
        self.until_text(row, "damaged")
        self.click("[data-key='more-000001']")
        self.click("[data-key='remove-000001']")
        self.click("[data-key='remove-it']")
        self.until_text("[data-key='tab-cloud']", "14 backups")

    def test_each_command_line_is_of_its_own_action(self):
        for _ in range(2):
            self.a.tv("run", "-q")
        self.click("[data-key='more-000002']")
        self.until(lambda: self.all(".more"))
        lines = {"show": "bundle verify 000002", "compare": "diff 000002", "remove": "cloud remove 000002"}
        for word, line in lines.items():
            action = f".action:has([data-key='{word}-000002'])"
            self.assertTrue(self.text(f"{action} code").endswith(line), word)
        ActionChains(self.browser).move_to_element(self.all("[data-key='remove-000002']")[0]).move_to_element(
            self.all(".action:has([data-key='show-000002']) .command button")[0]).perform()
        self.assertTrue(self.text(".action:has([data-key='show-000002']) code").endswith("bundle verify 000002"))

    def test_a_damaged_zip_is_looked_into_before_it_comes_in(self):
        self.a.tv("run", "-q")
        bundle = next(self.folder.glob("cloud/*/*/000001/bundle.zip"))
        with zipfile.ZipFile(bundle) as old, zipfile.ZipFile(self.folder / "customer.zip", "w") as new:
            for entry in old.namelist():
                new.writestr(entry, b"rubbish" if entry == "issDB.zip" else old.read(entry))
        self.type("#file", str(self.folder / "customer.zip"))
        self.until_text("#dialog", "Damaged")
        self.assertIn("iss: ", self.text("#dialog .answer"))
        self.assertIn("A restore on b: ", self.text("#dialog .answer"))
        self.assertIn("+ added", self.text("#dialog .differences"))
        self.assertNotIn("whole", self.text("#dialog .entries"))
        self.assertEqual(len(self.a.tv("cloud", "list", "--json").json["backups"]), 1, "only looked at")
        self.click("[data-key='import']")
        self.until_text("[data-key='tab-cloud']", "2 backups")
        self.until_text("#panel", "iss database damaged")
        (self.folder / "no.zip").write_bytes(b"rubbish")
        self.type("#file", str(self.folder / "no.zip"))
        self.until_text("#dialog", "Damaged")
        self.assertNotIn("building", self.text("#dialog"), "the server's own folder")

    def test_a_drop_anywhere_stays_on_the_page(self):
        self.browser.execute_script("""
          const data = new DataTransfer();
          data.items.add(new File(["rubbish"], "dropped.zip"));
          for (const name of ["dragover", "drop"]) {
            window.prevented = !document.querySelector("header").dispatchEvent(
              new DragEvent(name, {dataTransfer: data, bubbles: true, cancelable: true}));
          }""")
        self.assertTrue(self.browser.execute_script("return window.prevented"))
        self.until_text("#dialog", "dropped.zip")

    def test_names_from_outside_are_text_alone(self):
        names = ["<img src=x onerror=document.title='harmed'>", "abc\u202edcba", "المفضلة", "👨\u200d👩\u200d👧 TV",
                 "a\u2028b"]
        with open(self.folder / "list.conf", "w") as file:
            for i, name in enumerate(names):
                file.write(f"{name}:11361:HC23:S19.2E:22000:101=27:102:0:0:{i + 1}:1:1:0\n")
        c = self.make("c", self.folder / "list.conf")
        self.choose("c")
        for name in names[0], "abc\\u{202e}dcba", names[2], names[3], "a\\u{2028}b":
            self.assertIn(name, self.text("#tv .rows"))
        self.assertEqual(self.all("#tv img"), [])
        self.assertEqual(self.browser.title, "Halcyon Lineup")
        c.tv("set", "favname3", "المفضلة")
        self.a.tv("run", "-q")
        self.tab("compare")
        self.b.tv("set", "favname3", "المفضلة")
        self.browser.execute_script("""
          for (const [key, value] of [["left", "tv:a"], ["right", "tv:b"]]) {
            const select = document.querySelector(`[data-key=${key}]`);
            select.value = value;
            select.dispatchEvent(new Event("change"));
          }""")
        self.click("[data-key='compare-now']")
        self.until_text(".differences", "المفضلة")
        left, right = self.browser.execute_script("""
          const row = [...document.querySelectorAll(".differences tr")].find((each) =>
            each.innerText.includes("المفضلة"));
          return [...row.querySelectorAll("bdi")].map((each) => each.getBoundingClientRect().left)""")
        self.assertLess(left, right, "what it was stands before what it is")
        self.assertEqual(self.problems(), [])

    def test_a_server_that_comes_back_is_found(self):
        self.until_text("#connection", "connected")
        self.server.send_signal(signal.SIGKILL)
        self.server.communicate()
        self.until_text("#connection", "the server has gone")
        self.a.tv("run", "-q")
        self.serve()
        self.until_text("#connection", "connected")
        self.until_text("[data-key='tab-cloud']", "1 backup")

    def test_a_wrong_token_is_mended_in_the_same_tab(self):
        self.browser.get("about:blank")
        self.browser.get(self.origin + "/#0123")
        self.until_text("#connection", "the token is another")
        self.assertNotIn("0123", self.browser.current_url)
        self.browser.execute_script("location.hash = arguments[0]", self.token)
        self.until_text("#connection", "connected")
        self.assertNotIn(self.token, self.browser.current_url)

    def test_what_happens_elsewhere_is_seen(self):
        self.b.tv("run", "-q")
        self.until_text("#verdict", "Everything is in the cloud")
        self.until_text("[data-key='tv-b']", "done")
        self.b.tv("reset")
        self.until_text("#verdict", "Nothing has been run on this TV yet")
        self.make("c", DATA / "factory.conf")
        self.until_text("[data-key='tv-c']", "c · no run")
        for folder in self.folder.glob("cloud/*/*/000001"):
            folder.rename(self.folder / "away")
        self.until_text("[data-key='tab-cloud']", "0 backups")
        self.b.home.rename(self.folder / "b")
        self.until(lambda: not self.all("[data-key='tv-b']"))
        self.until(lambda: self.all("#tv .rows li"), "another one is shown")

    def test_fifty_thousand_channels_scroll(self):
        with open(self.folder / "long.conf", "w") as file:
            for i in range(50_000):
                file.write(f"Channel {i}:{10_000 + i // 60}:HC23:S19.2E:22000:101=27:102:0:0:"
                           f"{i % 60 + 1}:1:{i // 60 + 1}:0\n")
        self.make("c", self.folder / "long.conf")
        self.choose("c")
        self.assertIn("50,000 channels", self.text(".panel-head"))
        self.assertLess(len(self.all("#tv .rows li")), 60, "only what is visible is in the page")
        self.type("[data-key='rows']", Keys.END)
        self.until_text("#tv .rows", "Channel 49999")
        self.type("[data-key='search']", "channel 4242")
        self.until_text(".panel-head", "11 channels")
        self.assertEqual(self.browser.switch_to.active_element.get_attribute("data-key"), "search")

    def test_forced_colours_leave_every_event_in_sight(self):
        self.a.tv("run", "-q")
        self.b.tv("fault", "add", "IUtil::RestoreIssDbArchive", "result=0")
        self.until_text("#panel", "verified")
        self.launch("restore")
        self.until_text("#verdict", "did not come back")
        self.media(forced_colors="active")
        self.pause()
        for selector in ".mark-button.call", ".mark-button.decisive":
            colours = self.browser.execute_script("""
              const style = getComputedStyle(document.querySelector(arguments[0]), "::before");
              return [style.backgroundColor, getComputedStyle(document.querySelector(".lane")).backgroundColor,
                getComputedStyle(document.body).backgroundColor]""", selector)
            self.assertNotIn(colours[0], colours[1:], selector)
        picture = self.all(".lane-row")[3].screenshot_as_png
        self.media(forced_colors="active", prefers_color_scheme="light")
        self.browser.execute_script("document.querySelectorAll('.mark-button').forEach((mark) => mark.remove())")
        self.assertNotEqual(self.all(".lane-row")[3].screenshot_as_png, picture, "the events are to be seen")

    def test_everything_has_a_name_and_enough_contrast_and_a_key(self):
        self.a.tv("run", "-q")
        self.b.tv("fault", "add", "IUtil::RestoreIssDbArchive", "result=0")
        self.until_text("#panel", "verified")
        self.launch("restore")
        self.until_text("#verdict", "did not come back")
        reached = set()
        for tab in "cloud", "faults", "compare", "history", "log", "setup", "snapshots":
            self.tab(tab)
            self.pause()
            for scheme in "dark", "light":
                self.media(prefers_color_scheme=scheme)
                self.assertEqual(self.browser.execute_script(CONTRAST), [], f"{tab} {scheme}")
            self.assertEqual(self.browser.execute_script(UNNAMED), [])
        self.tab("cloud")
        for _ in range(60):
            ActionChains(self.browser).send_keys(Keys.TAB).perform()
            reached.add(self.browser.execute_script(
                "const e = document.activeElement; return e.matches('.mark-button') ? 'event' : e.dataset.key ?? e.id"))
        controls = {"backup", "restore", "rows", "search", "replay", "event", "file", "decided", "restore-000001"}
        self.assertLessEqual(controls, reached)
        for width in 390, 768, 1024, 1280, 1920, 3840:
            self.resize(width, 800)
            self.pause()
            self.assertLessEqual(self.browser.execute_script("return document.documentElement.scrollWidth"), width)


class Size(unittest.TestCase):
    def test_all_files_of_the_page_stay_small(self):
        files = list((DATA.parent / "simulator/web/page").iterdir())
        self.assertLess(sum(file.stat().st_size for file in files), 160_000)


if __name__ == "__main__":
    unittest.main()
