// Requests to the server, and its events. The token comes in the page's address and is sent in a header.
const KEY = "halcyon-token";
if (location.hash.length > 1) {
  sessionStorage.setItem(KEY, location.hash.slice(1));
  history.replaceState(null, "", location.pathname);
}
const headers = {"X-Halcyon-Token": sessionStorage.getItem(KEY) ?? ""};

export class Refused extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

async function ask(method, path, body) {
  const response = await fetch("/api/" + path, body
    ? {method, headers: {...headers, "Content-Type": "application/json"}, body: JSON.stringify(body)}
    : {method, headers});
  const value = await response.json();
  if (!response.ok) throw new Refused(response.status, value.error);
  return value;
}

export const get = (...parts) => ask("GET", parts.map(encodeURIComponent).join("/"));
export const find = (path, query) => ask("GET", `${path}?${new URLSearchParams(query)}`);
export const post = (path, body) => ask("POST", path.map(encodeURIComponent).join("/"), body);
export const remove = (...parts) => ask("DELETE", parts.map(encodeURIComponent).join("/"));

// Calls `on[event](data)` for each event, and `on.state("connected" | "lost" | "refused")`. Connects again if the
// server comes back.
export async function listen(on) {
  for (let pause = 250; ; pause = Math.min(pause * 2, 2000)) {
    try {
      const response = await fetch("/api/events", {headers});
      if (response.status === 401) return on.state("refused");
      if (!response.ok) throw new Error(response.statusText);
      on.state("connected");
      pause = 250;
      const reader = response.body.pipeThrough(new TextDecoderStream()).getReader();
      for (let text = ""; ; ) {
        const {value, done} = await reader.read();
        if (done) break;
        text += value;
        const blocks = text.split("\n\n");
        text = blocks.pop();
        for (const block of blocks) {
          const event = /^event: (.*)$/m.exec(block)?.[1];
          if (event) on[event]?.(JSON.parse(/^data: (.*)$/m.exec(block)[1]));
        }
      }
    } catch (error) {
      const isGone = error instanceof TypeError || error.name === "AbortError";
      if (!isGone) console.error(error);
    }
    on.state("lost");
    await new Promise((resolve) => setTimeout(resolve, pause));
  }
}
