"""Virtual machines of a switch, from Python: what vmctl(1) shows and does.

    import vmagent

    for vm in vmagent.vms():
        print(vm["name"], vm["actual"])
    vmagent.start("web1", wait=True)
    for change in vmagent.watch():
        print(change.op, change.name)

All of it runs vmctl, which has to be in PATH: who may use that may use this, and what vmctl refuses
is refused here, as an Error with vmctl's exit status and words. VMs and events are the objects that
vmctl writes, see JSON in vmctl(1): members may come to them, and none goes or changes its meaning.

Nothing here is to be used by two threads at once.
"""

import dataclasses
import json
import os
import selectors
import subprocess
import tempfile

# Not set(), which would take the place of Python's own.
__all__ = ["Change", "Conflict", "Error", "Lost", "NoSuch", "Refused", "TimedOut", "Unreachable",
           "apply", "events", "export", "nmi", "pause", "remove", "reset", "restart", "resume", "run",
           "show", "start", "stop", "vms", "wait", "watch"]


class Error(Exception):
    """vmctl did not do it. `exit`: its exit status, -N where signal N ended it, None where it could
    not be run; `text`: what it said."""

    def __init__(self, text, exit=None):
        super().__init__(text)
        self.text = text
        self.exit = exit


class NoSuch(Error):
    """There is no such VM, card or interface."""


class Conflict(Error):
    """What is so forbids it."""


class Refused(Error):
    """A value is refused; nothing was written."""


class Unreachable(Error):
    """The state database cannot be used, or vmctl cannot be run."""


class TimedOut(Error):
    """It is not so yet, in the time that it was given."""


_BY_EXIT = {3: NoSuch, 4: Conflict, 5: Refused, 6: Unreachable, 7: TimedOut, None: Unreachable}


class Lost(Exception):
    """Events behind a cursor are not all kept any more: nobody can tell what has happened. So here is
    how all is: `vms` and `events`, all there are; watch(after=cursor) goes on from there. `reason`:
    "not-kept", "other-store" (the cursor is of another database) or "not-yet" (nothing has its number)."""

    def __init__(self, reason, vms, events, cursor):
        super().__init__(f"events behind the cursor are lost: {reason}")
        self.reason = reason
        self.vms = vms
        self.events = events
        self.cursor = cursor


@dataclasses.dataclass(frozen=True)
class Change:
    """What watch() tells.

    `op` is "put" (`vm` is there, or is another than it was), "delete" (there is none of that name any
    more), "event" (`event` has happened), "synced" (all that was so at the beginning has been told) or
    "beat". `cursor` stands behind all events that were told until now; None: where that is, is not
    known before "synced". `stale`: no vmagentd runs, so VMs are as they were left.
    """

    op: str
    cursor: str | None
    stale: bool
    vm: dict | None = None
    event: dict | None = None

    @property
    def name(self):
        """Of the VM that it is about; empty: of none."""
        if self.vm is not None:
            return self.vm["name"]
        return (self.event or {}).get("vm") or ""


# Looking.

def vms():
    """All VMs, as "vmctl list" has them."""
    return _document("list")["vms"]


def show(name):
    """One VM."""
    return _document("show", "--", name)


def export():
    """The configuration of all VMs, as apply() takes it."""
    return _document("export")


def events(after=None, since=None):
    """What has happened, the oldest first. `after`: behind that cursor, and all there is where that is
    lost; `since`: a time such as "1h", "boot" or "@1795303750"."""
    words = [*_option("--after", after), *_option("--since", since)]
    lines = map(json.loads, _run("events", "-o", "json", *words)[0].splitlines())
    return [line["event"] for line in lines if line["op"] == "event"]


def watch(after=None, beat=None):
    """Yields Changes, and goes on until it is closed: first each VM, then "synced", then what happens,
    as it happens.

    `after`: a cursor of an earlier Change; what has happened since is told before "synced", without a
    gap. Where that is not kept any more it raises Lost, once: the next watch(after=lost.cursor) goes
    on. `beat`: seconds, from 1 on; there is a "beat" where no VM has changed for so long.

    VMs and events come by two ways: of what happens, either may be told first.
    """
    with _Stream("watch", "-o", "json", *_option("--beat", beat)) as states, \
            _Stream("events", "-f", "-o", "json", *_option("--after", after)) as happenings:
        yield from _Watch(states, happenings, after).changes()


# Doing. Each returns what vmctl said, a line a name. With `wait` they return when it is done.

def apply(document, prune=False, dry_run=False):
    """Makes and changes VMs so that each is as the document says, or a list of VMs; all or nothing."""
    if isinstance(document, list):
        document = {"version": 1, "vms": document}
    return _said("apply", "-f", "-", *_flags(prune=prune, dry_run=dry_run), data=json.dumps(document))


def start(*names, wait=False, timeout=None):
    return _switch("start", names, timeout, wait=wait)


def stop(*names, now=False, wait=False, timeout=None):
    """`timeout`: seconds that the guests get to shut themselves down."""
    return _switch("stop", names, timeout, now=now, wait=wait)


def restart(*names, now=False, force=False, wait=False, timeout=None):
    return _switch("restart", names, timeout, now=now, force=force, wait=wait)


def pause(*names):
    return _switch("pause", names)


def resume(*names):
    return _switch("resume", names)


def reset(*names):
    return _switch("reset", names)


def nmi(*names):
    return _switch("nmi", names)


def remove(*names, force=False, wait=False, timeout=None):
    return _switch("remove", names, timeout, force=force, wait=wait)


def set(name, /, **fields):
    """Changes fields, such as memory=512; others as {"vnicConfig.nic00.intfName": "Ethernet2"}, by
    set(name, **them)."""
    return _said("set", "--", name, *(f"{field}={_text(value)}" for field, value in fields.items()))


def wait(name, /, timeout=None, **states):
    """Returns when all that is so: state="Running", enabled=True, process="none"."""
    wanted = [word for field, value in states.items() for word in ("--for", f"{field}={_text(value)}")]
    return _said("wait", *wanted, *_option("--timeout", timeout), "--", name)


def run(*words):
    """Anything else that vmctl does, such as run("nic", "rm", "web1", "nic00"). Returns its data and
    what it said. Who has names of others' in the words puts "--" before them."""
    out, said = _run(*words)
    return out + said


def _switch(verb, names, timeout=None, **flags):
    if not names:
        raise ValueError(f"{verb}: no VM is named")
    return _said(verb, *_flags(**flags), *_option("--timeout", timeout), "--", *names)


def _text(value):
    return str(value).lower() if isinstance(value, bool) else str(value)


def _flags(**flags):
    return ["--" + flag.replace("_", "-") for flag, is_set in flags.items() if is_set]


def _option(name, value):
    return [] if value is None else [f"{name}={value}"]


def _error(exit, text):
    said = "\n".join(line.removeprefix("vmctl: ") for line in text.strip().splitlines())
    return _BY_EXIT.get(exit, Error)(said or f"vmctl ended with status {exit}", exit)


def _popen(words, **options):
    try:
        return subprocess.Popen(["vmctl", *words], **options)
    except OSError as error:
        raise _error(None, f"vmctl cannot be run: {error.strerror}") from error


def _call(words, data):
    """Its exit status, its data, and what it said."""
    pipe = subprocess.PIPE
    with _popen(words, stdin=subprocess.DEVNULL if data is None else pipe, stdout=pipe, stderr=pipe,
                text=True, encoding="utf-8", errors="replace") as vmctl:
        try:
            out, said = vmctl.communicate(data)
        except BaseException:
            vmctl.kill()
            raise
    return vmctl.returncode, out, said


def _run(*words, data=None):
    exit, out, said = _call(words, data)
    if exit != 0:
        raise _error(exit, said)
    return out, said


def _said(*words, data=None):
    out, said = _run(*words, data=data)
    return out + said


def _document(*words):
    """What it writes counts, whatever its exit says of what is in there."""
    exit, out, said = _call(["-o", "json", *words], None)
    try:
        return json.loads(out)
    except ValueError:
        raise _error(exit, said) from None


class _Stream:
    """A vmctl that goes on, and its lines of JSON."""

    def __init__(self, *words):
        self._words = words
        self._rest = b""

    def __enter__(self):
        self._said = tempfile.TemporaryFile()
        try:
            self._process = _popen(self._words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=self._said)
        except Error:
            self._said.close()
            raise
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()
        self._process.stdout.close()
        self._said.close()

    def fileno(self):
        return self._process.stdout.fileno()

    def lines(self):
        """Those that are there; waits for something. Raises why it has ended."""
        piece = os.read(self.fileno(), 1 << 16)
        if not piece:
            exit = self._process.wait()
            self._said.seek(0)
            raise _error(exit, self._said.read().decode("utf-8", "replace"))
        *lines, self._rest = (self._rest + piece).split(b"\n")
        return [json.loads(line.decode("utf-8", "replace")) for line in lines]


class _Watch:
    """Makes Changes of what two streams tell."""

    def __init__(self, states, happenings, after):
        self._states = states
        self._happenings = happenings
        self._is_new = after is not None  # whether what has happened already is told
        self._cursor = after
        seq = (after or "").rpartition(":")[2]
        self._seq = int(seq) if seq.isdecimal() else 0
        self._stale = False
        self._unsynced = {states, happenings}

    def changes(self):
        with selectors.DefaultSelector() as streams:
            for stream in (self._states, self._happenings):
                streams.register(stream, selectors.EVENT_READ)
            while True:
                for key, _ in streams.select():
                    for line in key.fileobj.lines():
                        yield from self._heard(key.fileobj, line)

    def _heard(self, stream, line):
        op = line["op"]
        if stream is self._states:
            self._stale = line.get("stale", False)
        if op == "lost":
            raise _lost(line["store"], line["reason"])
        if op == "event":
            self._seq = line["seq"]
            if self._is_new:
                self._cursor = f'{line["store"]}:{self._seq}'
                yield self._change(op, event=line["event"])
        elif op == "synced":
            if stream is self._happenings:
                self._is_new = True
                self._cursor = f'{line["store"]}:{self._seq}'
            self._unsynced.discard(stream)
            if not self._unsynced:
                yield self._change(op)
        else:
            yield self._change(op, vm=line.get("vm"))

    def _change(self, op, vm=None, event=None):
        return Change(op, self._cursor, self._stale, vm, event)


def _lost(store, reason):
    # In this order: what happens between is told again rather than not at all.
    kept = events()
    newest = max((event["seq"] for event in kept), default=0)
    return Lost(reason, vms(), kept, f"{store}:{newest}")
