// The switch's interfaces, as "vmctl interface list" has them: which are there.
import { ask } from "./vmctl.js";

const PAUSE = 1000;  // ms between two looks, however much changes

export class Interfaces extends EventTarget {
  all = [];            // { intfId, deviceName, present, problem }
  #byId = new Map();
  #lookedAt = -Infinity;
  #timer = null;

  // Looks again, soon; what has changed is told as "change".
  look() {
    if (this.#timer !== null) return;
    const wait = Math.max(0, this.#lookedAt + PAUSE - performance.now());
    this.#timer = setTimeout(() => this.#take(), wait);
  }

  // Whether it is there; undefined: nobody knows.
  isPresent(id) {
    return this.all.length === 0 ? undefined : this.#byId.get(id)?.present ?? false;
  }

  async #take() {
    const before = JSON.stringify(this.all);
    try {
      this.all = (await ask(["interface", "list"])).interfaces;
    } catch {
      this.all = [];  // what is wrong is told by the list of VMs
    }
    this.#lookedAt = performance.now();
    this.#timer = null;
    this.#byId = new Map(this.all.map(each => [each.intfId, each]));
    if (before !== JSON.stringify(this.all)) this.dispatchEvent(new Event("change"));
  }
}
