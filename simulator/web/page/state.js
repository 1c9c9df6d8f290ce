// What the page knows of the lab, and what its cards share.
import {Refused} from "./api.js";
import {toast} from "./dom.js";

// `run` is the run on the card, as the server has it; `live` is one under way, as it is told.
export const state = {
  lab: {tvs: [], cloud: ""}, words: null, tv: "", status: null, channels: null, changes: null, run: null, runs: [],
  backups: null, calls: [], rules: [], live: null, busy: "", connection: "connecting", marks: true,
};

export const homeOf = (tv = state.tv) => state.lab.tvs.find((each) => each.name === tv)?.home ?? "";
// The options that make a command line mean this TV and this cloud.
export const place = () => ["--home", homeOf(), "--cloud", state.lab.cloud];

// Tells app.js, which alone knows the cards, to draw them anew ("changed"), to go to the run ("ran"), or to compare the
// TV with a side ("compare").
export const announce = (what, detail) => dispatchEvent(new CustomEvent(`lab:${what}`, {detail}));

// Does something that the server may refuse, and says so.
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
