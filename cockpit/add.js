// A form for a new guest, judged by "vmctl add --dry-run" as one types.
import { CardInputs } from "./card-form.js";
import { h, newId, setText } from "./dom.js";
import { Input, Judge } from "./fields.js";
import { ask, run } from "./vmctl.js";
import { saidOf } from "./words.js";

export function addView(page) {
  const judge = new Judge();
  const said = h("ul", { class: "said-list", role: "status" });
  const wrong = h("p", { class: "notice bad", role: "alert", hidden: true });
  const place = h("div", { class: "columns" });
  const cards = h("div");
  const nameId = newId();
  const name = h("input", { id: nameId, type: "text", autocomplete: "off", spellcheck: "false", required: true, oninput: typed });
  const enabled = h("input", { type: "checkbox", checked: true, onchange: typed });
  const moreCards = h("button", { type: "button", onclick: () => addCard() }, "Add a card");
  const element = h("section", {},
    h("p", { class: "crumbs" }, h("a", { href: "#/" }, "Guests"), " / "),
    h("div", { class: "head" }, h("h1", {}, "Add a guest")), wrong,
    h("form", { class: "config", onsubmit: event => { event.preventDefault(); write(); } },
      place, h("div", { class: "card" }, h("h2", {}, "Cards"), cards, moreCards), said,
      h("div", { class: "bar sticky" }, h("button", { class: "primary" }, "Add"), h("a", { class: "button", href: "#/" }, "Cancel"))));
  let fields = [];
  let inputs = [];
  let cardInputs = [];

  function make() {
    // What has an option of "vmctl add"; the rest is set afterwards.
    const asked = fields.filter(field => field.option && !field.field.startsWith("vnicConfig."));
    const images = [...new Set([...page.live.vms.values()].map(vm => vm.config?.diskImage).filter(Boolean))];
    inputs = asked.map(field => {
      const input = new Input(field.field, field, { choices: field.kind === "path" ? images : null, isNew: true, onchange: typed });
      input.option = field.option;
      input.knownIs(field.usual ?? "");
      return input;
    });
    place.replaceChildren(h("div", { class: "card" },
      h("div", { class: "field" }, h("label", { for: nameId }, "name"), name,
        h("p", { class: "help" }, "how vmctl and the guest's console call it")),
      inputs.map(input => input.element),
      h("label", { class: "check" }, enabled, "Start it at once, and after each boot")));
    name.focus();
  }

  function addCard() {
    const made = new CardInputs(page, fields, { isNew: true, onchange: typed });
    const row = h("fieldset", {}, h("legend", {}, "Card"), made.element,
      h("button", { type: "button", onclick: () => {
        row.remove();
        cardInputs = cardInputs.filter(each => each !== made);
        typed();
      } }, "Without this card"));
    cardInputs.push(made);
    cards.append(row);
    made.focus();
  }

  function words() {
    return ["add", ...inputs.filter(input => input.value !== "" && (input.isChanged || input.option === "disk"))
      .map(input => `--${input.option}=${input.value}`), ...cardInputs.map(card => `--nic=${card.text}`),
      ...(enabled.checked ? ["--enabled"] : []), "--", name.value];
  }

  function typed() {
    if (name.value === "") return;
    judge.soon(() => run(["add", "--dry-run", ...words().slice(1)]).catch(error => error.message), tell);
  }

  function tell(text) {
    const { fields: about, rest } = saidOf(text, name.value, inputs.map(input => input.path));
    for (const input of inputs) input.wrongIs((about.get(input.path) ?? []).join(" "));
    said.replaceChildren(...rest.map(line => h("li", {}, line)));
  }

  async function write() {
    judge.forget();
    wrong.hidden = true;
    try {
      await run(words());
      location.hash = `#/vm/${encodeURIComponent(name.value)}`;
    } catch (error) {
      tell(error.message);
      wrong.hidden = false;
      setText(wrong, `${name.value} was not added: what is wrong stands below.`);
    }
  }

  ask(["fields"]).then(table => { fields = table.fields; make(); },
    error => { wrong.hidden = false; setText(wrong, error.message); });
  page.interfaces.look();
  return { element, title: "Add a guest", close: () => judge.close() };
}
