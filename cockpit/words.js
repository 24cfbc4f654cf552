// Words for what a VM's document says. Pure: the time is an argument. What a VM is, why, and what
// comes next is not decided here, but said by vmctl.

const MINUTE = 60, HOUR = 60 * MINUTE, DAY = 24 * HOUR;

// "5s", "13m20s", "1h05m", "2d07h", as "vmctl list" writes ages. Both in seconds since 1970.
export function age(since, now) {
  const seconds = Math.max(0, Math.floor(now - since));
  const two = (great, unit, small, smallUnit) => `${great}${unit}${String(small).padStart(2, "0")}${smallUnit}`;
  if (seconds < MINUTE) return `${seconds}s`;
  if (seconds < HOUR) return two(Math.floor(seconds / MINUTE), "m", seconds % MINUTE, "s");
  if (seconds < DAY) return two(Math.floor(seconds / HOUR), "h", Math.floor((seconds % HOUR) / MINUTE), "m");
  if (seconds < 100 * DAY) return two(Math.floor(seconds / DAY), "d", Math.floor((seconds % DAY) / HOUR), "h");
  return `${Math.floor(seconds / DAY)}d`;
}

// "now", or "in 13s".
export function inTime(at, now) {
  return at <= now ? "now" : `in ${age(now, at)}`;
}

// "2026-11-22 10:31:02", by the clock on the wall of who looks.
export function moment(seconds) {
  const date = new Date(seconds * 1000);
  const two = number => String(number).padStart(2, "0");
  return `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())} ` +
    `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`;
}

// Why a VM is as it is, the weightiest first; empty: there is nothing to say.
export function whyOf(vm) {
  return vm.reasons?.[0]?.text ?? "";
}

// What comes next, as a clause: "is switched off in 13s".
export function nextOf(vm, now) {
  const next = vm.next ?? {};
  if (next.command) return next.command;
  if (!next.text) return "";
  return next.at ? `${next.text} ${inTime(next.at, now)}` : next.text;
}

// The words behind "vmctl" of what NEXT says to type; null: it is not for this page to do, as one
// that needs words of the operator's.
export function nextWords(vm) {
  const words = (vm.next?.command ?? "").split(" ");
  const isKnown = words[0] === "vmctl" && ["start", "restart", "resume", "reset"].includes(words[1]);
  if (!isKnown || !words.includes(vm.name)) return null;
  return [words[1], ...words.slice(2).filter(word => word !== vm.name), "--", vm.name];
}

// Its cards: { key, model, macAddr, intfName } in the order of their keys.
export function cardsOf(vm) {
  const cards = vm.config?.vnicConfig ?? {};
  return Object.keys(cards).sort().map(key => ({ key, ...cards[key] }));
}

// The orders of the list.
export const orders = {
  name: vm => [vm.name],
  wanted: vm => [vm.wanted ?? "", vm.name],
  actual: vm => [severityRank(vm), vm.actual ?? "", vm.name],
  since: vm => [-(vm.since ?? 0), vm.name],
};

const severities = ["bad", "busy", "note", "ok"];

// The worst first; what nobody knows is as bad.
function severityRank(vm) {
  return Math.max(0, severities.indexOf(vm.severity));
}

// Compares what `orders` gives; names with numbers in them as people do: vm2 before vm10.
export function compare(a, b) {
  for (let i = 0; i < a.length; ++i) {
    const order = typeof a[i] === "number" ? a[i] - b[i] : a[i].localeCompare(b[i], "en", { numeric: true });
    if (order !== 0) return order;
  }
  return 0;
}

export function sorted(vms, order, isDescending) {
  const keyOf = orders[order] ?? orders.name;
  const made = [...vms].map(vm => ({ vm, key: keyOf(vm) }));
  made.sort((a, b) => compare(a.key, b.key));
  if (isDescending) made.reverse();
  return made.map(each => each.vm);
}

// Whether each word that was typed is somewhere in what the list shows of it.
export function matches(vm, typed) {
  const cards = cardsOf(vm).map(card => `${card.key} ${card.intfName} ${card.macAddr}`).join(" ");
  const shown = [vm.name, vm.wanted, vm.actual, whyOf(vm), nextOf(vm, 0), cards].join(" ").toLowerCase();
  return typed.toLowerCase().split(/\s+/).every(word => shown.includes(word));
}

// How many there are of each severity.
export function counts(vms) {
  const found = { bad: 0, busy: 0, note: 0, ok: 0 };
  for (const vm of vms) ++found[severities[severityRank(vm)]];
  return found;
}

// What vmctl said of a command that changes one VM, by the field that it is about; the rest is of
// none. Its lines are "vmctl: NAME: FIELD: sentence".
export function saidOf(text, name, fields) {
  const said = { fields: new Map(), rest: [] };
  for (let line of text.split("\n")) {
    line = line.replace(/^vmctl: /, "");
    if (line === "") continue;
    const sentence = line.startsWith(`${name}: `) ? line.slice(name.length + 2) : line;
    const field = fields.find(each => sentence.startsWith(`${each}: `));
    if (field === undefined) said.rest.push(sentence);
    else said.fields.set(field, [...(said.fields.get(field) ?? []), sentence.slice(field.length + 2)]);
  }
  return said;
}

// The value of a field of a VM, or of one of its cards, as text, as "vmctl set" takes it. `field`: its
// row of "vmctl fields"; a record of the table vmLimits stands in the member "limits", and so on.
export function valueOf(vm, path, field) {
  const parts = path.split(".");
  if (parts[0] === "vnicConfig") return String(vm.config.vnicConfig[parts[1]]?.[parts[2]] ?? "");
  if (path === "format") return vm.format ?? "";
  const member = field.table.replace(/^vm/, "").toLowerCase();
  return String(vm[member]?.[path] ?? field.usual ?? "");
}

// What stands between the slashes of "#/vm/web1/console"; of what is no such address nothing.
export function partsOf(hash) {
  try {
    return hash.replace(/^#\/?/, "").split("/").map(part => decodeURIComponent(part));
  } catch {
    return [""];
  }
}

// A guest's output without what only a terminal understands.
export function plain(text) {
  return text.replace(/\x1b(\[[0-?]*[ -/]*[@-~]|\][^\x07\x1b]*(\x07|\x1b\\)|[@-Z\\^_a-z])|[^\P{Cc}\n\t]/gu, "");
}

// Whether it is what a terminal answers by itself, such as where its cursor is, and nobody's key.
export function isReport(text) {
  return /^\x1b(\[[?>=]?[\d;]*[Rcny]|[P\]_^])/.test(text);
}

// A sentence out of a clause: its first letter, and its full stop.
export function sentence(text) {
  if (text === "") return "";
  const begun = text[0].toUpperCase() + text.slice(1);
  return /[.!?:]$/.test(begun) ? begun : `${begun}.`;
}
