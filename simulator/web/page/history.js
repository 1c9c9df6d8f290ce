// The runs of the TV, and two of them side by side.
import {get} from "./api.js";
import {Fragment, h, text} from "./elements.js";
import {choose} from "./lab.js";
import {attempt, changed, state} from "./state.js";
import {glyphOf, itemTitle, moment, numberOf, plural, toneOf} from "./words.js";

const view = {filter: "", other: null};

async function besides(run) {
  view.other = await attempt(() => get(`tvs/${state.tv}/runs/${run}`));
  changed();
}

const outcome = (word) => h("span", {class: toneOf(word)}, `${glyphOf(word)} ${word}`);

function row(run) {
  const isShown = run.run === state.run?.run;
  return h("tr", {key: run.run, "aria-current": isShown ? "true" : undefined},
    h("td", {class: "figure"}, run.run), h("td", {}, moment(run.started)), h("td", {}, run.operation),
    h("td", {}, outcome(run.outcome)), h("td", {}, run.backup ? `backup ${numberOf(run.backup)}` : ""),
    h("td", {class: "why"}, text(run.why)),
    h("td", {class: "end"},
      h("button", {type: "button", class: "quiet", disabled: isShown, "data-key": `show-run-${run.run}`,
        "aria-label": `Show run ${run.run}`, onclick: () => choose(state.tv, {run: run.run})},
      isShown ? "shown" : "Show"),
      " ", h("button", {type: "button", class: "quiet", disabled: isShown, "data-key": `beside-${run.run}`,
        "aria-label": `Run ${run.run} beside the one that is shown`, onclick: () => besides(run.run)}, "Beside")));
}

function sideBySide(left, right) {
  const head = (run) => h("th", {scope: "col"}, `Run ${run.run} · ${run.operation} · `, outcome(run.outcome));
  const cell = (run, name) => {
    const item = run.items.find((each) => each.item === name);
    return h("td", {class: item && !item.isWell ? "bad" : ""}, item ? text(`${item.state} ${item.detail}`) : "–");
  };
  const names = [...new Set([...left.items, ...right.items].map((item) => item.item))];
  const calls = (run) => plural(run.timeline.filter((each) => each.call).length, "call");
  return h("div", {},
    h("table", {id: "side-by-side"},
      h("thead", {}, h("tr", {}, h("th", {}, h("button", {type: "button", class: "quiet",
        onclick: () => { view.other = null; changed(); }}, "Close")), head(left), head(right))),
      h("tbody", {},
        h("tr", {}, h("th", {scope: "row"}, "why"), [left, right].map((run) => h("td", {}, text(run.why)))),
        h("tr", {}, h("th", {scope: "row"}, "timeline"), [left, right].map((run) => h("td", {}, calls(run)))),
        names.map((each) => h("tr", {key: each}, h("th", {scope: "row"}, itemTitle(each)), cell(left, each),
          cell(right, each))))));
}

export function History() {
  if (!state.runs) return h("p", {class: "empty"}, "Reading the runs …");
  const wanted = view.filter.trim().toLowerCase();
  const runs = [...state.runs].reverse().filter((run) =>
    `${run.run} ${run.operation} ${run.outcome} ${run.why}`.toLowerCase().includes(wanted));
  return h(Fragment, {},
    view.other && state.run ? sideBySide(state.run, view.other) : null,
    h("div", {class: "form"}, h("label", {}, h("span", {}, "Filter"), h("input", {type: "search",
      "data-key": "filter-runs", placeholder: "restore, refused, antenna …", value: view.filter,
      oninput: (event) => { view.filter = event.target.value; changed(); }}))),
    runs.length ? h("table", {class: "wide"}, h("thead", {class: "unseen"}, h("tr", {},
      ["run", "started", "operation", "outcome", "backup", "why", "actions"].map((each) =>
        h("th", {scope: "col", key: each}, each)))), h("tbody", {}, runs.map(row)))
      : h("p", {class: "empty"}, state.runs.length ? "No run has this." : "Nothing has been run on this TV yet."));
}
