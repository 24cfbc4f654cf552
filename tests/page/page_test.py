"""The page as operators have it: each name says what is so; run by tests/page/run."""

import contextlib
import json
import os
import pathlib
import socket
import sqlite3
import subprocess
import tempfile
import time
import unittest

from devtools import Browser, wait
from machine import Machine, descendants, processor_seconds

BUILD = pathlib.Path(os.environ["PAGE_TEST_BUILD"])
OUT = BUILD / "page"
SHARED = OUT / "prefix/share"
MARKUP = "<img/src=x/onerror=document.title='owned'>"
STRANGER = 65534
ROWS = "document.querySelectorAll('table.list tbody tr')"

machine = browser = address = None


def setUpModule():
    global machine, browser, address
    folder = tempfile.mkdtemp()
    os.chmod(folder, 0o755)
    machine = Machine(BUILD, SHARED, folder)
    machine.start()
    address = machine.cockpit()
    browser = Browser(pathlib.Path(folder) / "browser")


def tearDownModule():
    browser.close()
    machine.close()


def image(name):
    """A disk of a guest that writes BOOTSECTOR READY, and then what is typed."""
    path = pathlib.Path("/tmp") / f"{name}.img"
    path.write_bytes((OUT / "bootsector.img").read_bytes())
    return str(path)


def add(name, *words, runs=False):
    machine.vmctl("add", name, "--disk", image(name), "--memory", "16", *words)
    if runs:
        machine.vmctl("start", name, "--wait")


def running(verb):
    """The processes of vmctl that a Cockpit runs with that verb."""
    found = []
    for pid in (pid for server in machine.servers for pid in descendants(server.pid)):
        try:
            words = pathlib.Path(f"/proc/{pid}/cmdline").read_text().split("\0")
        except OSError:
            continue
        if words[0].endswith("vmctl") and verb in words:
            found.append(pid)
    return found


@contextlib.contextmanager
def foreign_row(name):
    """A row that another program has written, of a name that vmctl would not take."""
    def write(statement):
        with sqlite3.connect("/var/lib/vmagent/config.db") as db:
            db.execute(statement, (name,))
        with open("/var/lib/vmagent/config.db-bell", "w"):
            pass
    write("insert into record(tbl, key, doc) values('vmConfig', ?, '{}')")
    try:
        yield
    finally:
        write("delete from record where key = ?")


def row_of(name):
    """An expression: the row of a guest; undefined: there is none."""
    return f"[...{ROWS}].find(row => row.querySelector('th').textContent === {json.dumps(name)})"


class PageTest(unittest.TestCase):
    """A tab for each test; nothing but what a test allows for may the browser complain of."""

    def setUp(self):
        # noVNC reads its canvas back.
        self.allowed = ["willReadFrequently"]
        self.tab = browser.tab()

    def tearDown(self):
        troubles = [each for each in self.tab.troubles() if not any(word in each for word in self.allowed)]
        foreign = [each for each in self.tab.addresses()
                   if not each.startswith(("data:", "blob:", "about:", "http://127.0.0.1:", "ws://127.0.0.1:"))]
        self.tab.close()
        for vm in machine.document("list")["vms"]:
            machine.vmctl("stop", vm["name"], "--now", check=False)
            machine.vmctl("remove", vm["name"], "--force", "--wait", check=False)
        self.assertEqual(troubles, [], "the browser complains")
        self.assertEqual(foreign, [], "something is asked for elsewhere")

    def open(self, view="#/", where=None):
        self.tab.open((where or address) + view)
        self.tab.wait("document.getElementById('link')?.textContent === 'live'")

    def actual(self, name):
        return self.tab.js(f"{row_of(name)}?.querySelector('.col-actual').textContent")


class List(PageTest):
    def test_shows_what_vmctl_lists(self):
        add("alpha", "--nic", "model=virtio-net-pci,mac=52:54:00:00:00:01,intf=Ethernet1", runs=True)
        add("beta", "--nic", "model=e1000,mac=52:54:00:00:00:02,intf=Ethernet9")
        self.open()
        self.tab.wait(f"{ROWS}.length === 2")
        self.tab.wait(f"{row_of('beta')}.textContent.includes('not there')")
        for vm in machine.document("list")["vms"]:
            row = self.tab.js(f"Object.fromEntries([...{row_of(vm['name'])}.cells].map(cell => [cell.className.split(' ')[0], cell.textContent]))")
            self.assertEqual(row["col-wanted"], vm["wanted"])
            self.assertEqual(row["col-actual"], vm["actual"])
            self.assertEqual(row["col-why"], vm["reasons"][0]["text"] if vm["reasons"] else "")
            for key, card in vm["config"]["vnicConfig"].items():
                self.assertIn(f"{key} {card['intfName']}", row["col-cards"])

    def test_shows_a_change_within_a_second(self):
        self.open()
        for name in ("one", "two", "three"):
            add(name)
            begin = time.monotonic()
            self.tab.wait(f"{row_of(name)} !== undefined", 1)
            print(f"[shown after {time.monotonic() - begin:.3f} s]", end=" ", flush=True)
        machine.vmctl("remove", "two")
        self.tab.wait(f"{row_of('two')} === undefined", 1)

    def test_starts_and_stops_a_guest(self):
        add("web", runs=False)
        self.open()
        self.tab.click("tbody button", "Start")
        machine.wait_for("web", actual="running")
        self.tab.wait(f"{row_of('web')}.querySelector('.col-actual').textContent === 'running'", 2)
        # It is deaf to the power button, so it is asked, and can be switched off before its time.
        self.tab.click("tbody button", "Shut down")
        self.tab.wait(f"{row_of('web')}.textContent.includes('switched off')")
        self.tab.click("tbody button", "Switch off now")
        self.tab.wait("document.querySelector('dialog')?.textContent.includes('loses what it has not written')")
        self.tab.click("dialog button", "Switch off now")
        self.tab.wait(f"{row_of('web')}.querySelector('.col-actual').textContent === 'stopped'")
        self.assertEqual(machine.vm("web")["wanted"], "stopped")

    def test_pauses_and_resumes_by_the_menu_and_the_keyboard(self):
        add("web", runs=True)
        self.open()
        self.tab.wait(f"{row_of('web')}?.querySelector('.kebab').focus() === undefined")
        self.tab.key("ArrowDown", 40)
        for _ in range(4):
            self.tab.key("ArrowDown", 40)
        self.assertEqual(self.tab.js("document.activeElement.textContent"), "Pause")
        self.tab.key("Enter", 13, "\r")
        machine.wait_for("web", actual="paused")
        self.assertEqual(self.tab.js("document.activeElement.getAttribute('aria-label')"), "More for web")
        self.tab.click("tbody button", "Resume")
        machine.wait_for("web", actual="running")

    def test_tells_what_vmctl_refuses_in_its_words_with_a_way_back(self):
        add("web")
        self.open()
        self.tab.click(".kebab")
        self.tab.click("[role=menuitem]", "Pause")
        said = machine.vmctl("pause", "web", check=False).stderr.removeprefix("vmctl: ").strip()
        self.tab.wait(f"document.querySelector('[role=alert]')?.textContent.includes({json.dumps(said)})")
        machine.vmctl("start", "web", "--wait")
        self.tab.click("[role=alert] button", "Try again")
        machine.wait_for("web", actual="paused")

    def test_does_what_vmctl_says_is_next(self):
        add("web", runs=True)
        self.open()
        machine.vmctl("set", "web", "memory=32")
        self.tab.click("tbody button.link-like", "vmctl restart web")
        self.tab.wait(f"!{row_of('web')}.textContent.includes('vmctl restart web')")
        machine.wait_for("web", actual="running")

    def test_keeps_what_is_typed_and_the_focus_while_it_changes(self):
        for name in ("a", "b", "c"):
            add(name)
        self.open()
        self.tab.click("input[type=search]")
        self.tab.type("b")
        self.tab.wait(f"{ROWS}.length === 1")
        self.tab.js(f"{row_of('b')}.querySelector('a').focus()")
        machine.vmctl("start", "b", "--wait")
        self.tab.wait(f"{row_of('b')}.querySelector('.col-actual').textContent === 'running'")
        self.assertEqual(self.tab.js("document.activeElement.textContent"), "b")
        self.assertEqual(self.tab.js("document.querySelector('input[type=search]').value"), "b")
        self.assertEqual(self.tab.js(f"{ROWS}.length"), 1)

    def test_is_sorted_as_one_asks(self):
        for name in ("vm2", "vm10", "vm1"):
            add(name)
        self.open()
        names = f"[...{ROWS}].map(row => row.querySelector('th').textContent).join(' ')"
        self.tab.wait(f"{names} === 'vm1 vm2 vm10'")
        self.tab.click("thead button", "Name")
        self.tab.wait(f"{names} === 'vm10 vm2 vm1'")
        self.assertEqual(self.tab.js("document.querySelector('th[aria-sort]').getAttribute('aria-sort')"), "descending")

    def test_of_five_hundred_guests_is_there_soon(self):
        add("first")
        config = machine.vm("first")["config"]
        vms = [{"name": f"vm{i}", "config": config | {"diskImage": f"/tmp/none{i}.img"}} for i in range(499)]
        document = machine.folder / "many.json"
        document.write_text(json.dumps({"version": 1, "vms": vms}))
        machine.vmctl("apply", "-f", str(document))
        wait(lambda: all(vm["actual"] for vm in machine.document("list")["vms"]), "all are known", 60)
        begin = time.monotonic()
        self.tab.open(address)
        self.tab.wait(f"{ROWS}.length === 500", 20)
        self.tab.js("new Promise(done => requestAnimationFrame(() => setTimeout(done)))")
        took = time.monotonic() - begin
        begin = time.monotonic()
        machine.vmctl("set", "vm77", "memory=64")
        machine.vmctl("remove", "vm78")
        self.tab.wait(f"{row_of('vm78')} === undefined", 1)
        print(f"[500 rows after {took:.2f} s, a change after {time.monotonic() - begin:.2f} s]", end=" ", flush=True)
        self.assertLess(took, 5)
        machine.vmctl("remove", *[vm["name"] for vm in vms], check=False)

    def test_plots_what_guests_take(self):
        add("web", runs=True)
        add("off")
        self.open()
        cell = f"{row_of('web')}.querySelector('.col-load')"
        self.tab.wait(f"/[0-9]+ %[0-9]+ MiB/.test({cell}.textContent)")
        self.tab.wait(f"{cell}.querySelector('path').getAttribute('d').includes('L')")
        taken = next(guest for guest in machine.document("top", "-n", "1")["guests"] if guest["name"] == "web")
        shown = int(self.tab.js(f"{cell}.textContent").split("%")[1].split()[0])
        self.assertAlmostEqual(shown, taken["memory"]["bytes"] / 2 ** 20, delta=8)
        self.assertEqual(self.tab.js(f"{row_of('off')}.querySelector('.col-load').textContent"), "")
        self.tab.js("location.hash = '#/vm/web'")
        self.tab.wait("document.querySelectorAll('main svg[role=img]').length === 2")
        # While nobody looks, nobody is asked.
        self.assertEqual(len(running("top")), 1)
        self.tab.js("Object.defineProperty(document, 'hidden', {value: true}); document.dispatchEvent(new Event('visibilitychange'))")
        wait(lambda: not running("top"), "nobody asks what guests take", 5)

    def test_is_among_cockpits_pages(self):
        self.allowed += ["Could not connect", "ListUnitsFiltered"]  # the shell looks for D-Bus
        add("web", runs=True)
        self.tab.open(address.split("/cockpit/")[0] + "/vmagent")
        page = "[...document.querySelectorAll('iframe')].map(each => each.contentDocument).find(each => each?.querySelector('#views'))"
        self.tab.wait(f"{page}.querySelector('tbody th a')?.textContent === 'web'")
        self.tab.wait("[...document.querySelectorAll('nav a')].some(link => link.textContent.includes('Guests'))")
        self.tab.js(f"{page}.querySelector('tbody th a').click()")
        self.tab.wait("location.hash === '#/vm/web'")
        self.tab.wait(f"{page}.querySelector('h1').textContent === 'web'")
        self.tab.picture(OUT / "shell.png")

    def test_costs_next_to_nothing_when_nothing_happens(self):
        for i in range(20):
            add(f"vm{i}")
        self.open()
        self.tab.wait(f"{ROWS}.length === 20")
        time.sleep(2)
        sides = [[machine.daemon.pid, *(pid for server in machine.servers for pid in descendants(server.pid))],
                 descendants(browser.process.pid)]
        before = [processor_seconds(side) for side in sides]
        time.sleep(10)
        there, here = (sum(used - begin.get(pid, 0) for pid, used in processor_seconds(side).items())
                       for side, begin in zip(sides, before))
        print(f"[in 10 s: {there:.2f} s of the machine, {here:.2f} s of the browser]", end=" ", flush=True)
        self.assertLess(there, 0.2)
        self.assertLess(here, 1.0)


class Guest(PageTest):
    def test_tells_its_state_and_what_has_happened(self):
        add("web", runs=True)
        self.open("#/vm/web/events")
        self.tab.wait("document.querySelector('.story').textContent.startsWith('Wanted running; running for')")
        self.tab.wait("document.querySelector('.events').textContent.includes('enabled false -> true')")
        self.tab.wait("document.querySelector('.events').textContent.includes('root (vmctl start)')")
        machine.vmctl("reset", "web")
        self.tab.wait("document.querySelector('.events tbody tr').textContent.includes('reset')", 5)
        kept = [line for line in machine.vmctl("history", "web", "-o", "json").stdout.split("\n") if '"event"' in line]
        self.assertEqual(self.tab.js(f"{ROWS}.length"), len(kept))

    def test_that_was_ended_says_so(self):
        add("web", runs=True)
        self.open("#/vm/web")
        os.kill(machine.vm("web")["pid"], 9)
        self.tab.wait("document.querySelector('.story').textContent.includes('Last end:')")
        self.tab.wait("document.querySelector('.next button').textContent.includes('vmctl start web')")
        self.tab.click(".next button")
        machine.wait_for("web", actual="running")

    def test_is_moved_to_another_port(self):
        add("web", "--nic", "model=virtio-net-pci,mac=52:54:00:00:00:01,intf=Ethernet1")
        self.open("#/vm/web")
        self.tab.wait("[...document.querySelectorAll('.nic option')].some(each => each.value === 'Ethernet2')")
        self.tab.js("(() => { const it = document.querySelector('.nic select'); it.value = 'Ethernet2'; it.dispatchEvent(new Event('change')); })()")
        self.tab.click(".nic button", "Move")
        wait(lambda: machine.vm("web")["config"]["vnicConfig"]["nic00"]["intfName"] == "Ethernet2", "it is moved", 5)
        self.tab.wait("document.querySelector('.nic select').value === 'Ethernet2'")

    def test_that_goes_while_looked_at_says_so(self):
        add("web")
        self.open("#/vm/web/config")
        self.tab.wait("document.querySelector('form.config')")
        machine.vmctl("remove", "web")
        self.tab.wait("document.querySelector('main [role=alert]').textContent.includes('There is no guest called web')")
        add("web")
        self.tab.wait("document.querySelector('main [role=alert]').hidden")

    def test_shows_its_logs_as_they_grow(self):
        add("web", runs=True)
        self.open("#/vm/web/logs")
        self.tab.wait("document.querySelector('pre').textContent.includes('BOOTSECTOR READY')")
        times = "document.querySelector('pre').textContent.split('BOOTSECTOR READY').length"
        before = self.tab.js(times)
        machine.vmctl("reset", "web")
        self.tab.wait(f"{times} === {before + 1}")
        self.tab.js("(() => { const it = document.querySelector('main select'); it.value = 'shim'; it.dispatchEvent(new Event('change')); })()")
        self.tab.wait("document.querySelector('pre').textContent.includes('QEMU')")


class Form(PageTest):
    def said_of(self, label):
        return (f"(() => {{ const label = [...document.querySelectorAll('label')].find(each => each.textContent === {json.dumps(label)});"
                " return label.parentElement.querySelector('.wrong').textContent; })()")

    def test_says_what_vmctl_says_of_what_is_typed(self):
        add("web")
        self.open("#/vm/web/config")
        for field, value in (("memory", "99999999"), ("vncPort", "80"), ("diskImage", "relative path"), ("cpuMax", "many")):
            self.tab.fill(field, value)
        refused = machine.vmctl("set", "web", "memory=99999999", "vncPort=80", "diskImage=/relative path", "cpuMax=many", "--dry-run", check=False)
        self.assertEqual(refused.returncode, 5)
        for line in refused.stderr.splitlines():
            _program, _vm, field, sentence = line.split(": ", 3)
            if field == "diskImage":  # from another working folder
                sentence = sentence.split("refused: ")[1]
            self.tab.wait(f"{self.said_of(field)}.includes({json.dumps(sentence)})")
        self.tab.click("button", "Save")
        self.tab.wait(f"{self.said_of('memory')}.includes('refused')")
        self.assertEqual(machine.vm("web")["config"]["memory"], 16)
        self.tab.click("button", "Undo")
        self.tab.wait(f"{self.said_of('memory')} === ''")

    def test_has_every_field_as_it_is(self):
        add("web")
        said = {"memory": "64", "vncPort": "5901", "cpuWeight": "50", "cpuMax": "1.5", "rateLimit": "10"}
        chosen = {"restart": "always", "startOrder": "7"}  # where this vmctl has them
        known = {field["field"] for field in machine.document("fields")["fields"]}
        said |= {field: value for field, value in chosen.items() if field in known}
        machine.vmctl("set", "web", *[f"{field}={value}" for field, value in said.items()])
        self.open("#/vm/web/config")
        values = ("Object.fromEntries([...document.querySelectorAll('.field label')]"
                  ".map(label => [label.textContent, label.control.value]))")
        self.tab.wait("document.querySelector('.field')")
        shown = self.tab.js(values)
        self.assertEqual({field: shown[field] for field in said}, said)
        self.assertEqual(shown["ioWeight"], "100")

    def test_writes_what_is_right_and_says_when_it_is_in_force(self):
        add("web", runs=True)
        self.open("#/vm/web/config")
        self.tab.fill("memory", "64")
        self.tab.fill("cpuWeight", "50")
        self.tab.wait("document.querySelector('.said-list').textContent.includes('would be changed')")
        self.tab.click("button", "Save")
        self.tab.wait("document.querySelector('.said-list').textContent.includes('takes effect at the next start')")
        self.assertEqual(machine.vm("web")["config"]["memory"], 64)
        self.assertEqual(machine.vm("web")["limits"]["cpuWeight"], 50)

    def test_keeps_what_is_typed_while_another_changes_the_rest(self):
        add("web")
        machine.vmctl("nic", "add", "web", "model=e1000,mac=52:54:00:00:00:01,intf=Ethernet1")
        self.open("#/vm/web/config")
        self.tab.fill("memory", "64")
        self.tab.fill("intfName", "Ethernet2")
        machine.vmctl("set", "web", "vncPort=5905")
        value = "[...document.querySelectorAll('label')].find(each => each.textContent === '%s').control.value"
        self.tab.wait(f"{value % 'vncPort'} === '5905'")
        self.assertEqual(self.tab.js(value % "memory"), "64")
        self.assertEqual(self.tab.js("document.activeElement.value"), "Ethernet2")

    def test_adds_and_removes_a_card(self):
        add("web")
        self.open("#/vm/web/config")
        self.tab.click("button", "Add a card")
        self.tab.fill("macAddr", "52:54:00:00:00:0")
        self.tab.wait(f"{self.said_of('macAddr')}.includes('must be a MAC address')")
        self.tab.fill("macAddr", "52:54:00:00:00:0a")
        self.tab.fill("intfName", "Ethernet1")
        self.tab.wait(f"{self.said_of('macAddr')} === ''")
        self.tab.click("button", "Add it")
        self.tab.wait("document.querySelector('legend')?.textContent === 'nic00'")
        self.assertEqual(machine.vm("web")["config"]["vnicConfig"]["nic00"]["macAddr"], "52:54:00:00:00:0a")
        self.tab.click("button", "Remove nic00")
        self.tab.wait("document.querySelector('legend') === null")

    def test_adds_a_guest_from_an_image(self):
        path = image("fresh")
        self.open("#/add")
        self.tab.fill("name", "fresh guest")
        self.tab.fill("diskImage", path)
        self.tab.wait("document.querySelector('.said-list').textContent.includes('must be 1 to 64 of')")
        self.tab.fill("name", "fresh")
        self.tab.fill("memory", "16")
        self.tab.click("button", "Add a card")
        self.tab.fill("intfName", "Ethernet1")
        self.tab.wait("document.querySelector('.said-list').textContent.includes('would be added')")
        self.tab.click("main .sticky button", "Add")
        self.tab.wait("location.hash === '#/vm/fresh'")
        machine.wait_for("fresh", actual="running")
        self.assertEqual(machine.vm("fresh")["config"]["vnicConfig"]["nic00"]["intfName"], "Ethernet1")


class Console(PageTest):
    SHOWN = "document.querySelector('.xterm-rows')?.textContent"

    def see(self, tab, text):
        tab.wait(f"{self.SHOWN}?.includes({json.dumps(text)})")

    def test_is_looked_at_first_and_typed_on_after_a_click(self):
        add("web", runs=True)
        self.open("#/vm/web/console")
        self.see(self.tab, "BOOTSECTOR READY")
        self.tab.click(".xterm-screen")
        self.tab.type("unheard")
        self.tab.click("button", "Type on this console")
        self.tab.wait("document.querySelector('.said').textContent.startsWith('You type')")
        self.tab.type("echo me 42")
        self.see(self.tab, "echo me 42")
        self.assertNotIn("unheard", self.tab.js(self.SHOWN))

    def test_does_not_answer_what_was_asked_before(self):
        add("web", runs=True)
        with socket.socket(socket.AF_UNIX) as before:
            before.connect("/run/vmagent/vm/web/console.sock")
            wait(lambda: b"READY" in machine.log("web"), "it is ready", 20)
            before.send(b"\x1b[6n")  # the guest says it, too: where is the cursor?
            wait(lambda: machine.log("web").endswith(b"\x1b[6n"), "it is said", 5)
        self.open("#/vm/web/console")
        self.see(self.tab, "BOOTSECTOR READY")
        self.tab.click("button", "Type on this console")
        self.tab.wait("document.querySelector('.said').textContent.startsWith('You type')")
        time.sleep(1)  # long enough for an answer
        self.tab.type("mine")
        self.see(self.tab, "mine")
        self.assertTrue(machine.log("web").endswith(b"\x1b[6nmine"), machine.log("web")[-40:])

    def test_lets_the_keyboard_out(self):
        add("web", runs=True)
        self.open("#/vm/web/console")
        self.see(self.tab, "BOOTSECTOR READY")
        self.tab.click("button", "Type on this console")
        self.tab.wait("document.activeElement.className.includes('xterm')")
        self.tab.key("Tab", 9)
        self.assertIn("xterm", self.tab.js("document.activeElement.className"))
        self.tab.key("F6", 117, modifiers=2)
        self.assertEqual(self.tab.js("document.activeElement.textContent"), "Stop typing")

    def test_is_one_browsers_to_type_on(self):
        add("web", runs=True)
        self.open("#/vm/web/console")
        self.see(self.tab, "BOOTSECTOR READY")
        self.tab.click("button", "Type on this console")
        self.tab.wait("document.querySelector('.said').textContent.startsWith('You type')")
        self.tab.type("mine")
        self.see(self.tab, "mine")
        other = browser.tab()
        other.open(address + "#/vm/web/console")
        self.see(other, "mine")
        other.click("button", "Type on this console")
        other.wait("document.querySelector('.said').textContent.startsWith('You type')")
        other.type("yours")
        other.wait("document.querySelector('.said').textContent.startsWith('Somebody else types')")
        self.assertNotIn("yours", self.tab.js(self.SHOWN))
        other.close()

    def test_says_when_the_guest_ends_and_comes_back_with_it(self):
        add("web", runs=True)
        self.open("#/vm/web/console")
        self.see(self.tab, "BOOTSECTOR READY")
        machine.vmctl("stop", "web", "--now", "--wait")
        self.tab.wait("/was closed|There is no console/.test(document.querySelector('.said').textContent)")
        machine.vmctl("start", "web", "--wait")
        self.tab.wait("document.querySelector('.said').textContent.startsWith('You look')")
        self.see(self.tab, "BOOTSECTOR READY")

    def test_without_xterm_is_plain_text(self):
        add("web", runs=True)
        parts = SHARED / "cockpit/vmagent/vendor"
        parts.rename(parts.with_name("away"))
        try:
            self.allowed += ["vendor/", "dynamically imported"]
            self.open("#/vm/web/console", machine.cockpit())
            self.tab.wait("document.querySelector('pre')?.textContent.includes('BOOTSECTOR READY')")
            self.tab.click("button", "Type on this console")
            self.tab.click("form input")
            self.tab.type("plain")
            self.tab.click("form button", "Send")
            self.tab.wait("document.querySelector('pre').textContent.includes('plain')")
            self.tab.js("location.hash = '#/vm/web/screen'")
            self.tab.wait("document.querySelector('.said').textContent.includes('ssh -L 5901:/run/vmagent/vm/web/vnc.sock')")
        finally:
            parts.with_name("away").rename(parts)


class Screen(PageTest):
    def test_is_looked_at_first_and_taken_with_a_click(self):
        add("web", "--vnc-port", "5900", runs=True)
        self.open("#/vm/web/screen")
        self.tab.wait("document.querySelector('.said').textContent === 'You look at this screen.'")
        # What SeaBIOS writes is there: something of it is not black.
        self.tab.wait("""(() => { const it = document.querySelector('.screen canvas');
            return it.width > 300 && it.getContext('2d').getImageData(0, 0, it.width, it.height).data.some((byte, i) => i % 4 < 3 && byte > 90); })()""")
        self.tab.click("button", "Use keyboard and mouse")
        self.tab.wait("document.activeElement.tagName === 'CANVAS'")
        self.tab.call("Input.dispatchKeyEvent", type="keyDown", key="Control", code="ControlLeft", windowsVirtualKeyCode=17, modifiers=2)
        self.tab.call("Input.dispatchKeyEvent", type="keyDown", key="Alt", code="AltLeft", windowsVirtualKeyCode=18, modifiers=3)
        self.tab.call("Input.dispatchKeyEvent", type="keyUp", key="Alt", code="AltLeft", windowsVirtualKeyCode=18, modifiers=2)
        self.tab.call("Input.dispatchKeyEvent", type="keyUp", key="Control", code="ControlLeft", windowsVirtualKeyCode=17)
        self.tab.wait("document.querySelector('.said').textContent === 'You look at this screen.'")
        self.assertEqual(self.tab.js("document.activeElement.textContent"), "Use keyboard and mouse")

    def test_says_when_it_ends_and_comes_back(self):
        self.allowed += ["noVNC", "closed"]
        add("web", "--vnc-port", "5900", runs=True)
        self.open("#/vm/web/screen")
        self.tab.wait("document.querySelector('.said').textContent === 'You look at this screen.'")
        machine.vmctl("stop", "web", "--now", "--wait")
        self.tab.wait("/^The screen was closed|^There is no screen/.test(document.querySelector('.said').textContent)")
        machine.vmctl("start", "web", "--wait")
        self.tab.wait("document.querySelector('.said').textContent === 'You look at this screen.'")

    def test_that_a_guest_has_not_is_said_so(self):
        add("web", runs=True)
        self.open("#/vm/web/screen")
        self.tab.wait("document.querySelector('.said').textContent.startsWith('This guest has no screen')")


class Trouble(PageTest):
    def test_of_a_daemon_that_is_gone_is_said_and_over_when_it_is_back(self):
        add("web", runs=True)
        self.open()
        machine.kill()
        begin = time.monotonic()
        self.tab.wait("document.getElementById('link').textContent === 'vmagentd is not running'", 6)
        print(f"[told after {time.monotonic() - begin:.1f} s]", end=" ", flush=True)
        self.tab.wait("document.querySelector('[role=alert]').textContent.includes('what is shown is as it was left')")
        self.assertEqual(self.actual("web"), "running")
        machine.start()
        self.tab.wait("document.getElementById('link').textContent === 'live'", 6)
        self.assertIsNone(self.tab.js("document.querySelector('#notices [role=alert]')"))

    def test_of_a_watch_that_ends_is_got_over(self):
        add("web")
        self.open()
        for _ in range(3):
            for pid in running("watch"):
                os.kill(pid, 9)
            self.tab.wait("document.getElementById('link').textContent.startsWith('not live')")
            self.tab.wait("document.getElementById('link').textContent === 'live'")
        add("more")
        self.tab.wait(f"{row_of('more')} !== undefined", 1)

    def test_of_who_has_no_rights_is_a_sentence(self):
        add("web", runs=True)
        self.tab.open(machine.cockpit(STRANGER))
        said = subprocess.run(["setpriv", f"--reuid={STRANGER}", f"--regid={STRANGER}", "--clear-groups", machine.build / "ctl/vmctl", "list"],
                              env=machine.environment, text=True, capture_output=True).stderr.removeprefix("vmctl: ").strip()
        self.assertNotEqual(said, "")
        self.tab.wait(f"document.querySelector('[role=alert]')?.textContent.includes({json.dumps(said)})")
        self.tab.wait("document.querySelector('.empty').textContent === 'What guests there are is not known.'")
        self.tab.js("location.hash = '#/vm/web/console'")
        self.tab.wait("document.querySelector('.said')?.textContent.includes('You may not see the console')")

    def test_of_a_newer_database_is_said_in_vmctls_words(self):
        with sqlite3.connect("/var/lib/vmagent/config.db") as db:
            format = db.execute("pragma user_version").fetchone()[0]
            db.execute(f"pragma user_version = {format + 1}")
        try:
            said = machine.vmctl("list", check=False)
            self.assertEqual(said.returncode, 6)
            self.tab.open(address)
            self.tab.wait(f"document.querySelector('[role=alert]')?.textContent.includes({json.dumps(said.stderr.removeprefix('vmctl: ').strip())})")
        finally:
            with sqlite3.connect("/var/lib/vmagent/config.db") as db:
                db.execute(f"pragma user_version = {format}")
        self.tab.click("[role=alert] button", "Try again")
        self.tab.wait("document.getElementById('link').textContent === 'live'")

    def test_of_a_vm_that_is_called_like_an_option_stays_its_own(self):
        add("web")
        with foreign_row("--all"):
            self.open()
            self.tab.wait(f"{row_of('--all')} !== undefined")
            self.tab.js(f"{row_of('--all')}.querySelector('.col-deeds button').click()")
            self.tab.wait("document.querySelector('#notices [role=alert]')?.textContent.includes('--all')")
            self.assertEqual(machine.vm("web")["wanted"], "stopped")

    def test_with_markup_is_only_text(self):
        name = MARKUP
        with foreign_row(name):
            add("web", runs=True)
            machine.vmctl("set", "web", f"diskImage=/tmp/{MARKUP}.img", "enabled=true")
            self.open()
            self.tab.wait(f"{row_of(name)} !== undefined")
            self.tab.click("tbody a", MARKUP)
            self.tab.wait(f"document.querySelector('h1').textContent === {json.dumps(name)}")
            for tab in ("events", "config", "console", "screen", "logs"):
                self.tab.js(f"location.hash = '#/vm/' + encodeURIComponent({json.dumps(name)}) + '/{tab}'")
                self.tab.wait(f"document.querySelector('[data-tab={tab}][aria-current]')")
            self.tab.js("location.hash = '#/vm/web/console'")
            self.tab.click("button", "Type on this console")
            self.tab.type(MARKUP)
            self.tab.wait("document.querySelector('.xterm-rows').textContent.includes('<img')")
            self.tab.js("location.hash = '#/vm/web/logs'")
            self.tab.wait("document.querySelector('pre').textContent.includes('<img')")
            for view in ("#/vm/web", "#/vm/web/config", "#/vm/web/events", "#/events", "#/switch"):
                self.tab.js(f"location.hash = '{view}'")
                time.sleep(0.3)
            self.assertIsNone(self.tab.js("document.querySelector('main img')"))
            self.assertNotEqual(self.tab.js("document.title"), "owned")


class Look(PageTest):
    VIEWS = {"list": "#/", "guest": "#/vm/web", "events": "#/vm/web/events", "configuration": "#/vm/web/config",
             "console": "#/vm/web/console", "screen": "#/vm/web/screen", "logs": "#/vm/web/logs", "add": "#/add",
             "switch": "#/switch"}

    def make_guests(self):
        nic = "model=virtio-net-pci,mac=52:54:00:00:00:0{},intf={}"
        add("web", "--vnc-port", "5900", "--nic", nic.format(1, "Ethernet1"), runs=True)
        add("db", "--nic", nic.format(2, "Ethernet2"), "--nic", nic.format(3, "Ethernet7"), runs=True)
        add("cache", "--nic", nic.format(4, "Ethernet1"), runs=True)
        add("old")
        machine.vmctl("pause", "cache")
        add("probe", runs=True)
        os.kill(machine.vm("probe")["pid"], 9)
        machine.wait_for("probe", severity="bad")

    def theme(self, name):
        self.tab.js(f"localStorage.setItem('shell:style', '{name}'); dispatchEvent(new CustomEvent('cockpit-style'))")
        self.tab.wait(f"document.documentElement.classList.contains('dark') === {str(name == 'dark').lower()}")

    def test_is_accessible_in_light_and_dark_and_fits_narrow_screens(self):
        self.make_guests()
        self.open()
        self.tab.js("new Promise(done => { const it = document.createElement('script'); it.src = 'axe.js'; it.onload = done; document.head.append(it); })")
        for view, place in self.VIEWS.items():
            self.tab.js(f"location.hash = '{place}'")
            ready = {"screen": "document.querySelector('.said')?.textContent === 'You look at this screen.'",
                     "console": "document.querySelector('.xterm-rows')?.textContent.includes('READY')",
                     "configuration": "document.querySelector('fieldset')", "add": "document.querySelector('.field input')",
                     "switch": "document.querySelectorAll('.checks li').length > 3"}
            self.tab.wait(ready.get(view, f"document.querySelector('main section')"))
            time.sleep(0.5)
            for theme in ("light", "dark"):
                self.theme(theme)
                self.tab.picture(OUT / f"{view}-{theme}.png")
                found = self.tab.js("""axe.run({exclude: [['.xterm'], ['.screen canvas']]},
                    {runOnly: ['wcag2a', 'wcag2aa', 'wcag21a', 'wcag21aa', 'best-practice'], resultTypes: ['violations']})
                    .then(result => result.violations.filter(each => ['serious', 'critical'].includes(each.impact))
                    .map(each => each.id + ': ' + each.nodes.map(node => node.html.slice(0, 120) + ' ' + node.failureSummary).join(' | ')))""")
                self.assertEqual(found, [], f"{view}, {theme}")
            self.tab.size(320, 800)
            self.tab.picture(OUT / f"{view}-narrow.png")
            wide = self.tab.js("document.documentElement.scrollWidth")
            self.tab.size(1280, 900)
            self.assertLessEqual(wide, 320, f"{view} must fit a narrow screen")
        self.theme("light")

    def test_is_small(self):
        sizes = {path: path.stat().st_size for path in (SHARED / "cockpit/vmagent").rglob("*")
                 if path.is_file() and path.name not in ("axe.js", "modules-test.js")}
        print(f"[{sum(sizes.values())} bytes]", end=" ", flush=True)
        self.assertLess(sum(sizes.values()), 1_500_000)

    def test_modules_do_as_their_own_tests_say(self):
        self.open()
        result = self.tab.js("import('./modules-test.js').then(tests => tests.failures())")
        self.assertEqual(result["failed"], [])
        self.assertGreater(result["count"], 15)


if __name__ == "__main__":
    unittest.main()
