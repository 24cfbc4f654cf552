// A guest's configuration as a form. What is typed is judged by "vmctl set --dry-run", whose words
// stand under the field, and written by "vmctl set".
import { actionOf, carryOut, perform } from "./actions.js";
import { NewCard } from "./card-form.js";
import { Input, Judge } from "./fields.js";
import { h, setChildren, setText } from "./dom.js";
import { ask, run } from "./vmctl.js";
import { cardsOf, saidOf, valueOf } from "./words.js";

export function configView(page, name) {
  const { interfaces, live } = page;
  const judge = new Judge();
  const said = h("ul", { class: "said-list", role: "status" });
  const save = h("button", { class: "primary", disabled: true }, "Save");
  const undo = h("button", { type: "button", disabled: true, onclick: () => { for (const input of inputs()) input.undo(); typed(); } }, "Undo");
  const sections = { vm: h("div", { class: "card" }), limits: h("div", { class: "card" }), cards: h("div", { class: "card" }) };
  const form = h("form", { class: "config", onsubmit: event => { event.preventDefault(); write(); } },
    h("div", { class: "columns" }, sections.vm, sections.limits), sections.cards,
    said, h("div", { class: "bar sticky" }, save, undo));
  const newCard = h("div", { class: "card" });
  const element = h("section", {}, form, newCard,
    h("div", { class: "card" }, h("h2", {}, "Remove"),
      h("p", {}, "Takes its configuration away; its disk image stays."),
      h("button", { type: "button", class: "danger", onclick: () => perform(actionOf("remove"), name) }, `Remove ${name}`)));
  const cardsHead = h("h2");
  let fields = null;      // vmctl's table; null: it is not known yet
  let own = [];           // inputs of the VM
  let cards = new Map();  // key -> { element, inputs }

  function inputs() {
    return [...own, ...[...cards.values()].flatMap(card => card.inputs)];
  }

  function make() {
    const ofVm = fields.filter(field => !field.field.startsWith("vnicConfig."));
    own = ofVm.map(field => new Input(field.field, field, { onchange: typed }));
    const isLimit = field => field.table === "vmLimits";
    sections.vm.replaceChildren(h("h2", {}, "Machine"), ...own.filter((_input, i) => !isLimit(ofVm[i])).map(input => input.element));
    sections.limits.replaceChildren(h("h2", {}, "Limits"), ...own.filter((_input, i) => isLimit(ofVm[i])).map(input => input.element));
    newCard.replaceChildren(new NewCard(page, name, fields).element);
  }

  function makeCard(key) {
    const ofCard = fields.filter(field => field.field.startsWith("vnicConfig."));
    const choices = { intfName: interfaces.all.map(each => each.intfId) };
    const made = ofCard.map(field => {
      const own = field.field.split(".").pop();
      return new Input(field.field.replace("KEY", key), field, { label: own, choices: choices[own] ?? null, onchange: typed });
    });
    const remove = h("button", { type: "button", onclick: () => carryOut(name, ["nic", "remove", "--", name, key], `Remove ${key}`) }, `Remove ${key}`);
    return { inputs: made, element: h("fieldset", {}, h("legend", {}, key), made.map(input => input.element), remove) };
  }

  function fill(vm) {
    for (const [key, card] of cards) {
      if (vm.config.vnicConfig?.[key]) continue;
      card.element.remove();
      cards.delete(key);
    }
    for (const { key } of cardsOf(vm)) {
      if (cards.has(key)) continue;
      cards.set(key, makeCard(key));
    }
    setChildren(sections.cards, [cardsHead, ...[...cards.keys()].sort().map(key => cards.get(key).element)]);
    setText(cardsHead, cards.size === 0 ? "No cards" : "Cards");
    for (const input of inputs()) input.knownIs(valueOf(vm, input.path, input.field));
    buttons();
  }

  function changes() {
    return inputs().filter(input => input.isChanged).map(input => `${input.path}=${input.value}`);
  }

  function buttons() {
    save.disabled = undo.disabled = changes().length === 0;
  }

  function typed() {
    buttons();
    const words = changes();
    if (words.length === 0) {
      judge.forget();
      return tell("");
    }
    judge.soon(() => run(["set", "--dry-run", "--", name, ...words]).catch(error => error.message), tell);
  }

  function tell(text) {
    const all = inputs();
    const { fields: wrong, rest } = saidOf(text, name, all.map(input => input.path));
    for (const input of all) input.wrongIs((wrong.get(input.path) ?? []).join(" "));
    said.replaceChildren(...rest.map(line => h("li", {}, line)));
  }

  async function write() {
    judge.forget();
    const words = changes();
    if (words.length === 0) return;
    save.disabled = true;
    try {
      tell(await run(["set", "--", name, ...words]));
      for (const input of inputs()) input.knownIs(input.value);
    } catch (error) {
      tell(error.message);
    }
    buttons();
  }

  function changed(vm) {
    if (!fields || !vm) return;
    form.hidden = newCard.hidden = !vm.config;
    if (vm.config) fill(vm);
  }

  ask(["fields"]).then(table => {
    fields = table.fields;
    make();
    changed(live.vms.get(name));
  }, error => setText(said, error.message));

  return { element, changed, close: () => judge.close() };
}
