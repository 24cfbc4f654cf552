// What has happened, to one guest or to all: the newest first, as it happens.
import { h, setText } from "./dom.js";
import { follow } from "./vmctl.js";
import { moment } from "./words.js";

const MOST = 2000;      // rows, as many as are kept
const PAUSE = 3000;     // ms until it is tried again

// `name`: null for all guests.
export function eventsView(page, name) {
  const rows = new Map();  // by the id of the row, which grows
  let filter = "";
  const body = h("tbody");
  const said = h("p", { class: "said" });
  const search = h("input", { type: "search", "aria-label": "Filter events", placeholder: "Filter by words …",
    oninput: () => { filter = search.value.toLowerCase(); for (const row of rows.values()) sift(row); } });
  const heads = ["When", ...(name ? [] : ["Guest"]), "What", "How", "By"];
  const table = h("table", { class: "list events" },
    h("caption", { class: "unseen" }, name ? `Events of ${name}, the newest first` : "Events of all guests, the newest first"),
    h("thead", {}, h("tr", {}, heads.map(head => h("th", { scope: "col" }, head)))), body);
  const element = h("section", {},
    name ? null : h("div", { class: "head" }, h("h1", {}, "Events")),
    h("div", { class: "bar" }, search, said), table);
  let process = null;
  let timer = null;

  function heard(line) {
    if (line.op === "synced") setText(said, rows.size === 0 ? "Nothing has happened yet." : "");
    if (line.op === "lost") setText(said, "Some older events are not kept any more.");
    if (line.op !== "event") return;
    const { event } = line;
    rows.get(event.id)?.remove();
    rows.delete(event.id);
    const row = rowOf(event);
    rows.set(event.id, row);
    sift(row);
    body.prepend(row);
    if (rows.size > MOST) {
      const [oldest, last] = rows.entries().next().value;
      last.remove();
      rows.delete(oldest);
    }
    if (said.textContent === "Nothing has happened yet.") setText(said, "");
  }

  function rowOf(event) {
    const at = event.at;
    const text = event.count > 1 ? `${event.text} (${event.count} times)` : event.text;
    const by = [event.by, event.via && `(${event.via})`].filter(Boolean).join(" ");
    const cell = (label, ...content) => h("td", { "data-label": label }, content);
    return h("tr", {},
      h("td", { "data-label": "When" }, h("time", { datetime: new Date(at * 1000).toISOString() }, moment(at))),
      name ? null : cell("Guest", event.vm ? h("a", { href: `#/vm/${encodeURIComponent(event.vm)}` }, event.vm) : "the machine"),
      cell("What", h("span", { class: `word ${event.severity ?? ""}` }, event.kind), event.reason ? ` ${event.reason}` : ""),
      cell("How", [event.subject, text].filter(Boolean).join(": ")),
      cell("By", by || "–"));
  }

  function sift(row) {
    row.hidden = filter !== "" && !row.textContent.toLowerCase().includes(filter);
  }

  function open() {
    setText(said, "Looking …");
    process = follow(name ? ["history", "-f", "--", name] : ["events", "-f"], heard, error => {
      setText(said, `${error.message} It is tried again.`);
      timer = setTimeout(open, PAUSE);
    });
  }

  open();
  return {
    element,
    title: "Events",
    close() {
      clearTimeout(timer);
      process.close();
    },
  };
}
