// The log of the run.
import {h, select, text} from "./elements.js";
import {chooseEvent} from "./lab.js";
import {changed, state} from "./state.js";
import {seconds} from "./words.js";

const view = {priority: "0", filter: ""};
const PRIORITIES = [["0", "all"], ["5", "warnings and worse"], ["6", "errors and worse"]];

const row = ({seq, atMs, log, isDecisive}) => h("tr", {key: seq,
  "aria-current": seq === state.event ? "true" : undefined},
h("td", {class: "figure"}, h("button", {type: "button", class: "link", onclick: () => chooseEvent(seq)},
  seconds(atMs))),
h("td", {class: "muted"}, `${log.file}:${log.line}`),
h("td", {class: isDecisive ? "bad" : log.priority >= 6 ? "part" : ""}, h("code", {}, text(log.message.trim()))));

export function Log() {
  const wanted = view.filter.trim().toLowerCase();
  const records = (state.run?.timeline ?? []).filter(({log}) => log && log.priority >= Number(view.priority) &&
    log.message.toLowerCase().includes(wanted));
  return h("div", {},
    h("div", {class: "form"},
      select("Priority", "priority", PRIORITIES, view.priority, (value) => { view.priority = value; changed(); }),
      h("label", {}, h("span", {}, "Filter"), h("input", {type: "search", "data-key": "filter-log", value: view.filter,
        oninput: (event) => { view.filter = event.target.value; changed(); }}))),
    records.length ? h("table", {class: "log"}, h("tbody", {}, records.map(row)))
      : h("p", {class: "empty"}, state.run ? "No record has this." : "After a run, its log stands here."));
}
