// Runs vmctl on the machine: all that this page knows and does goes through it, so what an operator
// may do in a shell, they may do here. Whoever has a name of others' in the words puts "--" before
// it, for another program may have called a VM "--all".
import { Lines, parsed } from "./lines.js";

// With the rights of an administrator where there are, else with one's own: the group's are enough.
const rights = { superuser: "try" };

// What went wrong, in vmctl's own words.
export class VmctlError extends Error {
  constructor(message, exit) {
    super(message);
    this.exit = exit;  // vmctl's; null: it did not get so far
  }
}

// Resolves to all that it said, its talk and its data.
export function run(words) {
  return spawned(words, "out").then(({ text, error }) => {
    if (error) throw errorOf(error, text);
    return text;
  });
}

// Resolves to the document that it writes, whatever its exit says of what is in there.
export function ask(words) {
  return spawned(["-o", "json", ...words], "message").then(({ text, error }) => {
    const found = parsed(text);
    if (found === null) throw errorOf(error ?? {}, error?.message ?? "");
    return found;
  });
}

// Goes on until close(). `onLine` gets each line's document, `onEnd` once an error, unless it was
// closed.
export function follow(words, onLine, onEnd) {
  const lines = new Lines();
  let isOpen = true;
  const process = cockpit.spawn(["vmctl", "-o", "json", ...words], { ...rights, err: "message" });
  process.stream(piece => {
    for (const line of lines.take(piece)) {
      const found = parsed(line);
      if (isOpen && found !== null) onLine(found);
    }
  });
  const end = error => {
    if (!isOpen) return;
    isOpen = false;
    onEnd(error);
  };
  process.then(() => end(new VmctlError("vmctl has ended", 0)), error => end(errorOf(error, error.message ?? "")));
  return closer(process, () => { isOpen = false; });
}

// The same of text: `onText` gets each piece as it comes, bytes that are no text replaced.
export function followText(words, onText, onEnd) {
  let isOpen = true;
  const process = cockpit.spawn(["vmctl", ...words], { ...rights, err: "message" });
  process.stream(piece => { if (isOpen) onText(piece); });
  process.then(() => { if (isOpen) onEnd(null); },
    error => { if (isOpen) onEnd(errorOf(error, error.message ?? "")); });
  return closer(process, () => { isOpen = false; });
}

// As one would type it.
export function typed(words) {
  return ["vmctl", ...words.filter(word => word !== "--")].join(" ");
}

function closer(process, before) {
  return {
    close() {
      before();
      process.close("terminated");
    },
  };
}

// Never rejects: what it wrote counts, whatever its exit.
function spawned(words, err) {
  return new Promise(resolve => {
    cockpit.spawn(["vmctl", ...words], { ...rights, err })
      .then(text => resolve({ text, error: null }), (error, text) => resolve({ text: text ?? "", error }));
  });
}

const problems = {
  "not-found": "vmctl is not on this machine: install the package vmagent.",
  "access-denied": "You may not run vmctl on this machine.",
  "disconnected": "The connection to the machine is lost.",
  "terminated": "The connection to the machine is lost.",
  "timeout": "The machine does not answer.",
};

function errorOf(error, text) {
  const said = text.trim().replace(/^vmctl: /gm, "");
  const sentence = said && error.exit_status !== undefined && error.exit_status !== null
    ? said : problems[error.problem] ?? (said || `vmctl ended with status ${error.exit_status ?? "unknown"}`);
  return new VmctlError(sentence, error.exit_status ?? null);
}
