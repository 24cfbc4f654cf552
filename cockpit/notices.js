// Tells the operator what came of what they did, and screen readers what has changed.
import { h, setText } from "./dom.js";

const PAUSE = 5000;  // ms between two things that are told unasked
const STAY = 10000;  // ms that what was done is shown

const kept = new Map();  // by what they are about

// What went wrong, with a way back: `again` tries the same once more. A new one about the same
// thing replaces it.
export function complain(about, message, again) {
  show(about, "alert", "notice bad", message, again);
}

// What was done; it goes by itself.
export function say(about, message) {
  show(about, "status", "notice", message, null);
  setTimeout(() => { if (kept.get(about)?.getAttribute("role") === "status") forget(about); }, STAY);
}

// What was said of it is over.
export function forget(about) {
  kept.get(about)?.remove();
  kept.delete(about);
}

function show(about, role, style, message, again) {
  // Said again and again, it is not read again and again.
  if (kept.get(about)?.firstChild.textContent === message) return;
  forget(about);
  const close = h("button", { type: "button", class: "plain", "aria-label": "Dismiss", onclick: () => forget(about) }, "✕");
  const retry = again && h("button", { type: "button", onclick: () => { forget(about); again(); } }, "Try again");
  const notice = h("div", { class: style, role }, h("p", {}, message), retry, close);
  kept.set(about, notice);
  document.getElementById("notices").prepend(notice);
  // One that is read while it is shown needs no more than the newest few.
  while (kept.size > 6) forget(kept.keys().next().value);
}

let waiting = [];
let timer = null;

// Has screen readers read what has changed: a few words, merged, and not too often.
export function announce(words) {
  waiting.push(words);
  if (timer !== null) return;
  timer = setTimeout(() => {
    timer = null;
    const told = document.getElementById("told");
    const more = waiting.length > 3 ? `, and ${waiting.length - 3} more changes` : "";
    setText(told, waiting.slice(-3).join(", ") + more);
    waiting = [];
  }, hasTold() ? PAUSE : 200);
}

function hasTold() {
  return document.getElementById("told").textContent !== "";
}
