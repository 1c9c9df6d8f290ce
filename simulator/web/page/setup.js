// What can be set on the TV, and its snapshots.
import {Field, checkbox, command, h, name, select} from "./elements.js";
import {reset, setValue, snapshot} from "./lab.js";
import {changed, isBusy, place, state} from "./state.js";
import {shown} from "./words.js";
import {groups} from "./tv.js";

const view = {said: null, type: "string", key: ""};
const TYPES = ["int", "bool", "double", "string"].map((type) => [type, type]);

async function set(key, value) {
  const isDone = await setValue(key, value);
  if (isDone) view.said = ["set", key, String(value)];
  changed();
  return isDone;
}

const named = (names) => names.map((each, code) => [String(code), each]).filter(([, each]) => each);

export function Setup() {
  const {status} = state.shown ?? {};
  if (!status || !state.channels) return h("p", {class: "empty"}, "Reading the TV …");
  const {viewing, antenna, isScanning, favourites, account, now, isClockStill, zone} = status;
  const [antennaMode, serviceMode, sort] = [viewing.antennaMode.code, viewing.serviceMode.code, viewing.sort.code];
  const category = `${viewing.category.code}/${viewing.categoryParam}`;
  const categories = [["0/0", "all channels"], ...favourites.map((each, i) => [`1/${i + 1}`,
    `favourites ${i + 1} · ${shown(each)}`]), ...groups().map((each, i) => [`2/${i + 1}`, `group · ${shown(each)}`])];
  const inputs = new Set(antenna.map((input) => input.code));
  const plug = (code) => (isOn) => {
    const rest = [...inputs].filter((each) => each !== code);
    return set("antenna", (isOn ? [...rest, code] : rest).sort().join(","));
  };
  return h("div", {},
    h("div", {class: "form"},
      select("Antenna mode", "mode", named(state.words.antennaModes), antennaMode,
        (code) => set("mode", `${code}/${serviceMode}`)),
      select("Services", "services", named(state.words.serviceModes), serviceMode,
        (code) => set("mode", `${antennaMode}/${code}`)),
      select("Category", "category", categories, category, (code) => set("category", `${code}/${sort}`)),
      select("Sorted by", "sort", named(state.words.sorts), sort, (code) => set("category", `${category}/${code}`)),
      h("fieldset", {}, h("legend", {}, "Antenna inputs"), named(state.words.antennaInputs).map(([code, each]) =>
        checkbox(each, `antenna-${code}`, inputs.has(Number(code)), plug(Number(code)))),
      checkbox("a channel scan is running", "scan", isScanning, (isOn) => set("scan", isOn ? "on" : "off"))),
      favourites.map((each, i) => h(Field, {key: `${state.tv}/${i}`, label: `Favourites ${i + 1}`, dir: "auto",
        "data-key": `favname${i + 1}`, value: each, save: (value) => set(`favname${i + 1}`, value)})),
      h(Field, {key: `${state.tv}/account`, label: "Account in the cloud", "data-key": "account", value: account,
        save: (value) => set("account", value)}),
      h(Field, {key: `${state.tv}/clock`, label: "Clock", placeholder: "machine; or 2026-01-31T18:00:00Z, +1d",
        "data-key": "clock", value: now ?? "", save: (value) => set("clock", value || "machine")}),
      now ? checkbox("its clock stands", "still", isClockStill,
        (isOn) => set("clock", isOn ? `${now} still` : now)) : null,
      h(Field, {key: `${state.tv}/zone`, label: "Time zone", placeholder: "machine; or Europe/Berlin",
        "data-key": "zone", value: zone ?? "", save: (value) => set("zone", value || "machine")}),
      select("Any other setting: type", "type", TYPES, view.type, (type) => { view.type = type; changed(); }),
      h("label", {}, h("span", {}, "key"), h("input", {"data-key": "setting-key", value: view.key,
        oninput: (event) => { view.key = event.target.value; changed(); }})),
      h(Field, {key: `${state.tv}/setting`, label: "value", "data-key": "setting-value", value: "",
        save: (value) => set(`setting:${view.type}:${view.key}`, value)})),
    view.said ? command([...place(), ...view.said]) : null);
}

const MEANINGS = {init: "as it was made", "before-run": "before the last restore from this page"};

function snapshotRow(each) {
  return h("tr", {key: each}, h("th", {scope: "row"}, name(each)), h("td", {class: "muted"}, MEANINGS[each]),
    h("td", {}, command([...place(), "reset", each === "init" ? "" : each])),
    h("td", {class: "end"}, h("button", {type: "button", class: "quiet", disabled: isBusy(),
      "data-key": `reset-${each}`, "aria-label": `Reset to ${each}`, onclick: () => reset(each)}, "Reset to it")));
}

export function Snapshots() {
  const {snapshots} = state.shown ?? {};
  if (!snapshots) return h("p", {class: "empty"}, "Reading the TV …");
  return h("div", {},
    h("div", {class: "form"}, h(Field, {key: state.tv, label: "Keep the TV as it is now, under a name",
      "data-key": "snapshot", value: "", save: snapshot})),
    h("table", {}, h("tbody", {}, snapshots.map(snapshotRow))));
}
