// Words, numbers and texts from outside, as they are shown.

// What controls, what nobody sees, and what changes the direction of the text around it.
const HIDDEN = /[\p{Cc}\p{Zl}\p{Zp}\u061c\u200b-\u200f\u202a-\u202e\u2060-\u2069\ufeff]/gu;
// A joiner between two pictures makes one of them.
const PICTURES = /(\p{Extended_Pictographic}(?:\ufe0f|\p{Emoji_Modifier})?)\u200d(?=\p{Extended_Pictographic})/gu;
const JOINER = "\ue000";

// With such characters as escapes.
export const shown = (text) => String(text).replace(PICTURES, `$1${JOINER}`)
  .replace(HIDDEN, (c) => `\\u{${c.codePointAt(0).toString(16)}}`).replaceAll(JOINER, "\u200d");

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

export const seconds = (milliseconds) => `${(milliseconds / 1000).toFixed(3)} s`;

// The number that a backup's id begins with.
export const numberOf = (id) => parseInt(id, 10);

// What names a backup among those of all accounts.
export const pathOf = (backup) => [backup.account, backup.clientId, backup.category, backup.id].join("/");

const TITLES = {iss: "iss database", ci: "CI files", viewing: "viewing state", ipsrv: "own IP services"};
// An item of a set-up as people call it: "favourites 1" for favname1.
export const itemTitle = (item) => TITLES[item] ?? item.replace(/^favname/, "favourites ");

// The tone and the glyph of an outcome.
const TONES = {done: ["good", "●"], "done in part": ["part", "◐"], unchecked: ["part", "◌"],
  open: ["calm", "○"], none: ["calm", "–"]};
export const toneOf = (outcome) => (TONES[outcome] ?? ["bad", "■"])[0];
export const glyphOf = (outcome) => (TONES[outcome] ?? ["bad", "■"])[1];

// A word as a shell takes it.
const quoted = (word) => /^[\w@%+=:,./-]+$/.test(word) ? word : `'${word.replaceAll("'", "'\\''")}'`;
export const commandLine = (words) => ["halcyon-tv", ...words.filter((word) => word !== "")].map(quoted).join(" ");
