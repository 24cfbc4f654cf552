// A guest's screen, by noVNC where it was installed with the page: one looks first, and takes
// keyboard and mouse with a click.
import { ChannelSocket, sentenceOf, socketOf } from "./channel-socket.js";
import { h, setText } from "./dom.js";

export function screenView(page, name) {
  const said = h("p", { class: "said" });
  const take = h("button", { type: "button", class: "primary", onclick: () => usingIs(!isUsing) });
  const keys = h("button", { type: "button", onclick: () => rfb?.sendCtrlAltDel() }, "Send Ctrl+Alt+Delete");
  const again = h("button", { type: "button", onclick: () => connect() }, "Connect again");
  const place = h("div", { class: "screen", role: "group", "aria-label": `Screen of ${name}` });
  const element = h("section", {},
    h("div", { class: "bar" }, take, keys, again, said), place,
    h("p", { class: "hint" }, "Keyboard and mouse are given back by the button, or with Ctrl+Alt."));
  let RFB = null;
  let rfb = null;
  let isUsing = false;
  let isClosed = false;
  let isConnected = false;
  let heldAlone = false;  // Ctrl and Alt are down, and nothing else was pressed

  function connect() {
    disconnect();
    const vm = page.live.vms.get(name);
    if (vm?.config && !vm.config.vncPort)
      return tell("This guest has no screen: set its vncPort, and restart it.");
    place.replaceChildren();
    tell("Connecting …");
    let reason = "";
    const socket = new ChannelSocket(socketOf(page, name, "vnc.sock"));
    const mine = new RFB(place, socket, { shared: true });
    // noVNC says only that it ended: why is Cockpit's to say.
    const close = socket.onclose;
    socket.onclose = event => { reason = event.reason; close?.(event); };
    rfb = mine;
    mine.viewOnly = true;
    mine.scaleViewport = true;
    mine.focusOnClick = false;
    mine.addEventListener("connect", () => { isConnected = true; usingIs(false); });
    mine.addEventListener("disconnect", () => { if (rfb === mine) ended(sentenceOf(reason, "screen")); });
    mine.addEventListener("securityfailure", event => {
      if (rfb === mine) ended(`The screen refuses to be seen: ${event.detail.reason ?? "it gives no reason"}.`);
    });
  }

  function ended(text) {
    rfb = null;
    isConnected = isUsing = false;
    tell(text);
  }

  function usingIs(wanted) {
    if (!rfb) return;
    isUsing = wanted;
    rfb.viewOnly = !isUsing;
    rfb.focusOnClick = isUsing;
    tell(isUsing ? "Keyboard and mouse are the guest's." : "You look at this screen.");
    if (isUsing) rfb.focus();
    else take.focus({ preventScroll: true });
  }

  function tell(text) {
    setText(said, text);
    setText(take, isUsing ? "Give keyboard and mouse back" : "Use keyboard and mouse");
    take.hidden = !isConnected;
    keys.hidden = !isConnected || !isUsing;
    again.hidden = rfb !== null || RFB === null;
  }

  function disconnect() {
    const before = rfb;
    rfb = null;
    isConnected = isUsing = false;
    try { before?.disconnect(); } catch { /* it was not connected yet */ }
  }

  // Before noVNC takes the keys.
  function key(event) {
    if (!isUsing) return;
    const isModifier = event.key === "Control" || event.key === "Alt";
    if (event.type === "keydown") heldAlone = isModifier && event.ctrlKey && event.altKey;
    else if (heldAlone && isModifier) { heldAlone = false; usingIs(false); }
  }
  place.addEventListener("keydown", key, true);
  place.addEventListener("keyup", key, true);

  tell("Connecting …");
  import("./vendor/novnc/core/rfb.js").then(module => {
    RFB = module.default;
    if (!isClosed) connect();
  }, () => tell(`noVNC was not installed with this page. From elsewhere, a viewer reaches the screen as localhost:5901 through: ` +
    `ssh -L 5901:${socketOf(page, name, "vnc.sock")} ${location.hostname}`));

  return {
    element,
    changed(vm) {
      if (RFB && rfb === null && vm?.actual === "running" && vm.config?.vncPort) connect();
    },
    close() {
      isClosed = true;
      disconnect();
    },
  };
}
