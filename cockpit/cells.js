// What the list and the page of one VM both show of it: its state, its cards, what comes next.
import { carryOut, doingOf, firstAction, perform } from "./actions.js";
import { h, setAttribute, setText, svg } from "./dom.js";
import { cardsOf, nextOf, nextWords } from "./words.js";

// A shape for each severity beside its word and its colour, which alone says nothing to many.
const shapes = {
  ok: "M2 8.5 6.5 13 14 4",
  note: "M8 2v7M8 12.5v1.5",
  busy: "M8 2.5a5.5 5.5 0 1 1-5.5 5.5M8 5v3.5l2.5 1.5",
  bad: "M3 3l10 10M13 3 3 13",
};

// How it is, in a word and a shape.
export class StateCell {
  element;
  #path = svg("path");
  #word = h("span");

  constructor() {
    const picture = svg("svg", { viewBox: "0 0 16 16", "aria-hidden": "true" }, this.#path);
    this.element = h("span", { class: "state" }, picture, this.#word);
  }

  show(vm, isStale) {
    const severity = isStale ? "note" : shapes[vm.severity] ? vm.severity : "note";
    setAttribute(this.element, "class", `state ${severity}`);
    setAttribute(this.#path, "d", shapes[severity]);
    setText(this.#word, vm.actual ?? "unknown");
  }
}

// The cards, each with its port and whether that is there.
export class CardsCell {
  element = h("ul", { class: "cards" });
  #shown = "";

  show(vm, interfaces) {
    const cards = cardsOf(vm).map(card => ({ ...card, isPresent: interfaces.isPresent(card.intfName) }));
    const shown = JSON.stringify(cards);
    if (shown === this.#shown) return;
    this.#shown = shown;
    this.element.replaceChildren(...cards.map(card => {
      const word = card.isPresent === undefined ? "" : card.isPresent ? "there" : "not there";
      const mark = card.isPresent === undefined ? "" : card.isPresent ? " ▲" : " ▽";
      return h("li", { title: `${card.model}, ${card.macAddr}` }, h("span", { class: "key" }, card.key), " ", card.intfName,
        h("span", { class: card.isPresent === false ? "bad" : "ok", "aria-hidden": "true" }, mark),
        h("span", { class: "unseen" }, word && `, ${word}`));
    }));
  }
}

// What comes next: a clause or, where it is to type, a button that does it.
export class NextCell {
  element = h("span");
  #text = h("span");
  #button = h("button", { type: "button", class: "link-like" });
  #name = "";
  #words = null;

  constructor() {
    this.#button.addEventListener("click", () => carryOut(this.#name, this.#words, this.#words[0]));
    this.element.append(this.#text, this.#button);
  }

  show(vm, now, isStale) {
    this.#name = vm.name;
    this.#words = isStale ? null : nextWords(vm);
    this.#button.hidden = this.#words === null;
    this.#text.hidden = this.#words !== null;
    const text = isStale ? "" : nextOf(vm, now);
    setText(this.#button, this.#words ? text : "");
    setText(this.#text, this.#words ? "" : text);
    this.#button.disabled = doingOf(vm.name) !== undefined;
  }
}

// The button of what one wants first, and says what is being done.
export class FirstButton {
  element = h("button", { type: "button" });
  #name = "";
  #action = null;

  constructor() {
    this.element.addEventListener("click", () => perform(this.#action, this.#name));
  }

  show(vm) {
    const doing = doingOf(vm.name);
    this.#name = vm.name;
    this.#action = firstAction(vm);
    setText(this.element, doing ? `${doing} …` : this.#action.label);
    setAttribute(this.element, "aria-label", doing ? null : `${this.#action.label} ${vm.name}`);
    setAttribute(this.element, "aria-busy", doing ? "true" : null);
    this.element.disabled = doing !== undefined;
  }
}
