"""A page in a headless browser, driven through the pipe of its DevTools protocol."""
import base64
import fcntl
import json
import os
import signal

PROGRAM = "/usr/bin/chromium-headless-shell"


class Browser:
    """A context. What the page's console has had to complain of is in `complaints`."""

    def __init__(self, profile, width=1280, height=800):
        self.complaints = []
        self._number = 0
        self._loaded = False
        self._session = None
        self._taken = b""
        words = [PROGRAM, "--remote-debugging-pipe", "--disable-gpu", f"--window-size={width},{height}",
                 f"--user-data-dir={profile}", "--hide-scrollbars"]
        if os.geteuid() == 0:
            words.append("--no-sandbox")  # which root cannot have
        theirs, self._out = os.pipe()
        self._in, out = os.pipe()
        # It reads descriptor 3 and writes 4, where these may stand now.
        theirs, out = (fcntl.fcntl(end, fcntl.F_DUPFD_CLOEXEC, 10) for end in (theirs, out))
        self._pid = os.posix_spawn(PROGRAM, words, os.environ, setpgroup=0, file_actions=[
            (os.POSIX_SPAWN_OPEN, 2, "/dev/null", os.O_WRONLY, 0),
            (os.POSIX_SPAWN_DUP2, theirs, 3), (os.POSIX_SPAWN_DUP2, out, 4)])
        os.close(theirs)
        os.close(out)

    def __enter__(self):
        target = self.send("Target.createTarget", url="about:blank")["targetId"]
        self._session = self.send("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log"):
            self.send(f"{domain}.enable")
        return self

    def __exit__(self, *_):
        os.killpg(self._pid, signal.SIGKILL)
        os.waitpid(self._pid, 0)

    def _take(self):
        """The next message; of events what matters is noted."""
        while b"\0" not in self._taken:
            piece = os.read(self._in, 1 << 16)
            if not piece:
                raise RuntimeError("the browser has ended")
            self._taken += piece
        text, _, self._taken = self._taken.partition(b"\0")
        message = json.loads(text)
        method, what = message.get("method"), message.get("params")
        if method == "Runtime.exceptionThrown":
            details = what["exceptionDetails"]
            self.complaints.append(details.get("exception", {}).get("description", details["text"]))
        elif method == "Runtime.consoleAPICalled" and what["type"] in ("error", "warning", "assert"):
            self.complaints.append(str(what["args"]))
        elif method == "Log.entryAdded":
            self.complaints.append(what["entry"]["text"])
        elif method == "Page.loadEventFired":
            self._loaded = True
        return message

    def send(self, method, **parameters):
        """Calls a method of the protocol and returns its result."""
        self._number += 1
        message = {"id": self._number, "method": method, "params": parameters}
        if self._session:
            message["sessionId"] = self._session
        os.write(self._out, json.dumps(message).encode() + b"\0")
        while (answer := self._take()).get("id") != self._number:
            pass
        if "error" in answer:
            raise RuntimeError(f"{method}: {answer['error']}")
        return answer["result"]

    def open(self, path):
        self._loaded = False
        self.send("Page.navigate", url=f"file://{os.path.abspath(path)}")
        while not self._loaded:
            self._take()

    def ask(self, expression):
        """The value of an expression in the page; an error within it is raised here."""
        result = self.send("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"]["exception"].get("description"))
        return result["result"].get("value")

    def press(self, *keys):
        for key in keys:
            text = {"text": key} if len(key) == 1 else {}
            self.send("Input.dispatchKeyEvent", type="keyDown", key=key, **text)
            self.send("Input.dispatchKeyEvent", type="keyUp", key=key)

    def mouse(self, kind, x, y, **more):
        self.send("Input.dispatchMouseEvent", type=kind, x=x, y=y, **more)

    def click(self, x, y):
        self.mouse("mouseMoved", x, y)
        for kind in ("mousePressed", "mouseReleased"):
            self.mouse(kind, x, y, button="left", clickCount=1, buttons=1 if kind == "mousePressed" else 0)

    def color_scheme(self, scheme):
        self.send("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def picture(self, path):
        with open(path, "wb") as out:
            out.write(base64.b64decode(self.send("Page.captureScreenshot", format="png")["data"]))
