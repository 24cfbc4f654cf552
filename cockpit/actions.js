// What can be done to a VM, and doing it. Which of it makes sense now is vmctl's to say: nothing is
// hidden, and what is refused is told in its words.
import { confirm } from "./dialog.js";
import { complain, forget, say } from "./notices.js";
import { run, typed } from "./vmctl.js";

const LOST = "It is not asked to shut down, and loses what it has not written.";

// In the order of the menu. `words`: behind "vmctl"; `ask`: what is asked before.
export const actions = [
  { id: "start", label: "Start", words: name => ["start", "--", name] },
  { id: "stop", label: "Shut down", words: name => ["stop", "--", name] },
  { id: "off", label: "Switch off now", words: name => ["stop", "--now", "--", name], ask: LOST },
  { id: "restart", label: "Restart", words: name => ["restart", "--", name] },
  { id: "pause", label: "Pause", words: name => ["pause", "--", name] },
  { id: "resume", label: "Resume", words: name => ["resume", "--", name] },
  { id: "reset", label: "Reset", words: name => ["reset", "--", name], ask: LOST },
  { id: "nmi", label: "Interrupt (NMI)", words: name => ["nmi", "--", name],
    ask: "Many systems write down then where they stand, or crash with a dump." },
  { id: "remove", label: "Remove", words: name => ["remove", "--", name],
    ask: "Its configuration is gone then; its disk image stays." },
];

export function actionOf(id) {
  return actions.find(action => action.id === id);
}

// What one wants first of a VM as it is.
export function firstAction(vm) {
  if (vm.actual === "paused") return actionOf("resume");
  if (vm.actual === "stopping") return actionOf("off");
  const hasEnded = vm.actual === "stopped" || (vm.actual === "crashed" && !vm.pid);
  return actionOf(vm.wanted === "running" && !hasEnded ? "stop" : "start");
}

const busy = new Map();  // name -> what goes on
const listeners = new Set();

// What is being done to it; undefined: nothing.
export function doingOf(name) {
  return busy.get(name);
}

// `listener` gets a name when what goes on with it has changed, until what this returns is called.
export function onDoing(listener) {
  listeners.add(listener);
  return () => listeners.delete(listener);
}

// Does it, once it is confirmed where it loses something. Resolves to whether it was done.
export async function perform(action, name) {
  if (action.ask && !await confirm(`${action.label}: ${name}?`, action.ask, action.label)) return false;
  return carryOut(name, action.words(name), action.label);
}

// Runs the words on a VM, tells what came of it. Resolves to whether it was done.
export async function carryOut(name, words, label) {
  const about = `${name} ${label}`;
  forget(about);
  doingIs(name, label);
  try {
    say(about, (await run(words)).replace(/^vmctl: /gm, "").trim() || `${name}: done`);
    return true;
  } catch (error) {
    complain(about, `${typed(words)}: ${error.message}`, () => carryOut(name, words, label));
    return false;
  } finally {
    doingIs(name, undefined);
  }
}

function doingIs(name, label) {
  if (label === undefined) busy.delete(name);
  else busy.set(name, label);
  for (const listener of listeners) listener(name);
}
