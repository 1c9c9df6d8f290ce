// The TV as its owner sees it, and its settings.
import {post} from "./api.js";
import {action, byId, checkbox, command, fill, following, h, plural, shown} from "./dom.js";
import {launch, refreshTv} from "./lab.js";
import {announce, attempt, place, state} from "./state.js";

const ROW = 28;  // pixels; the style sheet says the same
const [ID, NUMBER, NAME, KIND, GROUP, PROVIDER, IDENTITY, MARK] = [0, 1, 2, 3, 4, 5, 6, 7];
const GONE = "gone";  // the mark of a channel that is no longer in the list
const view = {search: "", top: 0, active: 0, rows: [], key: "", said: null, isOpen: false, reply: true};

const collator = new Intl.Collator("en", {sensitivity: "base"});

// The marks of what the last run changed, by identity.
function marksOf(changes) {
  const marks = new Map();
  for (const kind of ["added", "renamed", "changed", "moved", "renumbered"]) {
    for (const each of changes?.services[kind] ?? []) marks.set((each.right ?? each).identity, kind);
  }
  return marks;
}

const groupsOf = (rows) => [...new Set(rows.map((row) => row[GROUP]))].filter(Boolean);
const goneRow = ({id, number, name, type, group, provider, identity}) =>
  [id, number, name, type === "tv" ? "television" : type, group, provider, identity, GONE];

// The channels of the category, sorted; those that are gone stay in their old place.
function rowsOf() {
  const {viewing} = state.status;
  let rows = state.channels;
  if (viewing.category.code === 2) {
    const group = groupsOf(rows)[viewing.categoryParam - 1];
    rows = rows.filter((row) => row[GROUP] === group);
  }
  if (state.marks && state.changes) rows = rows.concat(state.changes.services.removed.map(goneRow));
  const key = {1: NAME, 2: PROVIDER}[viewing.sort.code];
  rows = [...rows].sort((a, b) => (key ? collator.compare(a[key], b[key]) : 0) || a[NUMBER] - b[NUMBER]);
  const wanted = view.search.trim().toLowerCase();
  const isWanted = (row) => `${row[NUMBER]} ${row[NAME]} ${row[PROVIDER]}`.toLowerCase().includes(wanted);
  return wanted ? rows.filter(isWanted) : rows;
}

function categoryName({category, categoryParam}) {
  if (category.code === 1) return `Favourites ${categoryParam} · ${state.status.favourites[categoryParam - 1] ?? ""}`;
  if (category.code === 2) return groupsOf(state.channels)[categoryParam - 1] ?? "group";
  return "All channels";
}

async function setValue(name, value) {
  await attempt(() => post(["tvs", state.tv, "set"], {name, value: String(value)}));
  await attempt(() => refreshTv({channels: false}));
  view.said = ["set", name, String(value)];
  announce("changed");
}

function watch(row) {
  if (row[MARK] !== GONE) setValue("service", row[ID]);
}

function drawRows(list) {
  const first = Math.max(0, Math.floor(list.scrollTop / ROW) - 4);
  const last = Math.min(view.rows.length, first + Math.ceil((list.clientHeight || 320) / ROW) + 8);
  const marks = state.marks ? marksOf(state.changes) : new Map();
  const items = list.firstElementChild;
  items.style.height = `${view.rows.length * ROW}px`;
  items.replaceChildren(...view.rows.slice(first, last).map((row, i) => {
    const index = first + i;
    const mark = row[MARK] ?? marks.get(row[IDENTITY]) ?? "";
    const isOn = row[ID] === state.status.viewing.serviceId && row[MARK] !== GONE;
    const element = h("li", {
      id: `row-${index}`, role: "option", "aria-selected": String(isOn),
      class: [mark, isOn ? "on" : "", index === view.active ? "active" : ""].join(" "),
      "aria-setsize": view.rows.length, "aria-posinset": index + 1,
      onclick: () => { view.active = index; watch(row); },
    }, h("span", {class: "number"}, String(row[NUMBER])), h("bdi", {class: "name"}, shown(row[NAME])),
    h("span", {class: "kind"}, mark ? `${row[KIND]} · ${mark}` : row[KIND]));
    element.style.top = `${index * ROW}px`;
    return element;
  }));
  list.setAttribute("aria-activedescendant", `row-${view.active}`);
}

function keyOn(list, event) {
  const step = {ArrowDown: 1, ArrowUp: -1, PageDown: 9, PageUp: -9, Home: -Infinity, End: Infinity}[event.key];
  if (step) {
    view.active = Math.min(Math.max(view.active + step, 0), view.rows.length - 1);
    const top = view.active * ROW;
    if (top < list.scrollTop) list.scrollTop = top;
    if (top + ROW > list.scrollTop + list.clientHeight) list.scrollTop = top + ROW - list.clientHeight;
    drawRows(list);
  } else if (event.key === "Enter" && view.rows[view.active]) {
    watch(view.rows[view.active]);
  } else {
    return;
  }
  event.preventDefault();
}

function banner({watching, viewing, antenna, isScanning}) {
  const facts = [["mode", `${viewing.antennaMode.name}, ${viewing.serviceMode.name}`],
    ["source", viewing.source.name], ["antenna", antenna.map((input) => input.name).join(", ") || "none"],
    ["scan", isScanning ? "running" : "off"]];
  return h("div", {class: "banner"},
    h("p", {class: "on-air"},
      watching ? h("bdi", {}, `${watching.number} ${shown(watching.name)}`) : "No such channel"),
    h("p", {}, watching ? shown(`${watching.source} · ${(watching.frequencyHz / 1e6).toLocaleString("en")} MHz`)
      : `The list has no service ${viewing.serviceId}`),
    h("dl", {}, facts.flatMap(([term, text]) => [h("dt", {}, term), h("dd", {}, text)])));
}

// The screen, and the list on it, which can only be filled once it is in the page.
function screen() {
  const {viewing} = state.status;
  const key = [state.tv, viewing.category.code, viewing.categoryParam, viewing.sort.code].join();
  view.rows = rowsOf();
  if (key !== view.key) {
    view.active = Math.max(0, view.rows.findIndex((row) => row[ID] === viewing.serviceId));
    view.top = Math.max(0, view.active - 4) * ROW;
    view.key = key;
  }
  const list = h("div", {class: "rows", role: "listbox", tabindex: 0, "aria-label": "Channels", "data-key": "rows",
    onscroll: () => { view.top = list.scrollTop; drawRows(list); }, onkeydown: (event) => keyOn(list, event)},
  h("ul", {role: "presentation"}));
  const head = h("p", {class: "panel-head"}, h("span", {}, shown(categoryName(viewing))),
    h("span", {}, plural(view.rows.length, "channel")));
  return [h("div", {class: "screen"}, h("div", {class: "panel"}, head, list), banner(state.status)), list];
}

// `make` turns the option that was chosen into the value to set.
function select(label, name, options, current, make) {
  const onchange = (event) => setValue(name, make(event.target.value));
  return h("label", {}, label, h("select", {"data-key": name, onchange},
    [...options].map(([value, text]) => h("option", {value, selected: value === current}, text))));
}

function antennaInputs(antenna) {
  const connected = new Set(antenna.map((input) => input.code));
  const toggle = (code, isOn) => {
    if (isOn) connected.add(code);
    else connected.delete(code);
    setValue("antenna", [...connected].sort().join(","));
  };
  return h("fieldset", {}, h("legend", {}, "Antenna inputs"), state.words.antennaInputs.map((name, code) =>
    checkbox(name, `antenna-${code}`, connected.has(code), (isOn) => toggle(code, isOn))));
}

function favourite(name, i) {
  return h("label", {}, `Favourites ${i + 1}`, h("input", {value: name, "data-key": "favourite-" + i, maxLength: 200,
    onchange: (event) => setValue(`favname${i + 1}`, event.target.value)}));
}

function settings() {
  const {viewing, favourites, antenna, isScanning} = state.status;
  const {words} = state;
  const [antennaMode, serviceMode, sort] = [viewing.antennaMode.code, viewing.serviceMode.code, viewing.sort.code];
  const categories = [["0/0", "all channels"],
    ...favourites.map((name, i) => [`1/${i + 1}`, `favourites ${i + 1} · ${shown(name)}`]),
    ...groupsOf(state.channels).map((name, i) => [`2/${i + 1}`, `group · ${shown(name)}`])];
  const category = `${viewing.category.code}/${viewing.categoryParam}`;
  return h("details", {open: view.isOpen, ontoggle: (event) => { view.isOpen = event.target.open; }},
    h("summary", {}, "Set up this TV"),
    h("div", {class: "form"},
      select("Antenna mode", "mode", words.antennaModes.entries(), antennaMode, (code) => `${code}/${serviceMode}`),
      select("Services", "mode", words.serviceModes.entries(), serviceMode, (code) => `${antennaMode}/${code}`),
      select("Category", "category", categories, category, (code) => `${code}/${sort}`),
      select("Sorted by", "category", words.sorts.entries(), sort, (code) => `${category}/${code}`),
      antennaInputs(antenna),
      h("div", {class: "row"}, checkbox("a channel scan is running", "scan", isScanning,
        (isOn) => setValue("scan", isOn ? "on" : "off"))),
      favourites.map(favourite)),
    view.said ? command(...place(), ...view.said) : null);
}

function actions() {
  const start = (operation) => () => launch({operation, reply: view.reply, scan: state.status.isScanning});
  const isBusy = Boolean(state.busy);
  const line = (...words) => [...place(), "run", ...words, view.reply ? "" : "--no-reply"];
  return h("div", {class: "actions"},
    action("Back up", {class: "primary", disabled: isBusy, "data-key": "backup", onclick: start("backup")},
      () => line()),
    action("Restore newest",
      {disabled: isBusy || !state.backups?.length, "data-key": "restore", onclick: start("restore")},
      () => line("operation=restore", state.status.isScanning ? "scan_activated=1" : "")),
    checkbox("reply", "reply", view.reply, (isOn) => { view.reply = isOn; }),
    checkbox("mark what the last run changed", "marks", state.marks,
      (isOn) => { state.marks = isOn; announce("changed"); }),
    following(line()));
}

export function drawTv() {
  const card = byId("tv");
  const title = h("h2", {id: "tv-title"}, state.tv ? `${shown(state.tv)} as its owner sees it` : "No TV yet");
  if (!state.tv) {
    const loading = state.connection === "connecting";
    return fill(card, title, h("p", {class: "empty"}, loading ? "Looking for TVs …" : "There is no TV here. Make one:"),
      loading ? null : command("init", "--channels", "FILE"));
  }
  if (!state.status || !state.channels) {
    return fill(card, title, h("div", {class: "screen loading"}, h("p", {}, "Reading the TV …")));
  }
  const [element, list] = screen();
  const oninput = (event) => {
    Object.assign(view, {search: event.target.value, active: 0, top: 0});
    drawTv();
  };
  const search = h("input", {type: "search", placeholder: "Search channels", "aria-label": "Search channels",
    "data-key": "search", value: view.search, oninput});
  fill(card, h("div", {class: "head"}, title, search), element, actions(), settings());
  list.scrollTop = view.top;
  drawRows(list);
}
