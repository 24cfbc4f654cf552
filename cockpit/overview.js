// What one looks at first of one guest: its cards, which can be moved to another port, its limits,
// and what its process is.
import { carryOut } from "./actions.js";
import { h, newId, setText } from "./dom.js";
import { kinds, Plot } from "./plot.js";
import { age, cardsOf } from "./words.js";

export function overviewView(page, name) {
  const { interfaces, live } = page;
  const cards = h("div");
  const facts = h("dl", { class: "facts" });
  const loadText = h("p", { class: "hint" });
  const plots = Object.values(kinds).map(kind => ({ kind, plot: new Plot(kind, { width: 480, height: 80 }) }));
  const element = h("section", { class: "columns" },
    h("div", { class: "card" }, h("h2", {}, "Cards"), cards),
    h("div", { class: "card" }, h("h2", {}, "Machine"), facts),
    h("div", { class: "card" }, h("h2", {}, "Load"), loadText,
      plots.map(({ kind, plot }) => h("div", {}, h("h3", {}, kind.label), plot.element))));
  let shownCards = "";
  let uptime = null;

  function draw(vm) {
    if (!vm) return;
    drawFacts(vm);
    const all = cardsOf(vm).map(card => ({ ...card, isPresent: interfaces.isPresent(card.intfName) }));
    const shown = JSON.stringify([all, interfaces.all.map(each => each.intfId)]);
    // Nothing changes under somebody who chooses a port.
    if (shown === shownCards || cards.contains(document.activeElement)) return;
    shownCards = shown;
    cards.replaceChildren(...(all.length === 0 ? [h("p", {}, "It has no cards: add some under Configuration.")] : all.map(cardOf)));
  }

  function cardOf(card) {
    const id = newId();
    const ids = new Set([card.intfName, ...interfaces.all.map(each => each.intfId)]);
    const ports = h("select", { id }, [...ids].sort().map(each =>
      h("option", { value: each, selected: each === card.intfName }, interfaces.isPresent(each) === false ? `${each} (not there)` : each)));
    const move = h("button", { type: "button", disabled: true, onclick: () => {
      ports.blur();
      carryOut(name, ["set", "--", name, `vnicConfig.${card.key}.intfName=${ports.value}`], `Move ${card.key}`)
        .then(() => { shownCards = ""; draw(live.vms.get(name)); });
    } }, "Move");
    ports.addEventListener("change", () => { move.disabled = ports.value === card.intfName; });
    const there = card.isPresent === undefined ? "" : card.isPresent ? "its port is there" : "its port is not there: the guest has no carrier";
    return h("div", { class: "nic" }, h("h3", {}, card.key),
      h("p", { class: card.isPresent === false ? "bad" : "" }, [card.model, card.macAddr, there].filter(Boolean).join(", ")),
      h("div", { class: "bar" }, h("label", { for: id }, "Port"), ports, move));
  }

  function drawFacts(vm) {
    const limits = Object.entries(vm.limits ?? {}).map(([key, value]) => `${key} ${value}`).join(", ");
    uptime = null;
    const rows = [
      ["Disk image", vm.config?.diskImage],
      ["Opened as", vm.format],
      ["Memory", vm.config && `${vm.config.memory} MiB`],
      ["Screen", vm.config && (vm.config.vncPort ? `yes (vncPort ${vm.config.vncPort})` : "none")],
      ["Limits", limits || "the usual ones"],
      ["QEMU", vm.pid ? `process ${vm.pid}${vm.qemuVersion ? `, version ${vm.qemuVersion}` : ""}` : "does not run"],
      ["Runs for", vm.startedAt ? "" : null],
      ["Resets", vm.startedAt ? vm.resets : null],
    ].filter(([, value]) => value !== null && value !== undefined);
    facts.replaceChildren(...rows.flatMap(([label, value]) => {
      const shown = h("dd", {}, value);
      if (label === "Runs for") uptime = shown;
      return [h("dt", {}, label), shown];
    }));
    tick(vm);
  }

  function tick(vm) {
    if (uptime && vm?.startedAt) setText(uptime, age(vm.startedAt, live.now()));
  }

  function drawLoad() {
    const samples = page.load.of(name) ? page.load.history.samplesOf(name) : [];
    for (const { plot } of plots) plot.show(samples);
    setText(loadText, samples.length > 0 ? "The last ten minutes, as long as this page was looked at." : "Nothing is known of it: the guest does not run.");
  }

  drawLoad();
  return { element, changed: draw, loadChanged: drawLoad, tick };
}
