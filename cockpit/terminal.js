// A terminal in the page: xterm.js where it was installed with the page, else plain text with a line
// to type.
import { h } from "./dom.js";
import { plain } from "./words.js";

const MOST_TEXT = 200000;  // characters that the plain one keeps

// Resolves to { write(bytes, done), reset, focus, writingIs, readerIs, hasReaderMode, dispose }. `type` gets what
// is typed; `leave` is called when the keyboard is to leave it.
export async function openTerminal(place, wishes) {
  try {
    const { Terminal } = await import("./vendor/xterm.js");
    document.getElementById("xterm-style").disabled = false;
    return new XtermTerminal(new Terminal({
      cols: 80, rows: 25, fontSize: 14, scrollback: 5000, cursorBlink: false, disableStdin: true,
      fontFamily: "ui-monospace, 'DejaVu Sans Mono', 'Liberation Mono', monospace",
      screenReaderMode: wishes.isForReader,
      theme: { background: "#000000", foreground: "#e8e8e8" },
    }), place, wishes);
  } catch {
    return new PlainTerminal(place, wishes);
  }
}

class XtermTerminal {
  hasReaderMode = true;
  #terminal;

  constructor(terminal, place, { type, leave }) {
    this.#terminal = terminal;
    terminal.open(place);
    terminal.onData(type);
    terminal.attachCustomKeyEventHandler(event => {
      // While nothing can be typed, Tab goes on through the page.
      if (event.key === "Tab" && terminal.options.disableStdin) return false;
      if (event.key !== "F6" || !event.ctrlKey) return true;
      if (event.type === "keydown") leave();
      return false;
    });
  }
  write(bytes, done) { this.#terminal.write(bytes, done); }
  reset() { this.#terminal.reset(); }
  focus() { this.#terminal.focus(); }
  writingIs(isWriting) {
    this.#terminal.options.disableStdin = !isWriting;
    this.#terminal.options.cursorBlink = isWriting;
  }
  readerIs(isForReader) { this.#terminal.options.screenReaderMode = isForReader; }
  // Its text, for who copies it.
  text() {
    const buffer = this.#terminal.buffer.active;
    const lines = [];
    for (let i = 0; i < buffer.length; ++i) lines.push(buffer.getLine(i).translateToString(true));
    return lines.join("\n");
  }
  dispose() { this.#terminal.dispose(); }
}

class PlainTerminal {
  hasReaderMode = false;
  #text = h("pre", { class: "log", tabindex: 0, "aria-label": "What the guest wrote" });
  #line = h("input", { type: "text", "aria-label": "A line to type", autocomplete: "off", spellcheck: "false" });
  #form;
  #decoder = new TextDecoder();

  constructor(place, { type }) {
    this.#form = h("form", { class: "bar", hidden: true, onsubmit: event => {
      event.preventDefault();
      type(`${this.#line.value}\r`);
      this.#line.value = "";
    } }, this.#line, h("button", {}, "Send"));
    place.append(this.#text, this.#form);
  }
  write(bytes, done) {
    this.#text.append(plain(this.#decoder.decode(bytes, { stream: true })));
    if (this.#text.textContent.length > MOST_TEXT) this.#text.textContent = this.#text.textContent.slice(-MOST_TEXT / 2);
    this.#text.scrollTop = this.#text.scrollHeight;
    done?.();
  }
  reset() { this.#text.textContent = ""; }
  focus() { this.#line.focus(); }
  writingIs(isWriting) { this.#form.hidden = !isWriting; }
  readerIs() {}
  text() { return this.#text.textContent; }
  dispose() {}
}
