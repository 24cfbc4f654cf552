// Lines out of a stream of pieces; and what each means when it is JSON.

export class Lines {
  #rest = "";

  // The lines that are whole now.
  take(piece) {
    const lines = (this.#rest + piece).split("\n");
    this.#rest = lines.pop();
    return lines;
  }
}

// What a line of JSON says; null: it is none, as a line that was cut off.
export function parsed(line) {
  try {
    return JSON.parse(line);
  } catch {
    return null;
  }
}
