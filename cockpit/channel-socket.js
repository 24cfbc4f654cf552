// One of a guest's sockets, through Cockpit, in the shape of a WebSocket. noVNC asks for that shape.
export class ChannelSocket {
  binaryType = "arraybuffer";
  protocol = "";
  readyState = "connecting";
  onopen = null;
  onmessage = null;
  onclose = null;
  onerror = null;
  #channel;

  constructor(path) {
    this.#channel = cockpit.channel({ payload: "stream", unix: path, binary: true, superuser: "try" });
    this.#channel.addEventListener("ready", () => {
      this.readyState = "open";
      this.onopen?.({});
    });
    this.#channel.addEventListener("message", (_event, data) => {
      const bytes = data instanceof Uint8Array ? data : new Uint8Array(data);
      this.onmessage?.({ data: bytes.slice().buffer });
    });
    this.#channel.addEventListener("close", (_event, options) => this.#closed(options.problem ?? ""));
  }

  // What is sent before it is open waits for that.
  send(data) {
    if (this.readyState === "closed") return;
    this.#channel.send(data instanceof ArrayBuffer ? new Uint8Array(data)
      : new Uint8Array(data.buffer, data.byteOffset, data.byteLength));
  }

  close() {
    this.#channel.close();
    this.#closed("");
  }

  // Told once, for Cockpit may tell it of one that was closed here, too; and later, as by a WebSocket.
  #closed(reason) {
    if (this.readyState === "closed") return;
    this.readyState = "closed";
    queueMicrotask(() => this.onclose?.({ code: reason ? 1006 : 1000, reason, wasClean: !reason }));
  }
}

// Where a guest's socket is. A name that no VM may have leads nowhere.
export function socketOf(page, name, file) {
  return `${page.runDir}/vm/${encodeURIComponent(name)}/${file}`;
}

// What a problem of Cockpit's means for one who looks at a guest. `what`: "console" or "screen".
export function sentenceOf(problem, what) {
  switch (problem) {
    case "":
      return `The ${what} was closed: the guest has ended, or its keeper has no room for one more who looks.`;
    case "not-found":
      return `There is no ${what}: the guest does not run.`;
    case "access-denied":
      return `You may not see the ${what}: that is for root and for members of the group vmagent.`;
    case "disconnected":
    case "terminated":
      return "The connection to the machine is lost.";
    default:
      return `The ${what} cannot be reached (${problem}).`;
  }
}
