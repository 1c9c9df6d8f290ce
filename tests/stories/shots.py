"""Pictures of the page in its states, to be looked at.
  shots.py FOLDER
"""
import pathlib
import shutil
import sys
import unittest
import unittest.mock

from browser import Page

FOLDER = pathlib.Path(sys.argv.pop()) if len(sys.argv) == 2 else pathlib.Path("shots")
SIZES = {"phone": (390, 844, 2), "tablet": (768, 1024, 1), "small": (1024, 768, 1), "window": (1280, 800, 1),
         "wide": (1920, 1080, 1), "4k": (3840, 2160, 1), "zoomed": (640, 400, 2)}
ALL = tuple(SIZES)


class Shots(Page):
    def setUp(self):
        # Its paths are in the pictures.
        place = pathlib.Path("/tmp/halcyon")
        shutil.rmtree(place, ignore_errors=True)
        with unittest.mock.patch("tempfile.mkdtemp", side_effect=lambda *_, **__: place.mkdir() or str(place)):
            super().setUp()

    def shoot(self, name, sizes=("window",), schemes=("dark", "light"), **features):
        self.pause()
        for size in sizes:
            for scheme in schemes:
                self.media(prefers_color_scheme=scheme, prefers_reduced_motion="reduce", **features)
                self.resize(*SIZES[size])
                self.pause()
                self.browser.save_screenshot(str(FOLDER / f"{name}-{size}-{scheme}.png"))
        self.resize(1280, 800)
        self.pause()

    def fail(self, *calls):
        for call in calls:
            self.b.tv("fault", "add", call, "result=0", "--times", "0")

    def test_1_empty(self):
        self.shoot("no-run")
        shutil.rmtree(self.a.home)
        shutil.rmtree(self.b.home)
        self.until_text("main", "There is no TV")
        self.shoot("no-tv")

    def test_2_a_restore(self):
        self.a.tv("set", "favname2", "News & Sport")
        self.a.tv("set", "favourite", 2, "add", *range(1, 6), *range(20, 23))
        self.a.tv("set", "lock", 22, "on")
        self.a.tv("set", "service", "8")
        self.a.tv("set", "category", "1/2/0")
        self.a.tv("run", "-q")
        self.until_text("#panel", "verified")
        self.fail("CIM::ICIGeneral::BackupFileDone")
        self.launch("restore")
        self.until_text("#verdict", "The CI files did not come back")
        self.shoot("in-part", ALL)
        self.shoot("forced-colours", schemes=("dark",), forced_colors="active")
        for tab in "faults", "history", "log", "setup", "snapshots":
            self.tab(tab)
            if tab == "faults":
                self.type("[data-key='find-call']", "vconf")
            self.browser.execute_script("document.querySelector('#panel').scrollIntoView()")
            self.shoot(f"tab-{tab}", schemes=("dark",))
        self.tab("compare")
        self.click("[data-key='compare-now']")
        self.until_text("#panel", "differs")
        self.browser.execute_script("document.querySelector('#panel').scrollIntoView()")
        self.shoot("tab-compare", schemes=("light",))
        self.browser.execute_script("scrollTo(0, 0)")
        self.tab("cloud")
        self.browser.execute_script("scrollTo(0, 0)")
        self.fail("IUtil::RestoreIssDbArchive", "vconf_set_str")
        self.launch("restore")
        self.until_text("#verdict", "Disarm rules 1, 2, 3")
        self.shoot("three-faults")
        self.click("[data-key='remedy']")
        self.until_text("#verdict", "Everything is back")
        self.shoot("done")
        self.b.tv("set", "antenna", "0,2")
        self.until_text("#tv", "terrestrial, satellite")
        self.launch("restore")
        self.until_text("#verdict", "does not fit")
        self.shoot("refused", ("window", "phone"))
        self.click("[data-key='more-000001']")
        self.click("[data-key='show-000001']")
        self.until_text("#dialog", "A restore on b: refused")
        self.shoot("bundle")

    def test_3_a_live_run(self):
        with self.running(self.b, "run", "-q", "--realtime"):
            self.until_text("#verdict", "waits for the cloud service's response")
            self.shoot("live", schemes=("dark",))
        self.server.kill()
        self.server.communicate()
        self.until_text("#connection", "the server has gone")
        self.shoot("lost", ("window", "phone"), schemes=("dark",))

    def test_4_many(self):
        for i in range(48):
            shutil.copytree(self.b.home, self.folder / f"lab/living-room-{i:02}")
        (self.folder / "lab/broken").mkdir()
        (self.folder / "lab/broken/tv.db").write_bytes(b"rubbish")
        self.a.tv("set", "favname1", "المفضلة")
        self.a.tv("set", "favourite", 1, "add", *range(1, 6), 20, 40, 41, 60)
        self.a.tv("set", "favname2", "מועדפים")
        for _ in range(30):
            self.a.tv("run", "-q")
        for number in 28, 29:
            for bundle in self.folder.glob(f"cloud/*/*/0000{number}/bundle.zip"):
                bundle.write_bytes(bundle.read_bytes()[:-90])
        self.until_text("[data-key='tab-cloud']", "30 backups")
        self.launch("restore")
        self.until_text("#verdict", "Everything is back")
        self.b.tv("set", "category", "1/1/0")
        self.until_text(".panel-head", "المفضلة")
        self.shoot("many", ("window", "wide", "phone"), schemes=("dark",))
        self.click("[data-key='all-tvs']")
        self.until_text("#dialog", "living-room-40")
        self.shoot("overview", schemes=("light",))
        self.click("[data-key='all-broken']")
        self.until_text("#verdict", "This TV cannot be read")
        self.shoot("broken", schemes=("dark",))


if __name__ == "__main__":
    FOLDER.mkdir(parents=True, exist_ok=True)
    unittest.main(argv=sys.argv[:1])
