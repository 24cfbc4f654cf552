// The page: which view is shown, and what all views have: how they are connected, and what changed.
import { addView } from "./add.js";
import { h, setAttribute, setText } from "./dom.js";
import { eventsView } from "./events.js";
import { Interfaces } from "./interfaces.js";
import { listView } from "./list.js";
import { Live } from "./live.js";
import { Load } from "./load.js";
import { announce, complain, forget } from "./notices.js";
import { switchView } from "./switch.js";
import { followTheme } from "./theme.js";
import { guestView } from "./guest.js";
import { ask } from "./vmctl.js";
import { partsOf } from "./words.js";

const page = {
  live: new Live(),
  interfaces: new Interfaces(),
  load: new Load(),
  settings: { order: "name", isDescending: false, filter: "", severity: null },  // of the list
  runDir: "/run/vmagent",
};

const views = [
  { path: "", label: "Guests", make: () => listView(page) },
  { path: "events", label: "Events", make: () => eventsView(page, null) },
  { path: "switch", label: "Switch", make: () => switchView(page) },
  { path: "add", make: () => addView(page) },
  { path: "vm", make: ([name, tab]) => guestView(page, name, tab) },
];

let current = null;

function show() {
  const parts = partsOf(location.hash);
  const view = views.find(each => each.path === parts[0]) ?? views[0];
  // The same guest's other tab: its page stays.
  if (current?.goTo?.(parts)) return;
  current?.close?.();
  current = view.make(parts.slice(1));
  document.getElementById("view").replaceChildren(current.element);
  document.title = current.title;
  // What is of one guest is among the guests.
  const path = view.label ? view.path : "";
  for (const link of document.querySelectorAll("#views a"))
    setAttribute(link, "aria-current", link.hash === `#/${path}` && (view.label ? "page" : "true"));
}

function showLink() {
  const { live } = page;
  const link = document.getElementById("link");
  const since = live.lostAt ? ` since ${new Date(live.lostAt).toLocaleTimeString()}` : "";
  setText(link, live.error ? `not live${since}` : !live.watched.isSynced ? "connecting" : live.isStale ? "vmagentd is not running" : "live");
  link.className = `link ${live.isLive && !live.isStale ? "ok" : "bad"}`;
  if (live.error) complain("link", live.error.message, () => live.start());
  else forget("link");
  if (live.isLive && live.isStale)
    complain("stale", "vmagentd is not running: what is shown is as it was left. Guests go on, and what is asked for " +
      "is done when it runs again. To start it: systemctl start vmagentd", null);
  else forget("stale");
}

// What a screen reader is told: how a guest became, not each of its changes.
const told = new Map();
function tell(names) {
  for (const name of names) {
    const actual = page.live.vms.get(name)?.actual ?? "gone";
    if (told.has(name) && told.get(name) !== actual) announce(`${name} is ${actual}`);
    told.set(name, actual);
  }
}

function begin() {
  followTheme();
  document.getElementById("views").append(h("ul", {}, views.filter(view => view.label)
    .map(view => h("li", {}, h("a", { href: `#/${view.path}` }, view.label)))));
  page.live.addEventListener("change", event => {
    tell(event.detail);
    current.changed?.(event.detail);
    page.interfaces.look();
  });
  page.live.addEventListener("link", () => {
    showLink();
    current.changed?.(null);
  });
  page.interfaces.addEventListener("change", () => current.changed?.(null));
  addEventListener("hashchange", () => {
    show();
    document.getElementById("view").focus({ preventScroll: true });
  });
  page.load.addEventListener("change", () => current.loadChanged?.());
  setInterval(() => { if (!document.hidden) current.tick?.(); }, 1000);
  ask(["version"]).then(version => { page.runDir = version.runDir ?? page.runDir; }, () => {})
    .then(show);
  show();
  page.live.start();
  page.load.start();
}

begin();
