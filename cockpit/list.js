// The list of all guests: sorted, filtered, and changed row by row, so that the focus, a menu that
// is open, and the place on the page stay where they are.
import { actions, onDoing, perform } from "./actions.js";
import { CardsCell, FirstButton, NextCell, StateCell } from "./cells.js";
import { h, setAttribute, setChildren, setText } from "./dom.js";
import { menuButton } from "./menu.js";
import { kinds, Plot } from "./plot.js";
import { age, counts, matches, sorted, whyOf } from "./words.js";

const columns = [
  { id: "name", label: "Name", isOrder: true },
  { id: "wanted", label: "Wanted", isOrder: true },
  { id: "actual", label: "Actual", isOrder: true },
  { id: "since", label: "Since", isOrder: true },
  { id: "why", label: "Why" },
  { id: "next", label: "Next" },
  { id: "load", label: "Load" },
  { id: "cards", label: "Cards" },
  { id: "deeds", label: "Actions" },
];

const severityWords = { bad: "need attention", busy: "on their way", note: "to note", ok: "as wanted" };

class Row {
  element;
  #link = h("a");
  #wanted = h("span");
  #state = new StateCell();
  #since = h("time");
  #why = h("span", { class: "why" });
  #next = new NextCell();
  #load = Object.values(kinds).map(kind => new Plot(kind, { width: 48, height: 16 }));
  #cards = new CardsCell();
  #first = new FirstButton();

  constructor(vm) {
    const menu = menuButton(`More for ${vm.name}`,
      actions.map(action => ({ label: action.label, run: () => perform(action, vm.name) })));
    const cells = [this.#wanted, this.#state.element, this.#since, this.#why, this.#next.element,
      h("span", { class: "load" }, this.#load.map(plot => plot.element)), this.#cards.element,
      h("span", { class: "deeds" }, this.#first.element, menu)];
    this.#link.href = `#/vm/${encodeURIComponent(vm.name)}`;
    this.element = h("tr", {}, h("th", { scope: "row" }, this.#link),
      cells.map((cell, i) => h("td", { "data-label": columns[i + 1].label, class: `col-${columns[i + 1].id}` }, cell)));
  }

  show(vm, { live, interfaces, load }) {
    this.showLoad(vm, load);
    setText(this.#link, vm.name);
    setText(this.#wanted, vm.wanted ?? "?");
    this.#state.show(vm, live.isStale);
    setText(this.#why, whyOf(vm));
    setAttribute(this.#why, "class", vm.severity === "bad" ? "why bad" : "why");
    this.#cards.show(vm, interfaces);
    this.#first.show(vm);
    this.tick(vm, live);
  }

  // What it took; nothing where it does not run.
  showLoad(vm, load) {
    const samples = load.of(vm.name) ? load.history.samplesOf(vm.name) : [];
    for (const plot of this.#load) plot.show(samples);
  }

  // What changes as time passes. On a narrow screen cells that say nothing are not there.
  tick(vm, live) {
    const now = live.now();
    setText(this.#since, vm.since ? age(vm.since, now) : "");
    setAttribute(this.#since, "datetime", vm.since ? new Date(vm.since * 1000).toISOString() : null);
    this.#next.show(vm, now, live.isStale);
    for (const cell of this.element.cells) cell.classList.toggle("none", cell.textContent === "");
  }
}

// `page`: { live, interfaces, settings }; `settings` outlives the view.
export function listView(page) {
  const { live, settings } = page;
  const rows = new Map();
  const shown = new Set();
  const search = h("input", { type: "search", "aria-label": "Filter", placeholder: "Filter by name, state, port …", value: settings.filter,
    oninput: () => { settings.filter = search.value; draw(); } });
  const filters = h("div", { class: "filters", role: "group", "aria-label": "Filter by severity" });
  const severityButtons = Object.fromEntries(Object.keys(severityWords).map(severity => [severity,
    h("button", { type: "button", class: `pill ${severity}`, onclick: () => {
      settings.severity = settings.severity === severity ? null : severity;
      draw();
    } })]));
  filters.append(...Object.values(severityButtons));
  const headers = Object.fromEntries(columns.map(column => [column.id, header(column)]));
  const body = h("tbody");
  const table = h("table", { class: "list" }, h("caption", { class: "unseen" }, "Guests of this switch"),
    h("thead", {}, h("tr", {}, Object.values(headers))), body);
  const empty = h("p", { class: "empty" });
  const element = h("section", {}, h("div", { class: "head" }, h("h1", {}, "Guests"), filters, search,
    h("a", { class: "button primary", href: "#/add" }, "Add a guest")), table, empty);

  function header(column) {
    if (!column.isOrder) return h("th", { scope: "col", class: `col-${column.id}` }, column.label);
    const button = h("button", { type: "button", class: "plain", onclick: () => {
      settings.isDescending = settings.order === column.id && !settings.isDescending;
      settings.order = column.id;
      draw();
    } }, column.label);
    return h("th", { scope: "col", class: `col-${column.id}` }, button);
  }

  function isWanted(vm) {
    if (settings.severity && (vm.severity ?? "bad") !== settings.severity) return false;
    return !settings.filter || matches(vm, settings.filter);
  }

  function draw() {
    const all = [...live.vms.values()];
    for (const name of rows.keys()) if (!live.vms.has(name)) rows.delete(name);
    const wanted = sorted(all.filter(isWanted), settings.order, settings.isDescending);
    shown.clear();
    setChildren(body, wanted.map(vm => {
      shown.add(vm.name);
      if (!rows.has(vm.name)) showRow(vm);
      return rows.get(vm.name).element;
    }));
    for (const [id, cell] of Object.entries(headers)) {
      const isOrder = id === (settings.order);
      setAttribute(cell, "aria-sort", isOrder ? (settings.isDescending ? "descending" : "ascending") : null);
    }
    drawCounts(all);
    table.hidden = wanted.length === 0;
    empty.hidden = wanted.length > 0;
    setText(empty, emptyText(all.length));
  }

  function drawCounts(all) {
    const found = counts(all);
    for (const [severity, button] of Object.entries(severityButtons)) {
      setText(button, `${found[severity]} ${severityWords[severity]}`);
      setAttribute(button, "aria-pressed", String(settings.severity === severity));
      button.hidden = found[severity] === 0 && settings.severity !== severity;
    }
  }

  function emptyText(count) {
    if (count > 0) return "No guest is like that.";
    if (live.watched.isSynced) return "There are no guests yet.";
    return live.error ? "What guests there are is not known." : "Looking …";
  }

  function showRow(vm) {
    if (!rows.has(vm.name)) rows.set(vm.name, new Row(vm));
    rows.get(vm.name).show(vm, page);
  }

  const close = onDoing(name => { if (live.vms.has(name) && rows.has(name)) showRow(live.vms.get(name)); });
  draw();
  return {
    element,
    close,
    title: "Guests",
    // What is known of those has changed; without names, of all.
    changed(names) {
      for (const name of names ?? live.vms.keys())
        if (live.vms.has(name) && rows.has(name)) showRow(live.vms.get(name));
      draw();
    },
    loadChanged() {
      for (const name of shown) if (live.vms.has(name)) rows.get(name).showLoad(live.vms.get(name), page.load);
    },
    tick() {
      for (const name of shown) if (live.vms.has(name)) rows.get(name).tick(live.vms.get(name), live);
    },
  };
}
