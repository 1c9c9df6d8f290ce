// The result of a run: the outcome first, then each item.
import {byId, command, fill, h, itemTitle, moment, numberOf, shown} from "./dom.js";
import {showRun} from "./lab.js";
import {place, state} from "./state.js";

const HEADLINES = {
  done: (run) => run.operation === "backup" ? "Done: everything is in the cloud" : "Done: everything is back",
  "done in part": (run) => `Done in part: ${lost(run)} ` +
    (run.operation === "backup" ? "not in the backup as it is here" : "did not come back"),
  refused: () => "Refused: the backup does not fit this TV",
  failed: (run) => `Failed: no ${run.operation || "run"}`,
  crashed: () => "Crashed: the application ended before its work was done",
  unchecked: () => "Unchecked: the run has ended, but the TV or the store cannot be looked at",
  open: () => "Still open",
};

const lost = (run) => run.items.filter((item) => !item.isWell).map((item) => itemTitle(item.item)).join(", ");
const tone = (outcome) => ({done: "good", "done in part": "part", open: "calm"}[outcome] ?? "bad");

function row(item) {
  const isThere = item.state === "restored" || item.state === "stored";
  const toneOfState = item.isWell ? isThere ? "good" : "muted" : "bad";
  return h("tr", {}, h("th", {scope: "row"}, itemTitle(item.item)), h("td", {},
    h("span", {class: toneOfState}, item.state), item.detail ? h("bdi", {}, ` · ${shown(item.detail)}`) : null));
}

function table(items) {
  return h("table", {}, h("caption", {class: "unseen"}, "What became of each item"),
    h("thead", {class: "unseen"}, h("tr", {}, h("th", {scope: "col"}, "item"), h("th", {scope: "col"}, "state"))),
    h("tbody", {}, items.map(row)));
}

function verdict(run) {
  const nothing = run.outcome === "open" ? "Nothing can be said before it has ended."
    : "Nothing was handed over: there is nothing to compare.";
  return [h("div", {class: "answer " + tone(run.outcome), role: "status"},
    h("p", {class: "headline"}, HEADLINES[run.outcome](run)),
    h("p", {}, run.why ? h("bdi", {}, shown(run.why)) : "Each item was read back from the TV and the store.")),
  run.items.length ? table(run.items) : h("p", {class: "empty"}, nothing)];
}

function history() {
  return h("label", {class: "history"}, h("span", {class: "unseen"}, "Run"), h("select", {"data-key": "history",
    onchange: (event) => showRun(Number(event.target.value))},
  [...state.runs].reverse().map((run) => h("option", {value: run.run, selected: run.run === state.run?.run},
    `${run.run} · ${run.outcome}`))));
}

export function drawRun() {
  const card = byId("run");
  if (state.live) {
    const {run, operation, timeline} = state.live;
    const last = timeline.at(-1);
    const progress = last ? `${(last.atMs / 1000).toFixed(1)} s: ${shown(last.call?.name ?? last.log?.message ?? "")}`
      : "The application is starting.";
    return fill(card,
      h("div", {class: "head"}, h("h2", {id: "run-title"}, `Run ${run} · ${operation || "starting"}`)),
      h("div", {class: "answer calm", role: "status"},
        h("p", {class: "headline"}, "Under way"), h("p", {}, progress)));
  }
  const {run} = state;
  if (!run) {
    return fill(card, h("h2", {id: "run-title"}, state.busy ? `A ${state.busy} is under way` : "No run yet"),
      h("p", {class: "empty"},
        state.tv ? "Back the TV up, or restore it: what became of each item is shown here." : ""));
  }
  const backup = run.backup ? ` · backup ${numberOf(run.backup)}` : "";
  fill(card, h("div", {class: "head"}, h("h2", {id: "run-title"}, `Run ${run.run} · ${run.operation}${backup}`),
    h("span", {class: "muted"}, moment(run.started)), state.runs.length > 1 ? history() : null),
  verdict(run), command(...place(), "record", String(run.run)));
}
