// The inputs of a form, made of vmctl's own table of fields ("vmctl fields"), and what vmctl says of
// what is in them.
import { h, newId, setAttribute, setText } from "./dom.js";

const PAUSE = 250;  // ms after the last key until vmctl is asked

// One field. `path`: what vmctl calls it; `field`: its row of the table; `choices`: what is offered,
// while anything may be typed; `isNew`: the
// guest is yet to be.
export class Input {
  element;
  path;
  field;
  #input;
  #message;
  #known = "";

  constructor(path, field, { label = path, choices = null, isNew = false, onchange }) {
    this.path = path;
    this.field = field;
    const id = newId();
    const helpId = newId(), messageId = newId(), listId = newId();
    this.#message = h("p", { class: "wrong", id: messageId });
    const described = { id, "aria-describedby": `${helpId} ${messageId}` };
    if (field.values) {
      this.#input = h("select", described, h("option", { value: "" }, "–"), field.values.map(value => h("option", { value }, value)));
    } else {
      this.#input = h("input", { ...described, type: "text", autocomplete: "off", spellcheck: "false",
        inputmode: ["number", "processors"].includes(field.kind) ? "decimal" : null, list: choices ? listId : null });
    }
    this.#input.addEventListener("input", onchange);
    const when = isNew ? "" : field.atOnce ? "; in force at once" : "; in force at the next start";
    this.element = h("div", { class: "field" }, h("label", { for: id }, label), this.#input,
      choices && h("datalist", { id: listId }, choices.map(value => h("option", { value }))),
      h("p", { class: "help", id: helpId }, field.help + when), this.#message);
  }

  get value() { return this.#input.value; }
  get isChanged() { return this.#input.value !== this.#known; }
  // What it is now; what somebody has typed here stays.
  knownIs(value) {
    const isUntouched = !this.isChanged;
    this.#known = value;
    if (isUntouched) this.valueIs(value);
  }
  valueIs(value) {
    const isMissing = this.#input.tagName === "SELECT" && ![...this.#input.options].some(option => option.value === value);
    if (isMissing) this.#input.append(h("option", { value }, value));
    this.#input.value = value;
  }
  undo() { this.#input.value = this.#known; }
  wrongIs(text) {
    setText(this.#message, text);
    setAttribute(this.#input, "aria-invalid", text && !text.startsWith("warning") ? "true" : null);
  }
  focus() { this.#input.focus(); }
}

// Asks once nothing was typed for a moment; only the newest question's answer counts.
export class Judge {
  #timer = null;
  #asked = 0;
  #isClosed = false;

  // `ask` returns a promise; `answer` gets what it resolves to.
  soon(ask, answer) {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(async () => {
      const mine = ++this.#asked;
      const said = await ask();
      if (mine === this.#asked && !this.#isClosed) answer(said);
    }, PAUSE);
  }
  // What was asked counts no more.
  forget() {
    clearTimeout(this.#timer);
    ++this.#asked;
  }
  close() {
    this.#isClosed = true;
    clearTimeout(this.#timer);
  }
}

// A MAC address of QEMU's range that nobody has by chance.
export function anyMac() {
  const bytes = crypto.getRandomValues(new Uint8Array(3));
  return ["52", "54", "00", ...[...bytes].map(byte => byte.toString(16).padStart(2, "0"))].join(":");
}
