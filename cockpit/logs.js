// What the guest wrote on its console, or what its keeper and QEMU had to say, as it grows.
import { h, setText } from "./dom.js";
import { followText } from "./vmctl.js";
import { plain } from "./words.js";

const MOST = 256 * 1024;  // characters shown; vmctl has all there is

export function logsView(name) {
  const text = h("pre", { class: "log", tabindex: 0, "aria-label": `Log of ${name}` });
  const said = h("p", { class: "said" });
  const which = h("select", { "aria-label": "Which log", onchange: () => open() },
    h("option", { value: "guest" }, "What the guest wrote"),
    h("option", { value: "shim" }, "What its keeper and QEMU said"));
  const element = h("section", {}, h("div", { class: "bar" }, which, said), text);
  let process = null;
  let waiting = "";
  let isDue = false;

  function open() {
    process?.close();
    waiting = "";
    setText(text, "");
    setText(said, "");
    const words = ["logs", "-f", ...(which.value === "shim" ? ["--shim"] : []), "--", name];
    process = followText(words, piece => {
      waiting = (waiting + piece).slice(-MOST);
      if (isDue) return;
      isDue = true;
      requestAnimationFrame(append);
    }, error => setText(said, error ? error.message : "The log has ended."));
  }

  // Once a frame, however fast it comes.
  function append() {
    isDue = false;
    const isAtEnd = text.scrollHeight - text.scrollTop - text.clientHeight < 40;
    text.append(plain(waiting));
    waiting = "";
    if (text.textContent.length > 2 * MOST) setText(text, text.textContent.slice(-MOST));
    if (isAtEnd) text.scrollTop = text.scrollHeight;
  }

  open();
  return { element, close: () => process.close() };
}
