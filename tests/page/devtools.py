"""A browser that tests look through: Debian's Chromium without a window, over its DevTools protocol."""

import base64
import itertools
import json
import pathlib
import subprocess
import time

import websocket


class Failure(AssertionError):
    pass


class Browser:
    """Ends with `close`. What it keeps is below `folder`."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)
        self.log = open(self.folder / "chromium.log", "w")
        self.process = subprocess.Popen(
            ["/usr/bin/chromium", "--headless=new", "--no-sandbox", "--disable-gpu",
             "--disable-dev-shm-usage", "--remote-debugging-port=0", "--remote-allow-origins=*",
             "--disable-background-networking", "--disable-component-update", "--no-first-run",
             "--force-color-profile=srgb", "--hide-scrollbars", f"--user-data-dir={self.folder}/profile",
             "about:blank"],
            stdout=self.log, stderr=self.log, env={"HOME": str(self.folder), "PATH": "/usr/bin:/bin",
                                                  "LANG": "C.UTF-8", "TZ": "UTC"})
        port = self.folder / "profile/DevToolsActivePort"
        wait(lambda: port.exists() and port.read_text().count("\n") >= 1, "the browser starts", 60)
        number, path = port.read_text().split("\n")[:2]
        self.socket = websocket.create_connection(f"ws://127.0.0.1:{number}{path}", timeout=30,
                                                  max_size=None)
        self.numbers = itertools.count(1)
        self.tabs = {}

    def call(self, method, session=None, **parameters):
        number = next(self.numbers)
        message = {"id": number, "method": method, "params": parameters}
        if session:
            message["sessionId"] = session
        self.socket.send(json.dumps(message))
        while True:
            answer = json.loads(self.socket.recv())
            if answer.get("id") == number:
                if "error" in answer:
                    raise Failure(f"{method}: {answer['error']['message']}")
                return answer["result"]
            self.take(answer)

    def take(self, event):
        tab = self.tabs.get(event.get("sessionId"))
        if tab:
            tab.events.append(event)

    def tab(self, width=1280, height=900):
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        tab = self.tabs[session] = Tab(self, target, session)
        for domain in ("Page", "Runtime", "Log", "Network"):
            tab.call(f"{domain}.enable")
        tab.size(width, height)
        return tab

    def close(self):
        self.socket.close()
        self.process.terminate()
        self.process.wait()
        self.log.close()


class Tab:
    def __init__(self, browser, target, session):
        self.browser, self.target, self.session = browser, target, session
        self.events = []

    def call(self, method, **parameters):
        return self.browser.call(method, self.session, **parameters)

    def size(self, width, height, is_narrow=False):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=is_narrow)

    def open(self, address):
        self.call("Page.navigate", url=address)

    def js(self, expression):
        """The value of an expression, awaited where it is a promise."""
        answer = self.call("Runtime.evaluate", expression=expression, awaitPromise=True,
                           returnByValue=True, userGesture=True)
        if "exceptionDetails" in answer:
            details = answer["exceptionDetails"]
            raise Failure(f"{expression}: {details.get('exception', {}).get('description') or details['text']}")
        return answer["result"].get("value")

    def wait(self, expression, seconds=20):
        """Until an expression is true; what it was then."""
        def look():
            try:
                return self.js(f"Promise.resolve({expression}).then(it => (it instanceof Node ? true : it))")
            except Failure:  # between two documents
                return None
        return wait(look, expression, seconds, lambda: self.js("document.body?.innerText.slice(0, 1500)"))

    def click(self, selector, text=None):
        """The first element of that selector, and that text in it, as a mouse clicks it."""
        quoted = json.dumps(text)
        place = self.wait(f"""(async () => {{
            const it = [...document.querySelectorAll({json.dumps(selector)})].find(each =>
              each.getClientRects().length && !each.disabled && ({quoted} === null || each.textContent.includes({quoted})));
            if (!it) return null;
            it.scrollIntoView({{block: 'center'}});
            const before = it.getClientRects()[0];
            await new Promise(done => setTimeout(done, 50));
            const now = it.getClientRects()[0];
            if (!now) return null;
            const [x, y] = [now.x + now.width / 2, now.y + now.height / 2];
            // It stands still, and nothing is before it.
            return before.y === now.y && it.contains(document.elementFromPoint(x, y)) ? [x, y] : null; }})()""")
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=place[0], y=place[1], button="left",
                      clickCount=1)

    def type(self, text):
        for letter in text:
            if letter == "\n":
                self.key("Enter", 13, "\r")
            else:
                self.call("Input.insertText", text=letter)

    def key(self, name, code, text="", modifiers=0):
        down = {"text": text} if text else {}
        self.call("Input.dispatchKeyEvent", type="keyDown", key=name, code=name,
                  windowsVirtualKeyCode=code, modifiers=modifiers, **down)
        self.call("Input.dispatchKeyEvent", type="keyUp", key=name, code=name,
                  windowsVirtualKeyCode=code, modifiers=modifiers)

    def fill(self, label, text):
        """Types into the input of that label, in the place of what is there."""
        quoted = json.dumps(label)
        self.wait(f"""(() => {{
            const label = [...document.querySelectorAll('label')].find(each => each.textContent === {quoted});
            const input = label && document.getElementById(label.htmlFor);
            if (!input) return false;
            input.focus(); input.select?.();
            return true; }})()""")
        if text == "":
            self.key("Delete", 46)
        else:
            self.call("Input.insertText", text=text)

    def picture(self, path):
        data = self.call("Page.captureScreenshot", format="png")["data"]
        pathlib.Path(path).write_bytes(base64.b64decode(data))

    def troubles(self):
        """What the browser had to say: errors, warnings, and what was thrown."""
        self.js("1")  # takes what has come
        found = []
        for event in self.events:
            what, said = event["method"], event["params"]
            if what == "Runtime.exceptionThrown":
                details = said["exceptionDetails"]
                found.append(details.get("exception", {}).get("description") or details["text"])
            elif what == "Log.entryAdded" and said["entry"]["level"] in ("error", "warning"):
                found.append(f"{said['entry']['text']} {said['entry'].get('url', '')}")
            elif what == "Runtime.consoleAPICalled" and said["type"] in ("error", "warning", "assert"):
                found.append(" ".join(str(each.get("value", each.get("description"))) for each in said["args"]))
        return found

    def addresses(self):
        """All that was asked for."""
        self.js("1")
        return [event["params"]["request"]["url"] for event in self.events
                if event["method"] == "Network.requestWillBeSent"]

    def close(self):
        del self.browser.tabs[self.session]
        self.browser.call("Target.closeTarget", targetId=self.target)


def wait(look, what, seconds, shown=lambda: ""):
    end = time.monotonic() + seconds
    while True:
        found = look()
        if found:
            return found
        if time.monotonic() > end:
            raise Failure(f"this does not come: {what}\n{shown()}")
        time.sleep(0.02)
