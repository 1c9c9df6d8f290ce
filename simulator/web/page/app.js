// The page as a whole: its header, its cards, and the panel with the tabs.
import {listen, takeToken} from "./api.js";
import {Cloud, ofTv} from "./cloud.js";
import {Compare} from "./compare.js";
import {Dialog, Fragment, command, h, name, render, text} from "./elements.js";
import {Faults} from "./faults.js";
import {History} from "./history.js";
import {Items} from "./items.js";
import {choose, followAddress, on, readRuns} from "./lab.js";
import {Log} from "./log.js";
import {Setup, Snapshots} from "./setup.js";
import {changed, closeDialog, isBusy, openDialog, openTab, state, toast} from "./state.js";
import {Timeline, goToDecided, goToNextFault} from "./timeline.js";
import {TvCard} from "./tv.js";
import {Verdict} from "./verdict.js";
import {glyphOf, moment, plural, shown, toneOf} from "./words.js";

const CONNECTION = {
  connecting: "connecting", connected: "connected", lost: "the server has gone; start it again, this page will find it",
  refused: "the token is another; open the address that halcyon-tv serve has printed",
};
const MAX_TABS = 5;
const THEMES = ["auto", "dark", "light"];

function outcomeOf(tv) {
  if (tv.problem) return "broken";
  return isBusy(tv.tv) ? "open" : tv.newest?.outcome ?? (tv.newest ? "not judged" : "none");
}
const WORDS = {open: "running", none: "no run", "done in part": "in part"};
const wordOf = (tv) => WORDS[outcomeOf(tv)] ?? outcomeOf(tv);

const mark = (tv) => h("span", {class: toneOf(outcomeOf(tv)), "aria-hidden": "true"}, glyphOf(outcomeOf(tv)));

const tab = (tv) => h("button", {type: "button", key: tv.tv, class: "tv-tab", "data-key": `tv-${tv.tv}`,
  "aria-current": tv.tv === state.tv ? "true" : undefined, onclick: () => choose(tv.tv)},
mark(tv), " ", name(tv.name), h("span", {class: "muted"}, ` · ${wordOf(tv)}`));

// All TVs with how the last run of each ended.
function openOverview() {
  const view = {search: ""};
  openDialog(plural(state.lab.tvs.length, "TV"), () => {
    const found = state.lab.tvs.filter((tv) =>
      `${tv.name} ${wordOf(tv)}`.toLowerCase().includes(view.search.trim().toLowerCase()));
    return h("div", {},
      h("div", {class: "form"}, h("label", {}, h("span", {}, "Name or outcome"), h("input", {type: "search",
        "data-key": "find-tv", value: view.search,
        oninput: (event) => { view.search = event.target.value; changed(); }}))),
      h("div", {class: "overview"}, found.map((tv) => h("button", {type: "button", key: tv.tv, class: "tv-tab",
        "data-key": `all-${tv.tv}`, "aria-current": tv.tv === state.tv ? "true" : undefined,
        onclick: () => { closeDialog(); choose(tv.tv); }},
      mark(tv), " ", name(tv.name), h("span", {class: "muted"}, ` · ${wordOf(tv)}`)))));
  });
}

function tvs() {
  const all = state.lab?.tvs ?? [];
  const at = all.findIndex((tv) => tv.tv === state.tv);
  const first = Math.max(0, Math.min(at - 2, all.length - MAX_TABS));
  return h("nav", {id: "tvs", "aria-label": "TVs", class: all.length > 4 ? "many" : ""},
    all.slice(first, first + MAX_TABS).map(tab),
    all.length > MAX_TABS ? h("button", {type: "button", class: "quiet", "data-key": "all-tvs", onclick: openOverview},
      `All ${all.length} …`) : null,
    all.length ? h("select", {class: "narrow", "aria-label": "TV", value: state.tv,
      onchange: (event) => choose(event.target.value)}, all.map((tv) => h("option", {key: tv.tv, value: tv.tv,
      selected: tv.tv === state.tv}, `${glyphOf(outcomeOf(tv))} ${shown(tv.name)} · ${wordOf(tv)}`))) : null);
}

const themeNow = () => localStorage.getItem("theme") ?? "auto";
function setTheme(theme) {
  localStorage.setItem("theme", theme);
  document.documentElement.dataset.theme = theme;
  changed();
}

const KEYS = [["← →", "the event before, the next one"], ["↑ ↓", "the lane above, the one below"],
  ["Home End", "the first event, the last one"], ["F", "the next fault"], ["D", "the event that decided"],
  ["?", "these keys"]];

function openHelp() {
  openDialog("Halcyon Lineup", () => h("div", {},
    h("p", {class: "note"}, `Version ${state.lab?.version ?? ""}. The TVs are in `,
      h("code", {}, text(state.lab?.folder ?? "")),
      ", the cloud is ", h("code", {}, text(state.lab?.cloud ?? "")), "."),
    h("table", {}, h("tbody", {}, KEYS.map(([key, words]) => h("tr", {key}, h("th", {scope: "row"}, h("kbd", {}, key)),
      h("td", {}, words)))))));
}

async function copyLink() {
  await navigator.clipboard.writeText(location.href);
  toast("The link to this place is copied. It opens in a browser that has the token.");
}

function Header() {
  const {run, connection} = state;
  const theme = themeNow();
  return h("header", {}, h("h1", {}, "Halcyon Lineup"), tvs(),
    run ? h("button", {type: "button", class: "strong", "data-key": "open-history", onclick: () => showTab("history")},
      `Run ${run.run} · ${run.operation || "starting"} · ${moment(run.started).split(", ").at(-1)} ▾`) : null,
    h("button", {type: "button", class: "quiet wide-only", "data-key": "link", onclick: copyLink}, "Link"),
    h("button", {type: "button", class: "quiet", "data-key": "theme", "aria-label": `Theme: ${theme}`,
      onclick: () => setTheme(THEMES[(THEMES.indexOf(theme) + 1) % THEMES.length])}, `Theme: ${theme}`),
    h("button", {type: "button", class: "quiet icon", "data-key": "help", "aria-label": "Keys and version",
      onclick: openHelp}, "?"),
    h("p", {id: "connection", role: "status", class: connection}, CONNECTION[connection]));
}

const TABS = {
  cloud: [() => state.shown?.status ? `Cloud · ${plural(ofTv().length, "backup")}` : "Cloud", Cloud],
  faults: [() => state.shown?.rules?.length ? `Faults · ${state.shown.rules.length} armed` : "Faults", Faults],
  compare: [() => "Compare", Compare],
  history: [() => state.shown?.newest ? `History · run ${state.shown.newest.run}` : "History", History],
  log: [() => "Log", Log],
  setup: [() => "Set up", Setup],
  snapshots: [() => "Snapshots", Snapshots],
};

function showTab(id) {
  openTab(id);
  if (id === "history") readRuns();
  const panel = document.getElementById("panel");
  panel?.scrollIntoView({block: "nearest"});
}

function Tabs() {
  const [, Panel] = TABS[state.tab] ?? TABS.cloud;
  const ids = Object.keys(TABS);
  const onkeydown = (event) => {
    const step = {ArrowRight: 1, ArrowLeft: -1}[event.key];
    if (!step) return;
    showTab(ids[(ids.indexOf(state.tab) + step + ids.length) % ids.length]);
    queueMicrotask(() => queueMicrotask(() => document.getElementById(`tab-${state.tab}`)?.focus()));
  };
  return h("section", {id: "panel", class: "card"},
    h("div", {class: "tabs", role: "tablist", onkeydown}, ids.map((id) => h("button", {type: "button", role: "tab",
      key: id, id: `tab-${id}`, "data-key": `tab-${id}`, "aria-selected": String(id === state.tab),
      "aria-controls": "tab-panel",
      tabindex: id === state.tab ? 0 : -1, onclick: () => showTab(id)}, TABS[id][0]()))),
    h("div", {id: "tab-panel", class: state.tab, role: "tabpanel", "aria-labelledby": `tab-${state.tab}`}, h(Panel)));
}

function Empty() {
  const {lab, connection} = state;
  return h("section", {class: "card"}, h("div", {class: "head"}, h("h2", {}, lab ? "No TV yet" : "Looking for TVs …")),
    lab ? h("div", {}, h("p", {class: "empty"}, "There is no TV in ", h("code", {}, text(lab.folder)), ". Make one:"),
      command(["--home", `${lab.folder}/tv-1`, "init", "--channels", "FILE"]))
      : h("p", {class: "empty"}, connection === "connecting" ? "" : CONNECTION[connection]));
}

function Page() {
  const {dialog} = state;
  const close = () => { dialog.end?.(); if (state.dialog === dialog) closeDialog(); };
  return h(Fragment, {}, h("a", {class: "skip", href: "#timeline", onclick: (event) => {
    event.preventDefault();
    document.querySelector(".mark-button.current")?.focus();
  }}, "Skip to the timeline"), h(Header), state.lab && state.tv
    ? h("main", {}, h(Verdict), h(TvCard), h(Items), h(Timeline), h(Tabs)) : h("main", {}, h(Empty)),
  dialog ? h(Dialog, {title: text(dialog.title), close, key: dialog}, dialog.draw()) : null,
  h("div", {id: "toast", role: "alert", popover: "manual", ref: (toasting) => {
    if (state.toast) toasting?.showPopover?.();
  }}, text(state.toast)));
}

// Nothing moves away from under a pressed button: what happens meanwhile is drawn when it is released.
const MAX_PRESS = 3000;  // milliseconds
let pressed = 0;
let isWaiting = false;
function draw() {
  isWaiting = pressed !== 0;
  if (!isWaiting) render(h(Page), document.getElementById("page"));
}
function release() {
  clearTimeout(pressed);
  pressed = 0;
  if (isWaiting) draw();
}
addEventListener("pointerdown", ({target}) => {
  if (target.closest?.("button, a, label, li")) pressed = setTimeout(release, MAX_PRESS);
});
// After the click.
for (const event of ["pointerup", "pointercancel"]) addEventListener(event, () => setTimeout(release));

addEventListener("keydown", (event) => {
  const isTyping = event.target.closest?.("input, select, textarea, dialog");
  if (isTyping || event.altKey || event.ctrlKey || event.metaKey || event.isComposing) return;
  ({f: goToNextFault, d: goToDecided, "?": openHelp}[event.key.toLowerCase()])?.();
});
addEventListener("lab:changed", draw);
addEventListener("hashchange", () => {
  if (takeToken()) dispatchEvent(new Event("lab:token"));
  else if (state.lab) followAddress();
});
setTheme(themeNow());
takeToken();
draw();
listen(on);
