// What the page knows of the lab, shared by its cards.
import {Refused} from "./api.js";
import {toast} from "./dom.js";

// `run` is the run on the card; `live` is one that is under way, as far as its events have come.
export const state = {
  lab: {tvs: [], cloud: ""}, words: null, tv: "", status: null, channels: null, changes: null, run: null, runs: [],
  backups: null, calls: [], rules: [], live: null, busy: "", connection: "connecting", marks: true,
};

export const homeOf = (tv = state.tv) => state.lab.tvs.find((each) => each.name === tv)?.home ?? "";
// The options that name this TV and this cloud on a command line.
export const place = () => ["--home", homeOf(), "--cloud", state.lab.cloud];

// Tells app.js, which alone knows the cards, to draw them again ("changed"), to move to the run ("ran"), or to compare
// the TV with a side ("compare").
export const announce = (what, detail) => dispatchEvent(new CustomEvent(`lab:${what}`, {detail}));

// Does something that the server may refuse, and shows its refusal. Returns undefined if it fails.
export async function attempt(action) {
  try {
    return await action();
  } catch (error) {
    if (error instanceof Refused) {
      toast(error.message);
    } else if (state.connection === "connected") {
      toast("The server did not answer");
      console.error(error);
    }
    return undefined;
  }
}
