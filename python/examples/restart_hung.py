#!/usr/bin/python3
"""restart_hung.py [SECONDS]: restarts each guest that has hung for so long, 60 s by default; the same one
not twice within ten minutes."""

import sys
import time

import vmagent

PAUSE = 600


def look_after_guests(patience, restarted):
    hung = {}
    for change in vmagent.watch(beat=5):
        now = time.monotonic()
        if change.op in ("put", "delete"):
            if change.vm.get("wanted") == "running" and change.vm.get("actual") == "hung":
                hung.setdefault(change.name, now)
            else:
                hung.pop(change.name, None)
        if change.stale:  # nobody knows
            hung.clear()
        for name, since in hung.items():
            if now - since >= patience and now - restarted.get(name, -PAUSE) >= PAUSE:
                restarted[name] = now
                print(f"{name} hangs, and is restarted", flush=True)
                vmagent.restart(name, now=True)


def main(patience=60):
    restarted = {}  # when, by VM
    while True:
        try:
            look_after_guests(patience, restarted)
        except (vmagent.Error, vmagent.Lost) as trouble:
            print(trouble, file=sys.stderr, flush=True)
            time.sleep(5)


if __name__ == "__main__":
    main(*map(float, sys.argv[1:]))
