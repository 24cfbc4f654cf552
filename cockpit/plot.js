// A small plot of what a guest took in the last ten minutes, and its words for who cannot see it.
import { h, setAttribute, setText, svg } from "./dom.js";
import { pathOf } from "./load.js";

const MEBI = 1024 * 1024;

// What there is to plot: how a value is said, and what the top of the plot is.
export const kinds = {
  cpu: { member: "cpu", label: "Processor", say: value => `${Math.round(100 * value)} %`, most: samples => Math.max(1, ...valuesOf(samples, "cpu")) },
  memory: { member: "memory", label: "Memory", say: value => `${Math.round(value / MEBI)} MiB`,
    most: samples => samples.at(-1)?.most ?? Math.max(1, ...valuesOf(samples, "memory")) },
};

function valuesOf(samples, member) {
  return samples.map(sample => sample[member]).filter(value => value !== null);
}

export class Plot {
  element;
  #kind;
  #size;
  #path = svg("path");
  #picture;
  #words = h("span", { class: "value" });

  // `size`: { width, height }, in pixels.
  constructor(kind, size) {
    this.#kind = kind;
    this.#size = size;
    this.#picture = svg("svg", { class: "plot", role: "img", viewBox: `0 -1 ${size.width} ${size.height + 2}`,
      width: size.width, height: size.height, preserveAspectRatio: "none" }, this.#path);
    this.element = h("span", { class: "plotted" }, this.#picture, this.#words);
  }

  show(samples) {
    const values = valuesOf(samples, this.#kind.member);
    const isKnown = values.length > 0;
    setAttribute(this.#picture, "hidden", !isKnown);
    setText(this.#words, isKnown ? this.#kind.say(values.at(-1)) : "");
    if (!isKnown) return;
    setAttribute(this.#path, "d", pathOf(samples, this.#kind.member, this.#kind.most(samples), this.#size));
    setAttribute(this.#picture, "aria-label",
      `${this.#kind.label} in the last ten minutes: ${this.#kind.say(values.at(-1))}, most ${this.#kind.say(Math.max(...values))}`);
  }
}
