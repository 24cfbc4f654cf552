// What guests take of the machine, now and in the last ten minutes: follows "vmctl top" while
// somebody looks.
import { follow } from "./vmctl.js";

const INTERVAL = 5;         // seconds between two looks
export const SPAN = 600;    // seconds that are kept
const GAP = 3 * INTERVAL;   // seconds without a look, over which no line is drawn
const PAUSE = 30000;        // ms until it is tried again

// What was seen of each guest. Pure.
export class History {
  #guests = new Map();  // name -> [{ at, cpu, memory }], cpu in processors, memory in bytes

  // A line of "vmctl top -o json".
  heard(line) {
    const at = line.clockMs / 1000;
    for (const guest of line.guests) {
      const samples = this.#guests.get(guest.name) ?? [];
      samples.push({ at, cpu: guest.cpu?.used ?? null, memory: guest.memory?.bytes ?? null,
        most: guest.memory?.maxBytes ?? guest.memory?.configuredBytes ?? null });
      while (samples[0].at < at - SPAN) samples.shift();
      this.#guests.set(guest.name, samples);
    }
    for (const [name, samples] of this.#guests)
      if (samples.at(-1).at < at - SPAN) this.#guests.delete(name);
  }
  // The oldest first.
  samplesOf(name) { return this.#guests.get(name) ?? []; }
  // The last line's; undefined: it was not in there.
  lastOf(name, now) {
    const last = this.#guests.get(name)?.at(-1);
    return last && last.at === now ? last : undefined;
  }
}

// The line of a plot of `width` and `height`, whose right end is now: a path; where nothing is known
// it has a gap.
export function pathOf(samples, member, most, { width, height }) {
  const end = samples.at(-1)?.at ?? 0;
  let path = "";
  let before = null;
  for (const sample of samples) {
    const value = sample[member];
    if (value === null) { before = null; continue; }
    const x = width * (1 - (end - sample.at) / SPAN);
    const y = height * (1 - Math.min(1, most > 0 ? value / most : 0));
    path += `${before !== null && sample.at - before <= GAP ? "L" : "M"}${x.toFixed(1)} ${y.toFixed(1)}`;
    before = sample.at;
  }
  return path;
}

// Tells "change" after each look.
export class Load extends EventTarget {
  history = new History();
  clock = null;     // of the last look; null: there was none
  #process = null;
  #timer = null;

  start() {
    cockpit.addEventListener("visibilitychange", () => this.#heed());
    document.addEventListener("visibilitychange", () => this.#heed());
    this.#heed();
  }
  // What it takes now; undefined: it does not run, or nobody knows.
  of(name) { return this.history.lastOf(name, this.clock); }

  #heed() {
    const isSeen = !cockpit.hidden && !document.hidden;
    if (isSeen && this.#process === null) this.#open();
    if (!isSeen) this.#close();
  }
  #open() {
    this.#process = follow(["top", "--interval", String(INTERVAL)], line => {
      this.history.heard(line);
      this.clock = line.clockMs / 1000;
      this.dispatchEvent(new Event("change"));
    }, () => {
      this.#close();
      this.#timer = setTimeout(() => this.#heed(), PAUSE);
    });
  }
  #close() {
    clearTimeout(this.#timer);
    this.#process?.close();
    this.#process = null;
  }
}
