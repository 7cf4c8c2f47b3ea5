# Opens the pages of the example runs in a browser and uses them. usage: browse.py BROWSER FOLDER
# It speaks to the browser through two pipes, so it needs no driver.
import glob
import json
import os
import subprocess
import sys
import tempfile
import time

failures = 0


def expect(holds, what):
    global failures
    if not holds:
        failures += 1
        print(f"FAILED: {what}")


class Browser:
    def __init__(self, program, profile):
        to_browser, self.output = os.pipe()
        self.input, from_browser = os.pipe()

        def take_pipes():  # the browser reads from 3 and writes to 4
            read, write = os.dup(to_browser), os.dup(from_browser)
            os.dup2(read, 3)
            os.dup2(write, 4)

        self.process = subprocess.Popen(
            [program, "--headless", "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe",
             f"--user-data-dir={profile}", "--disable-dev-shm-usage", "about:blank"],
            preexec_fn=take_pipes, close_fds=False,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.rest = b""
        self.count = 0
        self.session = None
        self.events = []
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(f"{domain}.enable")

    def message(self):
        while b"\0" not in self.rest:
            part = os.read(self.input, 1 << 20)
            if not part:
                sys.exit("the browser went away")
            self.rest += part
        text, self.rest = self.rest.split(b"\0", 1)
        return json.loads(text)

    def call(self, method, **parameters):
        self.count += 1
        request = {"id": self.count, "method": method, "params": parameters}
        if self.session:
            request["sessionId"] = self.session
        os.write(self.output, json.dumps(request).encode() + b"\0")
        while True:
            answer = self.message()
            if answer.get("id") == self.count:
                if "error" in answer:
                    sys.exit(f"{method}: {answer['error']}")
                return answer["result"]
            self.events.append(answer)

    # The value of an expression on the page.
    def value(self, expression):
        answer = self.call("Runtime.evaluate", expression=expression, returnByValue=True)
        if "exceptionDetails" in answer:
            sys.exit(f"{expression}: {answer['exceptionDetails']}")
        return answer["result"].get("value")

    def go(self, address):
        self.events.clear()
        self.call("Page.navigate", url=address)
        while not any(e.get("method") == "Page.loadEventFired" for e in self.events):
            self.events.append(self.message())

    # By way of another page, because a mere change of the fragment loads nothing.
    def open(self, file, fragment=""):
        self.go("about:blank")
        started = time.monotonic()
        self.go(f"file://{file}{fragment}")
        return time.monotonic() - started

    def size(self, width, height):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=width < 500)

    def scheme(self, name):
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": name}])

    # A click in the middle of an element, as a person does it.
    def click(self, selector):
        element = f"document.querySelector({json.dumps(selector)})"
        self.value(f"{element}.scrollIntoView({{block: 'center', inline: 'center'}})")
        x, y = self.value(f"(() => {{ const r = {element}.getBoundingClientRect();"
                          " return [r.x + r.width / 2, r.y + r.height / 2]; })()")
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", clickCount=1)

    def type(self, text):
        self.value("document.getElementById('words').focus();"
                   "document.getElementById('words').select()")
        self.call("Input.insertText", text=text)

    def end(self):
        self.session = None
        self.call("Browser.close")
        self.process.wait(timeout=30)


SHOWN_DOSSIERS = ("Array.from(document.querySelectorAll('.dossier'))"
                  ".filter((e) => getComputedStyle(e).display !== 'none').map((e) => e.id)")
SHOWN_ROWS = ("Array.from(document.querySelectorAll('.matrix tbody tr'))"
              ".filter((e) => getComputedStyle(e).display !== 'none').length")

# The lowest contrast of a text with the nearest background behind it.
CONTRAST = """(() => {
  const parts = (colour) => colour.match(/[\\d.]+/g).map(Number);
  const light = (c) => {
    const [r, g, b] = c.slice(0, 3).map((v) => v / 255)
      .map((v) => v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
  };
  const behind = (e) => {
    for (; e; e = e.parentElement) {
      const c = parts(getComputedStyle(e).backgroundColor);
      if (c.length < 4 || c[3] > 0) return c;
    }
    return [255, 255, 255];
  };
  let worst = [99, ''];
  for (const e of document.querySelectorAll('body *')) {
    const own = Array.from(e.childNodes).some((n) => n.nodeType === 3 && n.textContent.trim());
    if (!own || e.closest('script, style')) continue;
    const [a, b] = [light(parts(getComputedStyle(e).color)), light(behind(e))].sort((x, y) => y - x);
    const ratio = (a + 0.05) / (b + 0.05);
    if (ratio < worst[0]) worst = [ratio, e.tagName + '.' + e.className + ': ' + e.textContent.slice(0, 40)];
  }
  return worst;
})()"""


def check_quiet(browser, name):
    for event in browser.events:
        method, about = event.get("method"), event.get("params", {})
        if method in ("Log.entryAdded", "Runtime.exceptionThrown", "Page.javascriptDialogOpening"):
            expect(False, f"{name}: {method}: {json.dumps(about)[:300]}")
        if method == "Network.requestWillBeSent":
            expect(about["request"]["url"].startswith("file:"),
                   f"{name} asks for {about['request']['url']}")


def check_page(browser, file):
    name = os.path.basename(file)
    for width, scheme in ((375, "light"), (375, "dark"), (1440, "light"), (1440, "dark")):
        browser.size(width, 900)
        browser.scheme(scheme)
        seconds = browser.open(file)
        expect(seconds < 20, f"{name} took {seconds:.1f} s to open")
        overhang = browser.value("document.documentElement.scrollWidth") - width
        expect(overhang <= 0, f"{name} is {overhang} pixels too wide for {width}")
        if name != "large.html":
            ratio, where = browser.value(CONTRAST)
            expect(ratio >= 4.5, f"{name}, {scheme}: contrast {ratio:.2f} at {where}")
        check_quiet(browser, name)


def check_clicks(browser, file):
    browser.open(file)
    expect(browser.value(SHOWN_DOSSIERS) == [], "a dossier is open from the start")
    browser.click(".matrix td.e a")
    expect(browser.value(SHOWN_DOSSIERS) == ["b0"], "a click on a cell does not open its dossier")
    browser.click(".matrix a[href='#b3']")
    expect(browser.value(SHOWN_DOSSIERS) == ["b3"], "a click on a bundle does not open its dossier")
    browser.click("#b3 > header a")
    expect(browser.value(SHOWN_DOSSIERS) == [], "a dossier cannot be closed")
    expect(browser.value(SHOWN_ROWS) == 1000, "not every bundle has a row")
    browser.click("#only")
    expect(browser.value(SHOWN_ROWS) == 334, "bundles that agree cannot be left out")
    browser.click("#only")
    browser.click("#c1 summary")
    expect(browser.value("document.querySelector('#c1 details').open"), "a fold does not open")


def check_search(browser, file):
    browser.open(file)
    browser.type("be100")
    expect(browser.value(SHOWN_ROWS) == 2, "a search for BE100 does not leave BE100 and BE1000")
    expect("entries" in browser.value("document.getElementById('result').textContent"),
           "a search shows no number")
    browser.type("be1 0/1/cpu0 0x14500")
    expect(browser.value("getComputedStyle(document.getElementById('c0')).display") == "block",
           "a search for a cause's node and value hides the cause")
    browser.type("no such thing")
    expect(browser.value(SHOWN_ROWS) == 0, "a search for nothing leaves something")
    browser.value("document.getElementById('words').value = '';"
                  "document.getElementById('words').dispatchEvent(new Event('input'))")
    expect(browser.value(SHOWN_ROWS) == 1000, "an empty search does not show everything again")
    browser.open(file, "#c300")
    expect(browser.value("document.querySelector('details.more').open"),
           "a link to a cause in a fold does not open it")


def check_sticky(browser, file):
    browser.size(375, 800)
    browser.open(file, "#bundles")
    browser.value("document.querySelector('.matrix').scrollTo(600, 5000)")
    inside = ("(() => { const box = document.querySelector('.matrix').getBoundingClientRect();"
              "const is = (e) => { const r = e.getBoundingClientRect();"
              " return [Math.abs(r.left - box.left) <= 1, Math.abs(r.top - box.top) <= 1]; };"
              "return [is(document.querySelector('.matrix thead th')),"
              " is(document.querySelector('.matrix thead th:nth-child(20)')),"
              " is(document.querySelector('.matrix tbody tr:nth-child(200) th'))]; })()")
    corner, head, side = browser.value(inside)
    expect(corner == [True, True], "the corner of the matrix does not stay")
    expect(head[1], "the head of the matrix does not stay")
    expect(side[0], "the names of the bundles do not stay")


def check_without_scripts(browser, file):
    browser.call("Emulation.setScriptExecutionDisabled", value=True)
    browser.size(1440, 900)
    browser.open(file)
    shown = browser.value("getComputedStyle(document.getElementById('search')).display")
    expect(shown == "none", "the search shows where it cannot work")
    browser.click(".matrix td.e a")
    expect(browser.value(SHOWN_DOSSIERS) == ["b0"], "a dossier needs scripts")
    browser.call("Emulation.setScriptExecutionDisabled", value=False)


def check_print(browser, file):
    browser.size(1440, 900)
    browser.open(file)
    browser.call("Emulation.setEmulatedMedia", media="print")
    dossiers = browser.value(SHOWN_DOSSIERS)
    expect(dossiers == ["b0", "b1", "b2"], f"only the dossiers {dossiers} are printed")
    browser.call("Emulation.setEmulatedMedia", media="")
    pages = browser.call("Page.printToPDF")["data"]
    expect(len(pages) > 10000, "the page cannot be printed")


OPEN_FOLDS = ("Array.from(document.querySelectorAll('details.router[open] > div'))"
              ".filter((e) => e.checkVisibility()).map((e) => e.id)")
SHOWN_FOLDS = ("Array.from(document.querySelectorAll('details.router'))"
               ".filter((e) => e.checkVisibility()).length")


# Of 500 routers 50 differ, 10 were not read, and 440 agree.
def check_routers(browser, file):
    browser.size(1440, 900)
    browser.open(file)
    expect(browser.value(SHOWN_ROWS) == 500, "not every router has a row")
    expect(browser.value(SHOWN_FOLDS) == 60, "not every router with something to say has a fold")
    expect(browser.value(OPEN_FOLDS) == [], "a fold is open from the start")
    browser.click(".matrix tbody tr:nth-child(2) a")
    expect(browser.value(OPEN_FOLDS) == ["r1"], "a click on a router does not open its fold")
    browser.click("#only")
    expect(browser.value(SHOWN_ROWS) == 60, "routers that agree cannot be left out")
    browser.click("#only")
    browser.type("router-0120")
    expect(browser.value(SHOWN_ROWS) == 1, "a search for a router leaves others")
    expect(browser.value(SHOWN_FOLDS) == 1, "a search for a router leaves the folds of others")
    browser.type("0x14500")
    expect(browser.value(SHOWN_ROWS) == 50, "a search for a value does not leave its routers")
    browser.type("router-0002")
    expect(browser.value(SHOWN_ROWS) == 1, "a router without a fold is not found")
    expect(browser.value(SHOWN_FOLDS) == 0, "a router without a fold shows one")
    browser.value("document.getElementById('words').value = '';"
                  "document.getElementById('words').dispatchEvent(new Event('input'))")
    expect(browser.value(SHOWN_FOLDS) == 60, "an empty search does not show all folds again")

    browser.call("Emulation.setScriptExecutionDisabled", value=True)
    browser.open(file)
    shown = browser.value("getComputedStyle(document.getElementById('search')).display")
    expect(shown == "none", "the search shows where it cannot work")
    browser.click("details.router summary")
    expect(browser.value(OPEN_FOLDS) == ["r0"], "a fold needs scripts")
    browser.open(file)
    browser.click(".matrix tbody tr:nth-child(3) a")
    expect(browser.value(OPEN_FOLDS) == ["r2"], "a link into a fold needs scripts")
    browser.call("Emulation.setScriptExecutionDisabled", value=False)


def check_print_of_routers(browser, file):
    browser.size(1440, 900)
    browser.open(file)
    browser.call("Emulation.setEmulatedMedia", media="print")
    shown = browser.value("document.querySelector('#r0 .cause').getBoundingClientRect().height")
    expect(shown > 0, "a closed fold is not printed")
    browser.call("Emulation.setEmulatedMedia", media="")
    pages = browser.call("Page.printToPDF")["data"]
    expect(len(pages) > 10000, "the page of routers cannot be printed")


def main():
    program, folder = sys.argv[1:]
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        browser = Browser(program, profile)
        large = f"{folder}/large.html"
        for file in sorted(glob.glob(f"{folder}/**/*.html", recursive=True)):
            check_page(browser, file)
        browser.scheme("light")
        check_clicks(browser, large)
        check_search(browser, large)
        check_sticky(browser, large)
        check_without_scripts(browser, large)
        check_print(browser, f"{folder}/faults.html")
        check_routers(browser, f"{folder}/merge/many.html")
        check_print_of_routers(browser, f"{folder}/merge/network.html")
        browser.end()
    sys.exit(1 if failures else 0)


main()
