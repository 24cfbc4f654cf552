// A button that opens a menu: arrows move in it, Escape closes it, and the focus returns to it.
import { h, newId, setAttribute } from "./dom.js";

// `items`: { label, run }. `label` is what screen readers say of the button.
export function menuButton(label, items) {
  const id = newId();
  const entries = items.map(item => h("li", { role: "none" },
    h("button", { type: "button", role: "menuitem", tabindex: -1, onclick: () => { close(true); item.run(); } }, item.label)));
  const list = h("ul", { role: "menu", id, "aria-label": label, hidden: true, onkeydown: key }, entries);
  const button = h("button", { type: "button", class: "kebab", "aria-label": label, "aria-haspopup": "menu",
    "aria-expanded": "false", "aria-controls": id, onclick: () => (list.hidden ? open(0) : close(true)),
    onkeydown: event => { if (event.key === "ArrowDown") { event.preventDefault(); open(0); } } }, "⋮");
  const box = h("div", { class: "menu" }, button, list);
  box.addEventListener("focusout", event => { if (!box.contains(event.relatedTarget)) close(false); });
  return box;

  function buttons() {
    return [...list.querySelectorAll("button")];
  }
  function open(at) {
    list.hidden = false;
    setAttribute(button, "aria-expanded", "true");
    list.classList.toggle("above", button.getBoundingClientRect().bottom + list.offsetHeight > innerHeight);
    buttons().at(at).focus();
  }
  function close(givesFocus) {
    if (list.hidden) return;
    list.hidden = true;
    setAttribute(button, "aria-expanded", "false");
    if (givesFocus) button.focus();
  }
  function key(event) {
    const all = buttons();
    const at = all.indexOf(document.activeElement);
    const to = { ArrowDown: (at + 1) % all.length, ArrowUp: (at + all.length - 1) % all.length, Home: 0, End: all.length - 1 }[event.key];
    if (event.key === "Escape") close(true);
    else if (event.key === "Tab") return close(false);
    else if (to !== undefined) all[to].focus();
    else return;
    event.preventDefault();
  }
}
