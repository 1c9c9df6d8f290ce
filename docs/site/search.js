// Searches the sections of all pages. They come as a script, because a page that is a file may not fetch anything.
"use strict";

/* global SECTIONS */
const base = document.currentScript.dataset.base;
const form = document.querySelector("form");
const input = form.querySelector("input");
const list = form.querySelector("ol");
const MOST = 20;
const AROUND = 60; // characters of the text shown before the first hit

function load() {
  if (!document.getElementById("sections")) {
    const script = document.createElement("script");
    script.id = "sections";
    script.src = `${base}sections.js`;
    script.onload = show;
    document.head.append(script);
  }
}

// How well a section fits: nothing if a word is missing, more if words are in its heading.
function weigh([, title, , heading, text], words) {
  const head = `${title} ${heading}`.toLowerCase();
  const all = `${head} ${text.toLowerCase()}`;
  if (!words.every(word => all.includes(word))) {
    return 0;
  }
  const own = heading.toLowerCase();
  return words.reduce((sum, word) => sum + (own.includes(word) ? 4 : head.includes(word) ? 2 : 1), 0);
}

// The text with each of the words marked.
function marked(text, words) {
  const parts = [];
  const lower = text.toLowerCase();
  let from = 0;
  while (from < text.length) {
    const hits = words.map(word => [lower.indexOf(word, from), word.length]).filter(([at]) => at >= 0);
    if (hits.length === 0) {
      break;
    }
    const [at, length] = hits.reduce((first, hit) => hit[0] < first[0] ? hit : first);
    const mark = document.createElement("mark");
    mark.textContent = text.slice(at, at + length);
    parts.push(text.slice(from, at), mark);
    from = at + length;
  }
  return [...parts, text.slice(from)];
}

function item([place, title, id, heading, text], words) {
  const link = document.createElement("a");
  link.href = base + place + (id ? `#${id}` : "");
  link.append(...marked(heading === title ? title : `${title}: ${heading}`, words));
  const hits = words.map(word => text.toLowerCase().indexOf(word)).filter(at => at >= 0);
  const begin = Math.max(0, Math.min(...hits, text.length) - AROUND);
  const excerpt = document.createElement("p");
  excerpt.append(...marked((begin > 0 ? "…" : "") + text.slice(begin, begin + 3 * AROUND), words));
  const entry = document.createElement("li");
  entry.append(link, excerpt);
  return entry;
}

function show() {
  const words = input.value.toLowerCase().split(/\s+/).filter(word => word);
  list.replaceChildren();
  if (words.length === 0 || typeof SECTIONS === "undefined") {
    return;
  }
  const found = SECTIONS.map(section => [weigh(section, words), section]).filter(([weight]) => weight > 0);
  found.sort(([a], [b]) => b - a);
  list.append(...found.slice(0, MOST).map(([, section]) => item(section, words)));
  if (found.length === 0) {
    const entry = document.createElement("li");
    entry.textContent = "Nothing has all these words.";
    list.append(entry);
  }
}

form.hidden = false;
input.addEventListener("focus", load);
input.addEventListener("input", show);
form.addEventListener("submit", event => {
  event.preventDefault();
  list.querySelector("a")?.click();
});
document.addEventListener("keydown", event => {
  if (event.key === "/" && document.activeElement !== input) {
    event.preventDefault();
    input.focus();
  } else if (event.key === "Escape") {
    input.value = "";
    show();
  }
});
window.addEventListener("hashchange", () => list.replaceChildren());
// Where there is little room, the pages are listed only when they are asked for.
if (matchMedia("(max-width: 50rem)").matches) {
  document.querySelector("nav details").open = false;
}
