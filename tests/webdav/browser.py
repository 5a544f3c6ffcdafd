#!/usr/bin/python3
"""browser.py: what a person does on the server's page, in the real browser, driven by Selenium.

Uploads, renames, deletes, sorts and filters by the page's own controls in the folder Docs, sees the marks, follows the links, and keeps
pictures in FOLDER."""
import atexit
import json
import os
import urllib.request
from datetime import datetime, timedelta

from selenium import webdriver
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

from dav import Server, status

dav = Server(int(os.environ["PORT"]), os.environ["FOLDER"])
options = webdriver.ChromeOptions()
for option in ("headless", "no-sandbox", "disable-gpu", "disable-dev-shm-usage", "hide-scrollbars"):
    options.add_argument("--" + option)
options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
browser = webdriver.Chrome(options=options)
atexit.register(browser.quit)


def value(script):
    return browser.execute_script("return " + script)


def until(script):
    """The test's own limit ends what never comes."""
    WebDriverWait(browser, 600, 0.02).until(lambda _: value(script))


def go(path):
    browser.get(dav.url(path))
    until("document.readyState === 'complete' && !(document.querySelector('#tools') || {}).hidden")


def choose(selector, *files):
    browser.find_element("css selector", selector).send_keys("\n".join(map(str, files)))


def drop(*files):
    for kind in ("dragEnter", "dragOver", "drop"):
        data = {"items": [], "files": [str(file) for file in files], "dragOperationsMask": 1}
        browser.execute_cdp_cmd("Input.dispatchDragEvent", {"type": kind, "x": 200, "y": 300, "data": data})


def press(name, label):
    value(f"{row(name)}.querySelector('[aria-label^={label}]').click()")


def answer(yes, text=None):
    until("document.querySelector('#ask').open")
    if text is not None:
        value(f"document.querySelector('#ask input').value = {json.dumps(text)}")
    value(f"document.querySelector('#ask [value={'yes' if yes else 'no'}]').click()")


def said(text):
    until(f"document.querySelector('#state').textContent.includes({json.dumps(text)})")


def names():
    return value("[...document.querySelectorAll('tbody tr')].filter(row => !row.hidden).map(row => row.dataset.name)")


def row(name):
    return f"[...document.querySelectorAll('tbody tr')].find(row => row.dataset.name === {json.dumps(name)})"


def picture(name, width, height, scheme):
    browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 600})
    browser.save_screenshot(str(dav.native(f"/{name}.png")))


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
    assert found == wanted, f"{what}: {found} instead of {wanted}"


local = dav.native("/upload")
(local / "Trip" / "Day 1").mkdir(parents=True)
for name in ("first one.txt", "zweite Größe.txt", "today.log", "Trip/plan.txt", "Trip/Day 1/notes.txt"):
    (local / name).write_text(f"content of {name}\n" * 100)
go(dav.fresh("Work"))
choose("#files", *(local / name for name in ("first one.txt", "zweite Größe.txt")))
said("2 files stored.")
drop(local / "today.log")
said("1 file stored.")
choose("#folder", local / "Trip")
said("2 files stored.")
expect(names(), ["Trip", "first one.txt", "today.log", "zweite Größe.txt"], "after the uploads")
choose("#files", local / "first one.txt")
answer(False)
said("this name exists already")
value("document.querySelector('#newFolder').click()")
answer(True, "New & old")
said("New & old is created.")
press("first one.txt", "Rename")
answer(True, "renamed 100%.txt")
said("is now renamed 100%.txt.")
press("zweite Größe.txt", "Delete")
answer(False)
press("zweite Größe.txt", "Delete")
answer(True)
said("zweite Größe.txt is deleted.")
expect(names(), ["New & old", "Trip", "renamed 100%.txt", "today.log"], "after all that")

# The marks, and that a client without script sees them as well.
work = dav.native("/Docs/Work")
container = (work / "renamed 100%.txt.zip").read_bytes()
(work / "cut.txt.zip").write_bytes(container[:100])
(work / "renamed 100% (laptop).txt.zip").write_bytes(container)
status(dav.lock("/Docs/Work/renamed%20100%25.txt", owner="Anna &amp; <href>laptop</href>"), 200)
go("/Docs/Work/")
kinds = {name: value(row(name) + ".querySelector('.k').textContent") for name in names()}
expect(kinds, {"New & old": "folder", "Trip": "folder", "cut.txt.zip": "DAMAGED its records are not whole", "renamed 100% (laptop).txt.HvcConflicted": "conflict copy",
               "renamed 100%.txt": "encrypted locked by Anna & laptop", "today.log": "NOT encrypted the configuration excludes its name"}, "marks")
shown = value("document.querySelector('main, body').innerText")
for text in ("New & old/", "2.5 kB", "today.log"):
    expect(text in shown, True, f"the page shows {text}")
browser.execute_cdp_cmd("Emulation.setTimezoneOverride", {"timezoneId": "Asia/Tokyo"})
go("/Docs/Work/")
there = datetime.fromisoformat(value(row("today.log") + ".dataset.time").rstrip("Z")) + timedelta(hours=9)
expect(f"{there:%-I:%M}" in value(row("today.log") + ".querySelector('time').textContent"), True, "the local time")
for link in value("[...document.links].map(link => link.href)"):
    urllib.request.urlopen(link).close()  # each leads to what it names
for scheme in ("light", "dark"):
    picture(f"page-{scheme}", 1000, 640, scheme)
    expect(value(CONTRAST), [], f"texts with too little contrast, {scheme}")
picture("page-phone", 390, 800, "light")
expect(value("document.documentElement.scrollWidth <= 390 && innerWidth <= 390"), True, "fits a phone's width")
browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": True})
browser.get(dav.url("/Docs/Work/"))
text = browser.find_element("css selector", "body").text
expect([words in text for words in ("DAMAGED", "NOT encrypted", "today.log", "Upload")], [True] * 3 + [False], "without script")
browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": False})
go("/Docs/Work/cut.txt.zip")
until("document.querySelector('main').textContent.includes('a damaged container: ')")
go("/Docs/Work/")

# By the keyboard alone.
def type_in(*keys):
    ActionChains(browser).send_keys(*keys).perform()


while value("document.activeElement.ariaLabel") != "Rename today.log":
    type_in(Keys.TAB)
type_in(Keys.ENTER)
until("document.querySelector('#ask').open")
type_in("this year", Keys.ENTER)  # the name without its extension is selected
said("today.log is now this year.log.")
value("document.querySelector('th.n button').click(), document.querySelector('th.n button').click()")
sizes = value("[...document.querySelectorAll('tbody tr[data-kind=file]')].map(row => Number(row.dataset.size))")
expect(sizes, sorted(sizes, reverse=True), "the largest first")
value("document.querySelector('#filter').value = 'YEAR', document.querySelector('#filter').dispatchEvent(new Event('input'))")
expect(names(), ["this year.log"], "filtered")
svg = "<svg xmlns='http://www.w3.org/2000/svg'><script>document.documentElement.id = 'ran'</script></svg>"
for name, page in (("evil.html", "<script>document.documentElement.id = 'ran'</script>"), ("evil.svg", svg)):
    status(dav("PUT", f"/Docs/{name}", page), 201)
    go(f"/Docs/{name}")
    expect(value("document.documentElement.id"), "", f"{name} runs scripts in the name of the server")
go("/Docs/nothing.txt")
until("document.querySelector('h1').textContent === 'Not Found' && document.querySelector('a[href=\"./\"]')")
picture("page-error", 1000, 400, "light")
expect([entry for entry in browser.get_log("browser") if entry["source"] == "javascript"], [], "exceptions in the page")
