// The TV as its owner sees it: its channels, what is on, and its actions.
import {Component, action, checkbox, h, name, text} from "./elements.js";
import {launch, setValue} from "./lab.js";
import {changed, entryOf, isBusy, openTab, place, state} from "./state.js";
import {plural, shown} from "./words.js";

const ROW = 28;  // pixels; the style sheet says the same
const [ID, NUMBER, NAME, KIND, GROUP, PROVIDER, SET, MARK, WAS] = [0, 1, 2, 3, 4, 5, 6, 7, 8];
const GLYPHS = {added: "+", gone: "−", changed: "~", renamed: "~", moved: "›", renumbered: "›", customised: "~"};
const view = {search: "", marks: true, isOpen: false, reply: true, realtime: false};
const collator = new Intl.Collator("en", {sensitivity: "base"});

const wordOf = (row, index) => state.channels.words[row[index]];
const groups = () => [...new Set(state.channels.channels.filter((row) => row[MARK] !== "gone")
  .map((row) => wordOf(row, GROUP)))].filter(Boolean);
// What the last restore has done to a channel, if that is shown.
const markOf = (row) => view.marks ? row[MARK] ?? "" : "";

// What the owner has set of a channel: his words for it, and its place in a favourite list; 0: not in it.
const setOf = (row) => row[SET] ? row[SET].at(-1) : "";
const placeIn = (list) => (row) => row[SET] ? row[SET][list - 1] : 0;

// The channels of the category, sorted; those that are gone stay in their old place.
function visibleRows({category, categoryParam, sort}) {
  let rows = state.channels.channels;
  const favourite = category.code === 1 ? placeIn(categoryParam) : () => 0;
  if (category.code === 1) rows = rows.filter(favourite);
  if (category.code === 2) {
    const group = groups()[categoryParam - 1];
    rows = rows.filter((row) => wordOf(row, GROUP) === group);
  }
  const key = {1: (row) => row[NAME], 2: (row) => wordOf(row, PROVIDER)}[sort.code];
  rows = [...rows].sort((a, b) => (key ? collator.compare(key(a), key(b)) : 0) || favourite(a) - favourite(b)
    || a[NUMBER] - b[NUMBER]);
  if (!view.marks) rows = rows.filter((row) => row[MARK] !== "gone");
  const wanted = view.search.trim().toLowerCase();
  const isWanted = (row) => `${row[NUMBER]} ${row[NAME]} ${wordOf(row, PROVIDER)}`.toLowerCase().includes(wanted);
  return wanted ? rows.filter(isWanted) : rows;
}

let kept = {};
// As long as nothing that it depends on has changed.
function rowsOf(viewing) {
  const {category, categoryParam, sort} = viewing;
  const key = JSON.stringify([category.code, categoryParam, sort.code, view.search, view.marks]);
  if (kept.channels !== state.channels || kept.key !== key) {
    kept = {channels: state.channels, key, rows: visibleRows(viewing)};
  }
  return kept.rows;
}

// The list on the screen: only the rows that are visible are in the page. It keeps its place while the TV is the same.
class List extends Component {
  componentDidMount() { this.isSought = true; this.seek(0); }
  componentDidUpdate(before) {
    const isElsewhere = before.place !== this.props.place;
    if (isElsewhere || before.service !== this.props.service) this.isSought = true;
    if (this.isSought) this.seek(isElsewhere ? 0 : -1);
  }
  // What is on comes into sight; `otherwise` is shown until the list has it. The list may come later than the state.
  seek(otherwise) {
    const found = this.props.rows.findIndex((row) => row[ID] === this.props.service && row[MARK] !== "gone");
    this.isSought = found < 0;
    const {scrollTop, clientHeight} = this.base;
    const isInSight = found * ROW >= scrollTop && (found + 1) * ROW <= scrollTop + clientHeight;
    if (found < 0 ? otherwise >= 0 : !isInSight || otherwise >= 0) this.moveTo(found < 0 ? otherwise : found);
  }
  moveTo(index) {
    this.base.scrollTop = Math.max(0, index - 4) * ROW;
    this.setState({active: index});
  }
  onKey(event) {
    const {rows, watch} = this.props;
    const step = {ArrowDown: 1, ArrowUp: -1, PageDown: 9, PageUp: -9, Home: -Infinity, End: Infinity}[event.key];
    if (step) {
      const active = Math.min(Math.max((this.state.active ?? 0) + step, 0), rows.length - 1);
      const top = active * ROW;
      const {scrollTop, clientHeight} = this.base;
      if (top < scrollTop) this.base.scrollTop = top;
      if (top + ROW > scrollTop + clientHeight) this.base.scrollTop = top + ROW - clientHeight;
      this.setState({active});
    } else if (event.key === "Enter" && rows[this.state.active]) {
      watch(rows[this.state.active]);
    } else {
      return;
    }
    event.preventDefault();
  }
  row(row, index) {
    const mark = markOf(row);
    const isGone = row[MARK] === "gone";
    const isOn = row[ID] === this.props.service && !isGone;
    const kind = wordOf(row, KIND) === "television" ? "" : wordOf(row, KIND);
    const said = mark === "gone" ? "gone" : row[WAS] && mark ? `was ${row[WAS]}` : kind;
    return h("li", {key: index, id: `row-${index}`, role: "option", "aria-selected": String(isOn),
      "aria-setsize": this.props.rows.length, "aria-posinset": index + 1, style: {top: `${index * ROW}px`},
      class: `${mark} ${isOn ? "on" : ""} ${index === this.state.active ? "active" : ""}`,
      onclick: () => { this.setState({active: index}); this.props.watch(row); }},
    h("span", {class: "mark", title: mark}, GLYPHS[mark] ?? ""), h("span", {class: "number"}, String(row[NUMBER])),
    name(row[NAME], {class: "name"}),
    h("span", {class: "kind"}, text([setOf(row), said].filter(Boolean).join(" · "))));
  }
  render({rows}, {active}) {
    const {scrollTop = 0, clientHeight = 320} = this.base ?? {};
    const first = Math.max(0, Math.min(Math.floor(scrollTop / ROW), rows.length) - 6);
    const last = Math.min(rows.length, first + Math.ceil((clientHeight || 320) / ROW) + 12);
    return h("div", {class: "rows", role: "listbox", tabindex: 0, "aria-label": "Channels", "data-key": "rows",
      "aria-activedescendant": `row-${active ?? 0}`, onscroll: () => this.setState({}),
      onkeydown: (event) => this.onKey(event)},
    h("ul", {role: "presentation", style: {height: `${rows.length * ROW}px`}},
      rows.slice(first, last).map((row, i) => this.row(row, first + i))));
  }
}

function categoryName({category, categoryParam}) {
  if (category.code === 1) {
    return [`Favourites ${categoryParam} · `, name(state.shown.status.favourites[categoryParam - 1] ?? "")];
  }
  return category.code === 2 ? name(groups()[categoryParam - 1] ?? "group") : "All channels";
}

function OnAir({status: {watching, viewing, antenna, isScanning}}) {
  const inputs = antenna.map((input) => input.name).join(", ") || "no input";
  return h("div", {class: "banner"},
    h("p", {class: "on-air"}, watching ? [`${watching.number} `, name(watching.name)] : "No such channel"),
    h("p", {}, watching ? text(`${watching.source} · ${(watching.frequencyHz / 1e6).toLocaleString("en")} MHz`)
      : `The list has no service ${viewing.serviceId}`),
    h("p", {}, `${viewing.antennaMode.name}, ${viewing.serviceMode.name} · ${viewing.source.name}`),
    h("p", {}, `antenna: ${inputs} · ${isScanning ? "a scan is running" : "no scan"}`));
}

function screen() {
  const {status, problem} = state.shown ?? {};
  if (problem) return h("div", {class: "screen off"}, h("p", {}, "No picture"));
  if (!status || !state.channels) return h("div", {class: "screen off"}, h("p", {}, "Reading the TV …"));
  const rows = rowsOf(status.viewing);
  const gone = rows.filter((row) => row[MARK] === "gone").length;
  const {category, categoryParam, sort} = status.viewing;
  const oninput = (event) => { view.search = event.target.value; changed(); };
  return h("div", {class: "screen"},
    h("div", {class: "panel"},
      h("p", {class: "panel-head"}, h("span", {class: "title"}, categoryName(status.viewing)),
        h("span", {class: "count"}, gone ? `${rows.length - gone} · ${gone} gone` : plural(rows.length, "channel"))),
      h(List, {rows, service: status.viewing.serviceId,
        place: [state.tv, category.code, categoryParam, sort.code, view.search].join(),
        watch: (row) => { if (row[MARK] !== "gone") setValue("service", row[ID]); }}),
      h("input", {type: "search", placeholder: "Search", "aria-label": "Search channels", "data-key": "search",
        value: view.search, oninput})),
    h(OnAir, {status}));
}

function start(operation) {
  const {reply, realtime} = view;
  return launch({operation, reply, realtime, scan: state.shown.status.isScanning});
}

const runLine = (...words) => [...place(), "run", ...words, view.reply ? "" : "--no-reply",
  view.realtime ? "--realtime" : ""];
const restoreLine = () => runLine("operation=restore", state.shown?.status?.isScanning ? "scan_activated=1" : "");
const hasBackup = () => Boolean(state.backups?.some((backup) => backup.account === state.shown?.status?.account));

function options(isOff) {
  return h("div", {class: "options", id: "launch-options"},
    action("Back up", {disabled: isOff, onclick: () => start("backup")}, runLine()),
    action("Restore", {disabled: isOff || !hasBackup(), onclick: () => start("restore")}, restoreLine()),
    checkbox("a reply is asked for", "reply", view.reply, (isOn) => { view.reply = isOn; changed(); }),
    checkbox("take as long as a TV does", "realtime", view.realtime, (isOn) => { view.realtime = isOn; changed(); }));
}

export function TvCard() {
  const isOff = isBusy() || !state.shown?.status;
  const marked = state.channels?.run;
  return h("section", {id: "tv", class: "card", "aria-labelledby": "tv-title"},
    h("h2", {id: "tv-title", class: "unseen"}, name(entryOf()?.name ?? ""), " as its owner sees it"),
    screen(),
    view.isOpen ? options(isOff) : null,
    h("div", {class: "foot actions"},
      h("button", {type: "button", class: "primary", disabled: isOff, "data-key": "backup",
        onclick: () => start("backup")}, "Back up"),
      h("button", {type: "button", disabled: isOff || !hasBackup(), "data-key": "restore",
        onclick: () => start("restore")}, "Restore newest"),
      h("button", {type: "button", class: "icon", "aria-expanded": String(view.isOpen), "data-key": "options",
        "aria-label": "Command lines and options", onclick: () => { view.isOpen = !view.isOpen; changed(); }}, "▾"),
      h("span", {class: "grow"}),
      marked ? h("button", {type: "button", class: "quiet", "aria-pressed": String(view.marks), "data-key": "marks",
        onclick: () => { view.marks = !view.marks; changed(); }}, shown(`Marks: run ${marked}`)) : null,
      h("button", {type: "button", class: "quiet", "data-key": "open-setup", onclick: () => openTab("setup")},
        "Set up"),
      h("button", {type: "button", class: "quiet", "data-key": "open-snapshots",
        onclick: () => openTab("snapshots")}, "Snapshots")));
}

export {groups};
