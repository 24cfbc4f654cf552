// All VMs as they are now: follows "vmctl watch", and starts it again when it ends or falls silent.
import { follow } from "./vmctl.js";

const BEAT = 2;              // seconds between two signs of life
const SILENCE = 10;          // after which it counts as lost
const FIRST_PAUSE = 1, LONGEST_PAUSE = 30;

// What the lines of "vmctl watch -o json" say. Pure: `heard` gets one at a time.
export class Watched {
  vms = new Map();      // by name, as "vmctl list -o json" has them
  isStale = false;      // no vmagentd runs: all is as it was left
  isSynced = false;     // all there was at the beginning is there
  #seen = new Set();

  // Begins anew, and keeps what is known until it is known better.
  begin() {
    this.isSynced = false;
    this.#seen.clear();
  }

  // Returns the names of the VMs that are otherwise now.
  heard(line) {
    this.isStale = line.stale === true;
    if (line.op === "put") {
      this.#seen.add(line.vm.name);
      this.vms.set(line.vm.name, line.vm);
      return [line.vm.name];
    }
    if (line.op === "delete") {
      this.vms.delete(line.vm.name);
      return [line.vm.name];
    }
    if (line.op !== "synced") return [];
    this.isSynced = true;
    const ghosts = [...this.vms.keys()].filter(name => !this.#seen.has(name));
    for (const name of ghosts) this.vms.delete(name);
    return ghosts;
  }
}

// Tells "change" (detail: the set of names) once a frame at most, and "link" when how it is
// connected has changed.
export class Live extends EventTarget {
  watched = new Watched();
  error = null;           // why nothing is heard now; null: something is
  lostAt = null;          // ms, since when
  #pause = FIRST_PAUSE;
  #process = null;
  #heardAt = 0;
  #offset = 0;            // of the machine's clock, in seconds
  #changed = new Set();
  #isDue = false;
  #timer = null;

  get vms() { return this.watched.vms; }
  get isStale() { return this.watched.isStale; }
  get isLive() { return this.error === null && this.watched.isSynced; }
  // By the machine's clock, in seconds since 1970.
  now() { return Date.now() / 1000 + this.#offset; }

  start() {
    clearTimeout(this.#timer);
    this.#process?.close();
    this.watched.begin();
    this.#heardAt = performance.now();
    this.#process = follow(["watch", "--beat", String(BEAT)], line => this.#heard(line), error => this.#lost(error));
    this.#timer = setTimeout(() => this.#look(), SILENCE * 1000);
  }

  #heard(line) {
    const before = `${this.isLive} ${this.isStale}`;
    this.#heardAt = performance.now();
    if (line.at) this.#offset = line.at - Date.now() / 1000;
    for (const name of this.watched.heard(line)) this.#changed.add(name);
    if (line.op === "synced") {
      this.error = this.lostAt = null;
      this.#pause = FIRST_PAUSE;
    }
    this.#tell();
    if (before !== `${this.isLive} ${this.isStale}`) this.dispatchEvent(new Event("link"));
  }

  // Also when the machine that the browser is on has slept.
  #look() {
    const silent = (performance.now() - this.#heardAt) / 1000;
    if (silent < SILENCE) {
      this.#timer = setTimeout(() => this.#look(), (SILENCE - silent) * 1000 + 100);
      return;
    }
    this.#process?.close();
    this.#lost(new Error(`Nothing was heard of the machine for ${Math.round(silent)} s.`));
  }

  #lost(error) {
    clearTimeout(this.#timer);
    this.error = error;
    this.lostAt ??= Date.now();
    this.#timer = setTimeout(() => this.start(), this.#pause * 1000);
    this.#pause = Math.min(2 * this.#pause, LONGEST_PAUSE);
    this.dispatchEvent(new Event("link"));
  }

  // Before all is there at first, nothing is shown: a list that grows is no list.
  #tell() {
    if (this.#isDue || !this.watched.isSynced || this.#changed.size === 0) return;
    this.#isDue = true;
    requestAnimationFrame(() => {
      this.#isDue = false;
      const names = this.#changed;
      this.#changed = new Set();
      this.dispatchEvent(new CustomEvent("change", { detail: names }));
    });
  }
}
