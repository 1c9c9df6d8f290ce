// Elements that several cards use. A text from outside only becomes a text node.
import {Component, Fragment, h, render} from "./preact.js";
import {commandLine, shown} from "./words.js";

export {Component, Fragment, h, render};

const RIGHT = "[\\u0590-\\u08ff\\ufb1d-\\ufdfd\\ufe70-\\ufefc\\u{10800}-\\u{10fff}\\u{1e800}-\\u{1efff}]";
const NAME = new RegExp(`(${RIGHT}+(?:[\\s\\p{M}\\d-]*${RIGHT}+)*)`, "gu");

// A text of ours with names from outside: each that is written from right to left is isolated, so that it turns nothing
// else round.
export const text = (value) => shown(value).split(NAME).map((part, i) => i % 2 ? h("bdi", {}, part) : part);

// A name by itself.
export const name = (value, properties) => h("bdi", {...properties}, shown(value));

let copied = "";
export function copyButton(line, redraw) {
  const onclick = async () => {
    await navigator.clipboard.writeText(line);
    copied = line;
    redraw();
    setTimeout(() => { copied = ""; redraw(); }, 1500);
  };
  return h("button", {class: "quiet", type: "button", "aria-label": `Copy: ${line}`, onclick},
    copied === line ? "Copied" : "Copy");
}

const redrawAll = () => dispatchEvent(new Event("lab:changed"));

// A command line to be copied.
export function command(words) {
  const line = commandLine(words);
  return h("div", {class: "command"}, h("code", {dir: "ltr"}, shown(line)), copyButton(line, redrawAll));
}

// An action with the command line that does the same, if there is one.
export function action(label, properties, words) {
  return h("div", {class: "action"}, h("button", {type: "button", class: "quiet", ...properties}, label),
    words ? command(words) : null);
}

export const checkbox = (label, key, checked, set) => h("label", {class: "check"}, h("input", {type: "checkbox",
  checked, "data-key": key, onchange: (event) => set(event.target.checked)}), label);

// `options` are pairs of a value and a label.
export const select = (label, key, options, value, set) => h("label", {}, h("span", {}, label), h("select", {
  "data-key": key, value, onchange: (event) => set(event.target.value)},
options.map(([each, words]) => h("option", {value: each, key: each, selected: String(each) === String(value)},
  words))));

// A field for a text that is kept elsewhere. What is typed is a draft until Enter; Escape gives it up. Nothing that
// happens meanwhile touches it.
export class Field extends Component {
  render({label, value, save, ...more}, {draft}) {
    const isDraft = draft !== undefined && draft !== value;
    const done = () => this.setState({draft: undefined});
    const onkeydown = async (event) => {
      if (event.isComposing) return;
      if (event.key === "Escape") done();
      if (event.key !== "Enter" || !isDraft) return;
      event.preventDefault();
      if (await save(draft)) done();
    };
    const hint = isDraft ? h("em", {class: "hint"}, " – Enter saves, Esc gives up") : null;
    return h("label", {}, h("span", {}, label, hint),
      h("input", {type: "text", ...more, value: draft ?? value, onkeydown,
        oninput: (event) => this.setState({draft: event.target.value})}));
  }
}

// Has the browser save a file.
export function saveAs(blob, file) {
  const link = Object.assign(document.createElement("a"), {href: URL.createObjectURL(blob), download: file});
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 1000);
}

// A box with a title, for what needs an answer first.
export class Dialog extends Component {
  componentDidMount() { this.base.showModal(); }
  render({title, close, children}) {
    return h("dialog", {id: "dialog", "aria-labelledby": "dialog-title", onclose: close},
      h("div", {class: "head"}, h("h2", {id: "dialog-title"}, title),
        h("button", {type: "button", onclick: () => this.base.close()}, "Close")), children);
  }
}
