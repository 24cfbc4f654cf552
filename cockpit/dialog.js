// Asks before something is lost. Escape is "no", and the focus returns to where it was.
import { h, newId } from "./dom.js";

// Resolves to whether the operator said yes. `deed`: what the button says.
export function confirm(title, text, deed) {
  return new Promise(resolve => {
    const id = newId();
    const before = document.activeElement;
    const dialog = h("dialog", { "aria-labelledby": id },
      h("h2", { id }, title),
      h("p", {}, text),
      h("div", { class: "buttons" },
        h("button", { type: "button", class: "danger", onclick: () => dialog.close("yes") }, deed),
        h("button", { type: "button", autofocus: true, onclick: () => dialog.close("no") }, "Cancel")));
    dialog.addEventListener("close", () => {
      dialog.remove();
      if (before?.isConnected) before.focus();
      resolve(dialog.returnValue === "yes");
    });
    document.body.append(dialog);
    dialog.showModal();
  });
}
