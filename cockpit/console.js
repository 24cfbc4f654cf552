// A guest's console: one looks first, and types after a click. Who sends first is its writer until he
// goes, so nothing is sent before.
import { ChannelSocket, sentenceOf, socketOf } from "./channel-socket.js";
import { h, setText } from "./dom.js";
import { openTerminal } from "./terminal.js";
import { isReport } from "./words.js";

// What comes so soon after it is open, in ms, is what the guest wrote before: what that asks of a
// terminal is not answered once more.
const REPLAY = 500;
const READ_ONLY = "[read-only: another viewer writes on this console]";

export function consoleView(page, name) {
  const encoder = new TextEncoder();
  const decoder = new TextDecoder();
  const said = h("p", { class: "said" });
  const writeButton = h("button", { type: "button", class: "primary", onclick: () => connect(!isWriting) });
  const again = h("button", { type: "button", onclick: () => connect(isWriting) }, "Connect again");
  const reader = h("input", { type: "checkbox", onchange: () => {
    localStorage.setItem("vmagent:screen-reader", reader.checked ? "yes" : "no");
    terminal?.readerIs(reader.checked);
  } });
  reader.checked = localStorage.getItem("vmagent:screen-reader") === "yes";
  const place = h("div", { class: "terminal", role: "group", "aria-label": `Console of ${name}` });
  const element = h("section", {},
    h("div", { class: "bar" }, writeButton, again, said,
      h("label", { class: "check" }, reader, "For a screen reader")),
    place,
    h("p", { class: "hint" }, "While you type, Tab and Escape are the guest's; Ctrl+F6 leaves the console."));
  let terminal = null;
  let socket = null;
  let isWriting = false;
  let isClosed = false;
  let unread = 0;  // pieces of what was written before that the terminal has not read yet

  function connect(writes) {
    disconnect();
    isWriting = writes;
    terminal.reset();
    const mine = new ChannelSocket(socketOf(page, name, "console.sock"));
    socket = mine;
    let isReplay = true;
    unread = 0;
    tell("Connecting …");
    mine.onopen = () => {
      setTimeout(() => { isReplay = false; }, REPLAY);
      tell(isWriting ? "You type on this console." : "You look at this console; what you type is not sent.");
    };
    mine.onmessage = ({ data }) => {
      const bytes = new Uint8Array(data);
      if (isReplay) ++unread;
      terminal.write(bytes, isReplay && socket === mine ? () => { --unread; } : undefined);
      if (isWriting && decoder.decode(bytes).includes(READ_ONLY)) {
        isWriting = false;
        tell("Somebody else types on this console: you look at it. Type again when they have left.");
      }
    };
    mine.onclose = ({ reason }) => {
      if (socket !== mine) return;
      socket = null;
      isWriting = false;
      tell(sentenceOf(reason, "console"));
    };
    if (isWriting) terminal.focus();
  }

  function disconnect() {
    const before = socket;
    socket = null;
    before?.close();
  }

  function tell(text) {
    setText(said, text);
    setText(writeButton, isWriting ? "Stop typing" : "Type on this console");
    writeButton.hidden = socket === null;
    again.hidden = socket !== null;
    terminal.writingIs(isWriting);
  }

  openTerminal(place, {
    type: text => { if (isWriting && !(unread > 0 && isReport(text))) socket?.send(encoder.encode(text)); },
    leave: () => writeButton.focus(),
    isForReader: reader.checked,
  }).then(made => {
    terminal = made;
    if (isClosed) return terminal.dispose();
    reader.parentElement.hidden = !terminal.hasReaderMode;
    connect(false);
  });

  return {
    element,
    // The guest runs again: there is a console again.
    changed(vm) {
      if (terminal && socket === null && vm?.actual === "running") connect(false);
    },
    close() {
      isClosed = true;
      disconnect();
      terminal?.dispose();
    },
  };
}
