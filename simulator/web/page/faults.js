// Fault rules as switches: the calls, their possible failures, and how often each fired.
import {post, remove} from "./api.js";
import {byId, command, fill, h, plural, shown} from "./dom.js";
import {announce, attempt, place, state} from "./state.js";

const view = {search: "", said: null};

async function toggle(call, failure, rule) {
  const answer = await attempt(() => rule ? remove("tvs", state.tv, "faults", rule.rule)
    : post(["tvs", state.tv, "faults"], {call, failure, times: 0}));
  if (answer) state.rules = answer.rules;
  view.said = rule ? ["fault", "clear", String(rule.rule)] : ["fault", "add", call, failure, "--times", "0"];
  announce("changed");
}

function faultSwitch(call, failure) {
  const rule = state.rules.find((each) => each.call === call && each.failure === failure);
  const name = `${call} ${failure}`;
  return h("button", {type: "button", class: "switch", role: "switch", "aria-checked": String(Boolean(rule)),
    "aria-label": name, "data-key": name, onclick: () => toggle(call, failure, rule)},
  failure, rule ? h("span", {class: "fired"}, ` fired ${rule.fired}×`) : null);
}

function row({call, failures}) {
  return h("tr", {}, h("th", {scope: "row"}, h("code", {}, call)),
    h("td", {}, h("div", {class: "switches"}, failures.map((failure) => faultSwitch(call, failure)))));
}

export function drawFaults() {
  const armed = state.rules.length;
  const wanted = view.search.toLowerCase();
  const isListed = ({call}) => wanted ? call.toLowerCase().includes(wanted)
    : state.rules.some((rule) => rule.call === call);
  const calls = state.calls.filter(isListed);
  fill(byId("faults"), h("div", {class: "head"}, h("h2", {id: "faults-title"}, "Faults"),
    h("span", {class: armed ? "bad" : "muted"}, armed ? `${plural(armed, "rule")} armed` : "none armed"),
    h("input", {type: "search", placeholder: "Find a platform call", "aria-label": "Find a platform call",
      "data-key": "find-call", value: view.search,
      oninput: (event) => { view.search = event.target.value; drawFaults(); }})),
  calls.length ? h("div", {class: "scroll"}, h("table", {class: "faults"}, h("tbody", {}, calls.map(row))))
    : h("p", {class: "empty"}, wanted ? `No call that can fail has “${shown(view.search)}” in its name.`
      : "Every platform call can be made to fail. Find one by its name: bnr, vconf, ServiceDb …"),
  view.said && state.tv ? command(...place(), ...view.said) : null);
}
