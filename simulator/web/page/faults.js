// Fault rules: those that are armed, and the calls that can be made to fail.
import {command, h, select} from "./elements.js";
import {addFault, clearFaults, removeFault} from "./lab.js";
import {changed, place, state} from "./state.js";
import {plural, shown} from "./words.js";

const view = {search: "", nth: "1", times: "0"};
const TIMES = [["0", "each time"], ["1", "once"], ["2", "twice"], ["3", "three times"]];
const NTH = ["1", "2", "3", "4", "5"].map((nth) => [nth, nth]);

const lineOf = (call, failure) => ["fault", "add", call, failure, "--nth", view.nth, "--times", view.times];

const ruleRow = (rule) => h("tr", {key: rule.rule},
  h("td", {class: "figure"}, rule.rule), h("th", {scope: "row"}, h("code", {}, rule.call)),
  h("td", {}, h("code", {class: "bad"}, rule.failure)),
  h("td", {}, `from call ${rule.nth} on, ${rule.times === 0 ? "each time" : plural(rule.times, "time")}`),
  h("td", {class: rule.fired ? "bad" : "muted"}, `fired ${rule.fired}×`),
  h("td", {class: "why"}, command([...place(), "fault", "clear", String(rule.rule)])),
  h("td", {class: "end"}, h("button", {type: "button", class: "quiet", "data-key": `disarm-${rule.rule}`,
    "aria-label": `Disarm rule ${rule.rule}`, onclick: () => removeFault(rule.rule)}, "Disarm")));

const armButton = (call, rules) => (failure) => {
  const isArmed = rules.some((rule) => rule.call === call && rule.failure === failure);
  return h("button", {type: "button", key: failure, class: "switch", "data-key": `${call} ${failure}`, title:
    `halcyon-tv ${lineOf(call, failure).join(" ")}`, "aria-label": `Arm ${call} ${failure}`, disabled: isArmed,
  onclick: () => addFault({call, failure, nth: Number(view.nth), times: Number(view.times)})},
  isArmed ? `${failure} · armed` : failure);
};

const callRow = (rules) => ({call, failures}) => h("tr", {key: call}, h("th", {scope: "row"}, h("code", {}, call)),
  h("td", {}, h("div", {class: "switches"}, failures.map(armButton(call, rules)))));

export function Faults() {
  const {rules} = state.shown ?? {};
  if (!rules) return h("p", {class: "empty"}, "Reading the TV …");
  const wanted = view.search.trim().toLowerCase();
  const calls = wanted ? state.calls.filter(({call}) => call.toLowerCase().includes(wanted)) : [];
  const choose = (key) => (value) => { view[key] = value; changed(); };
  return h("div", {},
    rules.length ? h("table", {class: "wide"}, h("caption", {class: "unseen"}, "Rules that are armed"),
      h("tbody", {}, rules.map(ruleRow))) : null,
    h("div", {class: "form"},
      h("label", {}, h("span", {}, "Make a call fail"), h("input", {type: "search", "data-key": "find-call",
        placeholder: "bnr, vconf, ServiceDb …", value: view.search,
        oninput: (event) => { view.search = event.target.value; changed(); }})),
      select("from its call", "nth", NTH, view.nth, choose("nth")),
      select("how often", "times", TIMES, view.times, choose("times")),
      rules.length > 1 ? h("button", {type: "button", "data-key": "clear-faults", onclick: clearFaults}, "Clear all")
        : null),
    calls.length ? h("table", {class: "faults"}, h("tbody", {}, calls.map(callRow(rules))))
      : h("p", {class: "empty"}, wanted ? `No call that can fail has “${shown(view.search)}” in its name.`
        : "Every platform call can be made to fail. Find it by a part of its name."));
}
