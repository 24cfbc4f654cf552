"""Whether one guest's end keeps the others from being polled in time."""

import time

import ours
from ten import TEN

INTERVAL = 5  # seconds, of the agent's polls
VICTIM, PORT, MAC = "victim", "port2", "52:54:00:77:00:03"
# Seconds before a poll is due: after about 20 ms the guest is gone, and its card's device goes.
LEADS = (0.022, 0.017, 0.027, 0.012, 0.032)
POLL = r"handleMonitorResponse\(\) for (\S+) cmd: \S+ val: Running$"


def measure(bench):
    """The daemon must trace level 8: there it says when a poll was answered."""
    bench.links.add_wire(PORT, PORT + "end")
    # A card's end is what takes long in a guest's.
    bench.daemon.add(VICTIM, bench.image, card=ours.card_on(PORT, MAC))
    for i in range(bench.rounds(8, 3)):
        bench.daemon.enable(VICTIM)
        time.sleep(INTERVAL + 0.3)  # all are polled once, undisturbed
        due = dues()
        now = time.time()
        at = min(each for each in due.values() if each > now + 0.1) - LEADS[i % len(LEADS)]
        time.sleep(at - now)
        bench.daemon.disable(VICTIM)
        time.sleep(1)
        answered = last_polls()
        # The one before may have been answered late: this one's answer may come before it is due.
        late = [(answered[name] if answered[name] > due[name] - 1 else time.time()) - due[name]
                for name in TEN if at < due[name] < at + 0.3]
        bench.figures.add("pollDelay", max(0.0, *late) * 1e3)


def last_polls():
    return {found[2]: second for second, found in ours.traced(POLL)}


def dues():
    return {name: second + INTERVAL for name, second in last_polls().items() if name in TEN}
