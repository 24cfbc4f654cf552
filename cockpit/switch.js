// The switch: its ports with the guests on them, what guests may take, and whether the machine is
// fit.
import { h, setText, svg } from "./dom.js";
import { ask } from "./vmctl.js";
import { cardsOf, compare } from "./words.js";

const PAUSE = 5000;  // ms between two looks at the ports
const WIDTH = 132, HEIGHT = 64, GAP = 10, COLUMNS = 6;

export function switchView(page) {
  const { interfaces, live } = page;
  const picture = h("div", { class: "ports" });
  const body = h("tbody");
  const checks = h("ul", { class: "checks" });
  const budget = h("p");
  const look = h("button", { type: "button", onclick: examine }, "Look again");
  const element = h("section", {},
    h("div", { class: "head" }, h("h1", {}, "Switch")),
    h("div", { class: "card" }, h("h2", {}, "Ports"), picture,
      h("table", { class: "list" }, h("caption", { class: "unseen" }, "Ports and the guests on them"),
        h("thead", {}, h("tr", {}, ["Port", "Device", "There", "Guests"].map(head => h("th", { scope: "col" }, head)))), body)),
    h("div", { class: "card" }, h("h2", {}, "What guests may take"), budget),
    h("div", { class: "card" }, h("div", { class: "bar" }, h("h2", {}, "Is the machine fit?"), look), checks));
  let shown = "";

  // [{ id, device, isPresent, problem, cards: [{ vm, key }] }]; also of ports that are only wanted.
  function ports() {
    const found = new Map(interfaces.all.map(each => [each.intfId,
      { id: each.intfId, device: each.deviceName, isPresent: each.present, problem: each.problem ?? "", cards: [] }]));
    for (const vm of live.vms.values()) {
      for (const card of cardsOf(vm)) {
        if (!found.has(card.intfName))
          found.set(card.intfName, { id: card.intfName, device: "", isPresent: false, problem: "", cards: [] });
        found.get(card.intfName).cards.push({ vm: vm.name, key: card.key });
      }
    }
    return [...found.values()].sort((a, b) => compare([a.id], [b.id]));
  }

  function draw() {
    const all = ports();
    const text = JSON.stringify(all);
    if (text === shown) return;
    shown = text;
    body.replaceChildren(...(all.length === 0 ? [h("tr", {}, h("td", { colspan: 4 }, "There are none."))] : all.map(rowOf)));
    const used = all.filter(port => port.cards.length > 0);
    picture.replaceChildren(pictureOf(used.length > 0 ? used : all.slice(0, 4 * COLUMNS)));
  }

  function rowOf(port) {
    const cell = (label, ...content) => h("td", { "data-label": label }, content);
    return h("tr", {}, h("th", { scope: "row" }, port.id), cell("Device", port.device),
      cell("There", h("span", { class: port.isPresent ? "ok" : "bad" }, port.isPresent ? "▲ yes" : "▽ no"), port.problem && ` ${port.problem}`),
      cell("Guests", port.cards.flatMap(({ vm, key }, i) =>
        [i > 0 ? ", " : "", h("a", { href: `#/vm/${encodeURIComponent(vm)}` }, vm), ` ${key}`])));
  }

  // What the table says, as a picture; it is the table that screen readers read.
  function pictureOf(all) {
    const rows = Math.ceil(all.length / COLUMNS);
    const columns = Math.min(all.length, COLUMNS);
    return svg("svg", { "aria-hidden": "true", viewBox: `-1 -1 ${columns * (WIDTH + GAP)} ${rows * (HEIGHT + GAP)}`,
      style: `max-width: ${columns * (WIDTH + GAP)}px` },
      all.map((port, i) => {
        const x = (i % COLUMNS) * (WIDTH + GAP), y = Math.floor(i / COLUMNS) * (HEIGHT + GAP);
        const names = port.cards.map(card => card.vm);
        const guests = names.length > 2 ? `${names[0]} and ${names.length - 1} more` : names.join(", ");
        return svg("g", { class: port.isPresent ? "port ok" : "port bad", transform: `translate(${x} ${y})` },
          svg("rect", { width: WIDTH, height: HEIGHT, rx: 6 }),
          svg("text", { x: 10, y: 24, class: "id" }, `${port.isPresent ? "▲" : "▽"} ${cut(port.id, 13)}`),
          svg("text", { x: 10, y: 46 }, cut(guests, 18)));
      }));
  }

  async function examine() {
    look.disabled = true;
    setText(look, "Looking …");
    try {
      const found = (await ask(["doctor"])).checks;
      checks.replaceChildren(...found.map(checkOf));
      const limits = found.find(check => check.what === "limits");
      setText(budget, limits?.finding ?? "Nothing is known of it: the machine has no control groups of version 2, or vmagentd does not run.");
    } catch (error) {
      checks.replaceChildren(h("li", { class: "bad" }, error.message));
    }
    look.disabled = false;
    setText(look, "Look again");
  }

  function checkOf(check) {
    const style = { ok: "ok", warning: "busy", failed: "bad" }[check.result] ?? "bad";
    return h("li", {}, h("strong", { class: style }, check.result), ` ${check.what}: ${check.finding}`,
      check.mend && h("p", { class: "mend" }, check.mend));
  }

  const timer = setInterval(() => { if (!document.hidden) interfaces.look(); }, PAUSE);
  interfaces.look();
  examine();
  draw();
  return { element, title: "Switch", changed: draw, close: () => clearInterval(timer) };
}

function cut(text, most) {
  return text.length > most ? `${text.slice(0, most - 1)}…` : text;
}
