// Requests to the server, and its events. The token comes in the page's address and is sent in a header.
const KEY = "halcyon-token";
let headers = {};

// Takes a token out of the address. Returns whether there was one: any other address names a place on the page.
export function takeToken() {
  const text = location.hash.slice(1);
  const isToken = text !== "" && !text.startsWith("/");
  if (isToken) {
    sessionStorage.setItem(KEY, text);
    history.replaceState(null, "", location.pathname);
  }
  headers = {"X-Halcyon-Token": sessionStorage.getItem(KEY) ?? ""};
  return isToken;
}

export class Refused extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

// An answer that took long has begun before its status was known: then a refusal tells it.
async function ask(method, path, options) {
  const response = await fetch("/api/" + path, {method, ...options, headers: {...headers, ...options?.headers}});
  const value = await response.json();
  const isRefused = !response.ok || value.status >= 400 && value.error;
  if (isRefused) throw new Refused(value.status ?? response.status, value.error);
  return value;
}

const withQuery = (path, query) => query ? `${path}?${new URLSearchParams(query)}` : path;

// Paths are made of parts that need no encoding, or are encoded already.
export const get = (path, query) => ask("GET", withQuery(path, query));
export const post = (path, body) => ask("POST", path,
  {headers: {"Content-Type": "application/json"}, body: JSON.stringify(body)});
export const remove = (path) => ask("DELETE", path);
export const send = (path, query, body, signal) => ask("POST", withQuery(path, query),
  {headers: {"Content-Type": "application/zip"}, body, signal});

export async function download(path) {
  const response = await fetch("/api/" + path, {headers});
  if (!response.ok) throw new Refused(response.status, (await response.json()).error);
  return response.blob();
}

let after = "";  // the last event that came
let stream;      // to be aborted

async function read(on) {
  stream = new AbortController();
  const response = await fetch(withQuery("/api/events", {after}), {headers, signal: stream.signal});
  if (response.status === 401) return on.state("refused");
  if (!response.ok) throw new TypeError(response.statusText);
  on.state("connected");
  const reader = response.body.pipeThrough(new TextDecoderStream()).getReader();
  for (let text = ""; ; ) {
    const {value, done} = await reader.read();
    if (done) return on.state("lost");
    text += value;
    const blocks = text.split("\n\n");
    text = blocks.pop();
    for (const block of blocks) {
      const event = /^event: (.*)$/m.exec(block)?.[1];
      after = /^id: (.*)$/m.exec(block)?.[1] ?? after;
      if (event) on[event]?.(JSON.parse(/^data: (.*)$/m.exec(block)[1]));
    }
  }
}

const until = (target, event, milliseconds) => new Promise((resolve) => {
  target.addEventListener(event, resolve, {once: true});
  if (milliseconds) setTimeout(resolve, milliseconds);
});

// Calls `on[event](data)` for each event, and `on.state("connected" | "lost" | "refused")`. Connects again if the
// server comes back. A page that nobody sees gives its connection up, of which a browser has six: it gets what it has
// missed when it is seen again.
export async function listen(on) {
  document.addEventListener("visibilitychange", () => { if (document.hidden) stream?.abort(); });
  addEventListener("lab:token", () => { after = ""; stream?.abort(); });
  for (;;) {
    if (document.hidden) await until(document, "visibilitychange");
    try {
      await read(on);
    } catch (error) {
      if (error.name === "AbortError") continue;
      if (!(error instanceof TypeError)) console.error(error);
      on.state("lost");
    }
    await until(window, "lab:token", 500);
  }
}
