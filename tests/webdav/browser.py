#!/usr/bin/env python3
"""browser.py: what a person does on the server's page, in the real browser, driven through its debugging pipe.

Uploads, renames, deletes, sorts and filters by the page's own controls in the folder Docs, sees the marks, follows the links, and keeps
pictures in FOLDER."""
import base64
import json
import os
import pathlib
import shutil
import subprocess
import sys
import urllib.request

base = f"http://127.0.0.1:{os.environ['PORT']}"
folder = pathlib.Path(os.environ["FOLDER"])


class Browser:
    def __init__(self):
        ours, its = os.pipe(), os.pipe()  # the browser reads from 3 and writes to 4
        command = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
                   f"--user-data-dir={folder}/driven", "--remote-debugging-pipe", "about:blank"]

        def place():
            reading, writing = os.dup(ours[0]), os.dup(its[1])
            os.dup2(reading, 3)
            os.dup2(writing, 4)
        self.process = subprocess.Popen(command, preexec_fn=place, close_fds=False, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL)
        os.close(ours[0])
        os.close(its[1])
        self.to, self.answers, self.rest, self.number, self.session = ours[1], its[0], b"", 0, None
        self.trouble, self.loads = [], 0
        page = next(t for t in self.ask("Target.getTargets")["targetInfos"] if t["type"] == "page")
        self.session = self.ask("Target.attachToTarget", targetId=page["targetId"], flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "DOM", "Log"):
            self.ask(domain + ".enable")

    def message(self):
        while b"\0" not in self.rest:
            part = os.read(self.answers, 1 << 16)
            if not part:
                sys.exit("FAILED: the browser ended")
            self.rest += part
        line, self.rest = self.rest.split(b"\0", 1)
        message = json.loads(line)
        if message.get("method") == "Runtime.exceptionThrown":
            self.trouble.append(message["params"]["exceptionDetails"].get("exception", {}).get("description", "an exception"))
        self.loads += message.get("method") == "Page.loadEventFired"
        return message

    def ask(self, method, **parameters):
        self.number += 1
        request = {"id": self.number, "method": method, "params": parameters} | ({"sessionId": self.session} if self.session else {})
        os.write(self.to, json.dumps(request).encode() + b"\0")
        while (answer := self.message()).get("id") != self.number:
            pass
        assert "error" not in answer, answer
        return answer["result"]

    def value(self, script):
        result = self.ask("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True)
        assert "exceptionDetails" not in result, result
        return result["result"].get("value")

    def until(self, script):
        """Until the script gives something true; the test's own limit ends what never comes."""
        return self.value(f"new Promise(done => {{ const look = () => {{ const found = {script}; found ? done(found) : setTimeout(look, 20) }}; look() }})")

    def go(self, path):
        before = self.loads
        self.ask("Page.navigate", url=base + path)
        while self.loads == before:  # a script in the page that goes would never answer
            self.message()

    def open(self, path):
        self.go(path)
        self.until("document.readyState === 'complete' && location.href.startsWith('http') && !(document.querySelector('#tools') || {}).hidden")

    def choose(self, selector, *files):
        root = self.ask("DOM.getDocument")["root"]["nodeId"]
        node = self.ask("DOM.querySelector", nodeId=root, selector=selector)["nodeId"]
        self.ask("DOM.setFileInputFiles", nodeId=node, files=[str(file) for file in files])

    def drop(self, *files):
        for kind in ("dragEnter", "dragOver", "drop"):
            data = {"items": [], "files": [str(file) for file in files], "dragOperationsMask": 1}
            self.ask("Input.dispatchDragEvent", type=kind, x=200, y=300, data=data)

    def answer(self, yes, text=None):
        self.until("document.querySelector('#ask').open")
        if text is not None:
            self.value(f"document.querySelector('#ask input').value = {json.dumps(text)}")
        self.value(f"document.querySelector('#ask [value={'yes' if yes else 'no'}]').click()")

    def said(self, text):
        self.until(f"document.querySelector('#state').textContent.includes({json.dumps(text)})")

    def names(self):
        return self.value("[...document.querySelectorAll('tbody tr')].filter(row => !row.hidden).map(row => row.dataset.name)")

    def row(self, name):
        return f"[...document.querySelectorAll('tbody tr')].find(row => row.dataset.name === {json.dumps(name)})"

    def picture(self, name, width, height, scheme):
        self.ask("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
        self.ask("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=width < 600)
        (folder / f"{name}.png").write_bytes(base64.b64decode(self.ask("Page.captureScreenshot")["data"]))


CONTRAST = """(() => {
  const light = colour => colour.map(part => part / 255).map(part => part <= .03928 ? part / 12.92 : ((part + .055) / 1.055) ** 2.4)
      .reduce((sum, part, index) => sum + part * [.2126, .7152, .0722][index], 0);
  const parts = text => text.match(/[\\d.]+/g).map(Number);
  const behind = node => { for (; node; node = node.parentElement) { const colour = parts(getComputedStyle(node).backgroundColor);
      if (colour.length < 4 || colour[3] > 0) return colour.slice(0, 3) } return parts(getComputedStyle(document.body).backgroundColor) };
  return [...document.querySelectorAll('body *')].filter(node => node.checkVisibility() && [...node.childNodes].some(child => child.nodeType === 3 && child.data.trim()))
      .map(node => { const [one, other] = [light(parts(getComputedStyle(node).color).slice(0, 3)), light(behind(node))];
          return [(Math.max(one, other) + .05) / (Math.min(one, other) + .05), node.textContent] }).filter(([ratio]) => ratio < 4.5)
})()"""


def expect(found, wanted, what):
    if found != wanted:
        sys.exit(f"FAILED: {what}: {found} instead of {wanted}")


local = folder / "upload"
(local / "Trip" / "Day 1").mkdir(parents=True)
for name in ("first one.txt", "zweite Größe.txt", "today.log", "Trip/plan.txt", "Trip/Day 1/notes.txt"):
    (local / name).write_text(f"content of {name}\n" * 100)
subprocess.run(["curl", "-sf", "-X", "MKCOL", base + "/Docs/Work/"], check=True)
browser = Browser()
browser.open("/Docs/Work/")
browser.choose("#files", *(local / name for name in ("first one.txt", "zweite Größe.txt")))
browser.said("2 files stored.")
browser.drop(local / "today.log")
browser.said("1 file stored.")
browser.choose("#folder", local / "Trip")
browser.said("2 files stored.")
expect(browser.names(), ["Trip", "first one.txt", "today.log", "zweite Größe.txt"], "after the uploads")
browser.choose("#files", local / "first one.txt")
browser.answer(False)
browser.said("there is something of this name already")
browser.value("document.querySelector('#newFolder').click()")
browser.answer(True, "New & old")
browser.said("New & old is made.")
browser.value(browser.row("first one.txt") + ".querySelector('[aria-label^=Rename]').click()")
browser.answer(True, "renamed 100%.txt")
browser.said("is renamed 100%.txt now.")
browser.value(browser.row("zweite Größe.txt") + ".querySelector('[aria-label^=Delete]').click()")
browser.answer(False)
browser.value(browser.row("zweite Größe.txt") + ".querySelector('[aria-label^=Delete]').click()")
browser.answer(True)
browser.said("zweite Größe.txt is deleted.")
expect(browser.names(), ["New & old", "Trip", "renamed 100%.txt", "today.log"], "after all that")

# The marks, and that a client without script sees them as well.
container = folder / "Docs" / "Work" / "renamed 100%.txt.zip"
(container.parent / "cut.txt.zip").write_bytes(container.read_bytes()[:100])
(container.parent / "renamed 100% (laptop).txt.zip").write_bytes(container.read_bytes())
lock = ('<D:lockinfo xmlns:D="DAV:"><D:lockscope><D:exclusive/></D:lockscope><D:locktype><D:write/></D:locktype>'
        '<D:owner>Anna &amp; <D:href>laptop</D:href></D:owner></D:lockinfo>')
subprocess.run(["curl", "-sf", "-X", "LOCK", "-d", lock, "-o", "/dev/null", base + "/Docs/Work/renamed%20100%25.txt"], check=True)
browser.open("/Docs/Work/")
kinds = {name: browser.value(browser.row(name) + ".querySelector('.k').textContent") for name in browser.names()}
expect(kinds, {"New & old": "folder", "Trip": "folder", "cut.txt.zip": "DAMAGED", "renamed 100% (laptop).txt.HvcConflicted": "conflict copy",
               "renamed 100%.txt": "encrypted locked by Anna & laptop", "today.log": "NOT encrypted"}, "marks")
shown = browser.value("document.querySelector('main, body').innerText")
for text in ("New & old/", "2.5 kB", "today.log"):
    expect(text in shown, True, f"the page shows {text}")
for link in browser.value("[...document.links].map(link => link.href)"):
    urllib.request.urlopen(link).close()  # each leads to what it names
for scheme in ("light", "dark"):
    browser.picture(f"page-{scheme}", 1000, 640, scheme)
    expect(browser.value(CONTRAST), [], f"texts with too little contrast, {scheme}")
browser.picture("page-phone", 390, 800, "light")
expect(browser.value("document.documentElement.scrollWidth <= 390 && innerWidth <= 390"), True, "fits a phone's width")
browser.value("document.querySelector('th.n button').click(), document.querySelector('th.n button').click()")
sizes = browser.value("[...document.querySelectorAll('tbody tr[data-kind=file]')].map(row => Number(row.dataset.size))")
expect(sizes, sorted(sizes, reverse=True), "the largest first")
browser.value("document.querySelector('#filter').value = 'TODAY', document.querySelector('#filter').dispatchEvent(new Event('input'))")
expect(browser.names(), ["today.log"], "filtered")
subprocess.run(["curl", "-sf", "-T", "-", base + "/Docs/evil.html"], input=b"<script>document.title = 'scripts run'</script>", check=True)
browser.go("/Docs/evil.html")
expect(browser.value("document.title === 'scripts run'"), False, "a stored page runs scripts in the name of the server")
browser.go("/Docs/nothing.txt")
browser.until("document.querySelector('h1').textContent === 'Not Found' && document.querySelector('a[href=\"./\"]')")
browser.picture("page-error", 1000, 400, "light")
expect(browser.trouble, [], "exceptions in the page")
browser.ask("Browser.close")
browser.process.wait()
shutil.rmtree(folder / "driven")
