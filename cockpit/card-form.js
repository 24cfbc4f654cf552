// A form for one more card, judged by "vmctl nic add --dry-run" as one types.
import { carryOut } from "./actions.js";
import { anyMac, Input, Judge } from "./fields.js";
import { h } from "./dom.js";
import { run } from "./vmctl.js";
import { saidOf } from "./words.js";

// The three fields of a card; also of one of a VM that is to be added.
export class CardInputs {
  element;
  #inputs;

  // `wishes`: of each Input.
  constructor(page, fields, wishes) {
    const choices = { intfName: page.interfaces.all.map(each => each.intfId) };
    this.#inputs = fields.filter(field => field.field.startsWith("vnicConfig.")).map(field => {
      const own = field.field.split(".").pop();
      const input = new Input(own, field, { ...wishes, choices: choices[own] ?? null });
      input.option = field.option;
      if (own === "macAddr") input.valueIs(anyMac());
      if (own === "model" && field.values) input.valueIs(field.values.includes("virtio-net-pci") ? "virtio-net-pci" : field.values[0]);
      return input;
    });
    this.element = h("div", {}, this.#inputs.map(input => input.element));
  }
  // "model=…,mac=…,intf=…"
  get text() {
    return this.#inputs.map(input => `${input.option}=${input.value}`).join(",");
  }
  // What vmctl said: returns what is about none of them.
  tell(text, name) {
    const paths = this.#inputs.map(input => input.path);
    // Its key is vmctl's to choose, so it is not compared.
    const { fields, rest } = saidOf(text.replace(/vnicConfig\.[^.: ]*\./g, ""), name, paths);
    for (const input of this.#inputs) input.wrongIs((fields.get(input.path) ?? []).join(" "));
    return rest;
  }
  focus() { this.#inputs[0].focus(); }
}

export class NewCard {
  element;
  #judge = new Judge();

  constructor(page, name, fields) {
    const said = h("ul", { class: "said-list", role: "status" });
    let inputs = null;
    const place = h("div");
    const add = h("button", { class: "primary", hidden: true }, "Add it");
    const begin = h("button", { type: "button", onclick: () => {
      inputs = new CardInputs(page, fields, { onchange: judge });
      place.replaceChildren(inputs.element);
      add.hidden = false;
      begin.hidden = true;
      inputs.focus();
    } }, "Add a card");
    const judge = () => this.#judge.soon(
      () => run(["nic", "add", "--dry-run", "--", name, inputs.text]).catch(error => error.message),
      text => said.replaceChildren(...inputs.tell(text, name).map(line => h("li", {}, line))));
    this.element = h("form", { onsubmit: async event => {
      event.preventDefault();
      if (!await carryOut(name, ["nic", "add", "--", name, inputs.text], "Add a card")) return judge();
      place.replaceChildren();
      said.replaceChildren();
      add.hidden = true;
      begin.hidden = false;
      begin.focus();
    } }, h("h2", {}, "One more card"), place, said, h("div", { class: "bar" }, begin, add));
  }
}
