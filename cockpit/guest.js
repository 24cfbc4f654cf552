// One guest: how it is and why, and its tabs.
import { actions, onDoing, perform } from "./actions.js";
import { FirstButton, NextCell, StateCell } from "./cells.js";
import { configView } from "./config.js";
import { consoleView } from "./console.js";
import { h, setAttribute, setText } from "./dom.js";
import { eventsView } from "./events.js";
import { logsView } from "./logs.js";
import { menuButton } from "./menu.js";
import { overviewView } from "./overview.js";
import { screenView } from "./screen.js";
import { age, moment, sentence } from "./words.js";

const tabs = [
  { id: "overview", label: "Overview", make: (page, name) => overviewView(page, name) },
  { id: "events", label: "Events", make: (page, name) => eventsView(page, name) },
  { id: "config", label: "Configuration", make: (page, name) => configView(page, name) },
  { id: "console", label: "Console", make: (page, name) => consoleView(page, name) },
  { id: "screen", label: "Screen", make: (page, name) => screenView(page, name) },
  { id: "logs", label: "Logs", make: (page, name) => logsView(name) },
];

export function guestView(page, name, firstTab) {
  const { live } = page;
  const state = new StateCell();
  const next = new NextCell();
  const first = new FirstButton();
  const story = h("p", { class: "story" });
  const why = h("p", { class: "why" });
  const nextLine = h("p", { class: "next" }, "Next: ", next.element);
  const gone = h("p", { class: "notice bad", role: "alert", hidden: true });
  const base = `#/vm/${encodeURIComponent(name)}`;
  const links = tabs.map(tab => h("a", { href: `${base}/${tab.id}`, "data-tab": tab.id }, tab.label));
  const place = h("div", { class: "tab" });
  const deeds = h("div", { class: "deeds" }, first.element,
    menuButton(`More for ${name}`, actions.map(action => ({ label: action.label, run: () => perform(action, name) }))));
  const element = h("section", {},
    h("p", { class: "crumbs" }, h("a", { href: "#/" }, "Guests"), " / "),
    h("div", { class: "head" }, h("h1", {}, name), state.element, deeds),
    gone, story, why, nextLine,
    h("nav", { class: "tabs", "aria-label": `Views of ${name}` }, h("ul", {}, links.map(link => h("li", {}, link)))), place);
  let tab = null;
  let shown = null;

  function goTo(id) {
    const wanted = tabs.find(each => each.id === id) ?? tabs[0];
    if (wanted === tab) return;
    tab = wanted;
    shown?.close?.();
    shown = tab.make(page, name);
    place.replaceChildren(shown.element);
    for (const link of links) setAttribute(link, "aria-current", link.dataset.tab === tab.id ? "page" : null);
    shown.changed?.(live.vms.get(name));
  }

  function draw() {
    const vm = live.vms.get(name);
    if (!live.watched.isSynced && !vm) return;
    gone.hidden = vm !== undefined;
    for (const part of [story, why, nextLine, deeds, state.element]) part.hidden = vm === undefined;
    setText(gone, vm ? "" : `There is no guest called ${name}, or it was removed. Its events are still kept for a while.`);
    if (!vm) return;
    state.show(vm, live.isStale);
    first.show(vm);
    setText(why, (vm.reasons ?? []).map(reason => sentence(reason.text)).join(" "));
    setAttribute(why, "class", vm.severity === "bad" ? "why bad" : "why");
    tick();
  }

  function tick() {
    const vm = live.vms.get(name);
    if (!vm) return;
    setText(story, storyOf(vm, live));
    next.show(vm, live.now(), live.isStale);
    nextLine.hidden = next.element.textContent === "";
    shown?.tick?.(vm);
  }

  const unlisten = onDoing(doing => { if (doing === name) draw(); });
  goTo(firstTab);
  draw();
  return {
    element,
    title: `${name} – Guests`,
    // Another tab of the same guest; false: it is another view.
    goTo(parts) {
      if (parts[0] !== "vm" || parts[1] !== name) return false;
      goTo(parts[2]);
      return true;
    },
    changed(names) {
      if (names !== null && !names.has(name)) return;
      draw();
      shown?.changed?.(live.vms.get(name));
    },
    loadChanged() { shown?.loadChanged?.(); },
    tick,
    close() {
      unlisten();
      shown?.close?.();
    },
  };
}

// What is wanted, what is so, since when, and how the last run ended: facts of vmctl, in its words.
export function storyOf(vm, live) {
  const wanted = vm.removed ? "Removed" : vm.unknown ? "In no configuration" : `Wanted ${vm.wanted ?? "as a row says that cannot be read"}`;
  const actual = live.isStale ? `was ${vm.actual ?? "unknown"} when vmagentd ended` : vm.actual ?? "nothing is known of how it is";
  const since = vm.since ? ` for ${age(vm.since, live.now())} (since ${moment(vm.since)})` : "";
  const end = vm.end?.text ? ` Last end: ${vm.end.text}${vm.end.at ? `, ${moment(vm.end.at)}` : ""}.` : "";
  return `${wanted}; ${actual}${since}.${end}`;
}
