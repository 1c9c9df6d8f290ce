// Builds elements and words texts. A text from outside only becomes a text node.

// h("p", {class: "muted", onclick: f}, "text", element): an element.
export function h(tag, properties, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties ?? {})) {
    if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else if (name in element && name !== "list" && name !== "form") element[name] = value;
    else if (value !== undefined && value !== false) element.setAttribute(name, value === true ? "" : value);
  }
  if (properties?.class) element.className = properties.class;
  element.append(...children.flat().filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

export const byId = (id) => document.getElementById(id);

// Replaces what is in an element, and puts the focus back on the control of the same key.
export function fill(element, ...children) {
  const key = element.contains(document.activeElement) ? document.activeElement.dataset?.key : undefined;
  element.replaceChildren(...children.flat().filter(Boolean));
  if (key) element.querySelector(`[data-key="${CSS.escape(key)}"]`)?.focus();
}

// Shows control characters as escapes, so that no mark in a text changes its direction.
export function shown(text) {
  return [...String(text)].map((c) => {
    const code = c.codePointAt(0);
    const isControl = code < 32 || (code > 126 && code < 160) || (code >= 0x200e && code <= 0x200f) ||
      (code >= 0x202a && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
    return isControl ? `\\u{${code.toString(16)}}` : c;
  }).join("");
}

export const plural = (count, one, more = one + "s") => `${count.toLocaleString("en")} ${count === 1 ? one : more}`;

export function bytes(count) {
  if (count < 1000) return `${count} bytes`;
  return count < 1e6 ? `${(count / 1e3).toFixed(1)} KB` : `${(count / 1e6).toFixed(1)} MB`;
}

export function moment(utc) {
  const time = new Date(utc);
  const parts = {day: "numeric", month: "short", hour: "2-digit", minute: "2-digit"};
  return isNaN(time) ? shown(utc) : time.toLocaleString("en-GB", parts);
}

// A word as a shell takes it.
const quoted = (word) => /^[\w@%+=:,./-]+$/.test(word) ? word : `'${word.replaceAll("'", "'\\''")}'`;

// The command line that does the same as a button, to be copied.
export function command(...words) {
  const line = ["halcyon-tv", ...words.filter((word) => word !== "")].map(quoted).join(" ");
  const copy = h("button", {class: "quiet", type: "button", title: "Copy this command line", onclick: async () => {
    await navigator.clipboard.writeText(line);
    copy.textContent = "Copied";
    setTimeout(() => { copy.textContent = "Copy"; }, 1500);
  }}, "Copy");
  return h("p", {class: "command"}, h("code", {}, shown(line)), copy);
}

export function checkbox(text, key, checked, set) {
  const onchange = (event) => set(event.target.checked);
  return h("label", {class: "check"}, h("input", {type: "checkbox", checked, "data-key": key, onchange}), text);
}

// A button that shows its command line in its card if it is pointed at or gets the focus.
export function action(text, properties, words) {
  const show = (event) => {
    const place = event.target.closest(".card")?.querySelector(".command.following");
    if (place) place.replaceWith(following(words()));
  };
  return h("button", {type: "button", onfocus: show, onmouseenter: show, ...properties}, text);
}

// The place in a card for the command lines of its buttons; `words` is the first.
export function following(words) {
  const line = command(...words);
  line.classList.add("following");
  return line;
}

let hiding;
export function toast(text) {
  byId("toast").textContent = text;
  clearTimeout(hiding);
  hiding = setTimeout(() => { byId("toast").textContent = ""; }, 8000);
}

export const wantsLessMotion = () => matchMedia("(prefers-reduced-motion: reduce)").matches;

// The number that a backup's id begins with.
export const numberOf = (id) => parseInt(id, 10);

const TITLES = {iss: "iss database", ci: "CI files", viewing: "viewing state", ipsrv: "own IP services"};
// An item of a set-up as people call it: "favourites 1" for favname1.
export const itemTitle = (item) => TITLES[item] ?? item.replace(/^favname/, "favourites ");

// What names a backup among those of all accounts.
export const partsOf = (backup) => [backup.account, backup.clientId, backup.category, backup.id];
