"""What processes use: memory, processor time, context switches."""

import dataclasses
import pathlib


def pss(pid):
    """MiB, shared pages counted in part."""
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    return int(next(l for l in text.splitlines() if l.startswith("Pss:")).split()[1]) / 1024


@dataclasses.dataclass
class Use:
    cpu: float = 0  # ms
    switches: int = 0  # of context, by all threads

    def __sub__(self, other):
        return Use(self.cpu - other.cpu, self.switches - other.switches)


def use(*pids):
    """Of these processes together, since their start."""
    total = Use()
    for pid in pids:
        for thread in pathlib.Path(f"/proc/{pid}/task").iterdir():
            total.cpu += int((thread / "schedstat").read_text().split()[0]) / 1e6
            total.switches += sum(int(line.split()[1])
                                  for line in (thread / "status").read_text().splitlines()
                                  if "ctxt_switches" in line)
    return total
