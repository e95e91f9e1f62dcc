"""Opens the pages of a site in headless Chromium: check_site.py SITE PICTURES [PAGE...]."""

import base64
import html.parser
import json
import os
import pathlib
import select
import subprocess
import sys
import tempfile
import urllib.parse

WIDTHS = {390: "phone", 1280: "desktop"}

# Returns what is wrong with the page as a reader sees it. Code, tables and the menu may scroll on their own.
LOOK = r"""
(() => {
    const wrong = [];
    const name = element => element.tagName.toLowerCase() + (element.id ? "#" + element.id : "") +
        " \"" + element.textContent.trim().slice(0, 40) + "\"";
    for (const element of [document.scrollingElement, document.getElementById("doc-content")]) {
        if (element && element.scrollWidth > element.clientWidth + 1) wrong.push("scrolls sideways: " + name(element));
    }
    const contents = document.querySelector("div.contents");
    const shown = contents ? contents.innerText.trim().length + 100 * contents.querySelectorAll("img").length : 0;
    if (shown < 40) wrong.push("is empty");
    const scrolls = element => element && element !== document.body &&
        (/auto|scroll/.test(getComputedStyle(element).overflowX) && element.id !== "doc-content" ||
         scrolls(element.parentElement));
    for (const element of document.querySelectorAll("div.header *, div.contents *")) {
        const box = element.getBoundingClientRect();
        const style = getComputedStyle(element);
        if (!box.width || !box.height || style.visibility === "hidden" || !element.textContent.trim()) continue;
        const hides = /hidden|clip/.test(style.overflowX) && element.scrollWidth > element.clientWidth + 1 ||
            /hidden|clip/.test(style.overflowY) && element.scrollHeight > element.clientHeight + 1;
        if (hides) wrong.push("clips " + name(element));
        if ((box.right > innerWidth + 1 || box.left < -1) && !scrolls(element)) wrong.push("cuts off " + name(element));
    }
    const heads = ["projectname", "projectbrief", "search-area", "main-nav"].map(id => document.getElementById(id))
        .filter(element => element && element.offsetParent).map(element => [element, element.getBoundingClientRect()]);
    for (const [one, a] of heads) {
        for (const [other, b] of heads) {
            const apart = a.right <= b.left || b.right <= a.left || a.bottom <= b.top || b.bottom <= a.top;
            if (one.id < other.id && !apart) wrong.push(`#${one.id} covers #${other.id}`);
        }
    }
    for (const image of document.images) {
        if (!image.naturalWidth) wrong.push("has a broken image: " + image.src);
    }
    return wrong;
})()
"""


class Browser:
    """Headless Chromium, driven through pipes."""

    def __init__(self, profile):
        ours, theirs = os.pipe(), os.pipe()

        def connect():
            # Chromium reads from descriptor 3 and writes to 4.
            read, write = os.dup(ours[0]), os.dup(theirs[1])
            os.dup2(read, 3)
            os.dup2(write, 4)

        self.process = subprocess.Popen(
            ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--disable-dev-shm-usage", "--hide-scrollbars", "--remote-debugging-pipe", f"--user-data-dir={profile}",
             "about:blank"],
            preexec_fn=connect, close_fds=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(ours[0])
        os.close(theirs[1])
        self.output, self.input, self.buffer, self.number = ours[1], theirs[0], b"", 0
        self.events, self.session = [], None
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log"):
            self.call(f"{domain}.enable")

    def message(self):
        while b"\0" not in self.buffer:
            ready, _, _ = select.select([self.input], [], [], 60)
            data = os.read(self.input, 1 << 16) if ready else b""
            if not data:
                sys.exit("Chromium has ended or does not answer.")
            self.buffer += data
        text, self.buffer = self.buffer.split(b"\0", 1)
        return json.loads(text)

    def call(self, method, **parameters):
        self.number += 1
        request = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            request["sessionId"] = self.session
        os.write(self.output, json.dumps(request).encode() + b"\0")
        while True:
            answer = self.message()
            if answer.get("id") == self.number:
                if "error" in answer:
                    sys.exit(f"Chromium refuses {method}: {answer['error']['message']}")
                return answer["result"]
            self.events.append(answer)

    def evaluate(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            sys.exit(result["exceptionDetails"]["exception"]["description"])
        return result["result"].get("value")

    def resize(self, width, dark=False):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=900, deviceScaleFactor=1,
                  mobile=width < 600)
        self.call("Emulation.setEmulatedMedia",
                  features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])

    def open(self, page):
        """Opens the page, waits for it, and returns the errors that it logs."""
        self.events = []
        self.call("Page.navigate", url=page.resolve().as_uri())
        while not any(event.get("method") == "Page.loadEventFired" for event in self.events):
            self.events.append(self.message())
        # The theme's scripts work after the load, in steps.
        self.evaluate("new Promise(done => setTimeout(done, 150))")
        return [error for error in map(self.error, self.events) if error]

    @staticmethod
    def error(event):
        parameters = event.get("params", {})
        if event.get("method") == "Runtime.exceptionThrown":
            details = parameters["exceptionDetails"]
            return details.get("exception", {}).get("description", details["text"])
        if event.get("method") == "Log.entryAdded" and parameters["entry"]["level"] == "error":
            return parameters["entry"]["text"]
        if event.get("method") == "Runtime.consoleAPICalled" and parameters["type"] in ("error", "assert"):
            return str(parameters["args"])
        return None

    def picture(self, file):
        shot = self.call("Page.captureScreenshot", format="png")
        file.write_bytes(base64.b64decode(shot["data"]))

    def search(self, text):
        """Types into the search field and returns the addresses and the texts of what it finds."""
        self.evaluate("document.getElementById('MSearchField').focus()")
        self.call("Input.insertText", text=text)
        return self.evaluate("""[...document.querySelectorAll("#search-results a")].map(
            each => each.getAttribute("href") + " " + each.textContent)""")


class Links(html.parser.HTMLParser):
    """The links and the anchors of a page."""

    def __init__(self, page):
        super().__init__()
        self.targets, self.anchors = set(), set()
        self.feed(page.read_text(errors="replace"))

    def handle_starttag(self, tag, attributes):
        for key, value in attributes:
            if key in ("href", "src") and value and tag != "link":
                self.targets.add(value)
            if key in ("id", "name") and value:
                self.anchors.add(value)


def broken_links(site):
    """Returns the links of the site to a file or an anchor that does not exist."""
    pages = {page.name: Links(page) for page in site.glob("*.html")}
    broken = []
    for name, links in pages.items():
        for target in sorted(links.targets):
            file, _, anchor = target.partition("#")
            if urllib.parse.urlparse(target).scheme:
                continue
            file = urllib.parse.unquote(file) or name
            if not (site / file).exists():
                broken.append(f"{name}: no file {target}")
            elif anchor and file in pages and urllib.parse.unquote(anchor) not in pages[file].anchors:
                broken.append(f"{name}: no anchor {target}")
    return broken


# What a reader may type or paste, and what has to come first; nothing for an empty text.
SEARCHES = {
    "expectPeer": "group__tls.html#",
    "Input passphrase is incorrect.": "The passphrase does not open the bundle.",
    "Failed to read /etc/ssl/certs/broken.pem": "A file or folder of roots could not be read.",
    "Errors present: Error code 20  at depth 0Certificate Subject Name=CN=Leaf": "issuer was not found.",
    "zzqx": "",
}


def failed_searches(browser, site):
    for text, wanted in SEARCHES.items():
        browser.open(site / "index.html")
        found = browser.search(text)
        if not wanted and found or wanted and not (found and wanted in found[0]):
            yield f"The search for \"{text}\" finds {found[:3]}"


def main():
    site, pictures = map(pathlib.Path, sys.argv[1:3])
    wanted = [site / f"{name}.html" for name in sys.argv[3:]] or sorted(site.glob("*.html"))
    problems = broken_links(site)
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        browser = Browser(profile)
        try:
            for width, kind in WIDTHS.items():
                folder = pictures / kind
                folder.mkdir(parents=True, exist_ok=True)
                browser.resize(width)
                for page in wanted:
                    found = browser.open(page) + browser.evaluate(LOOK)
                    problems += [f"{page.name}, {width} pixels: {each}" for each in dict.fromkeys(found)]
                    browser.picture(folder / f"{page.stem}.png")
                browser.resize(width, dark=True)
                browser.open(site / "index.html")
                browser.picture(folder / "index-dark.png")
                problems += failed_searches(browser, site)
                browser.open(site / "index.html")
                browser.search("certificate")
                browser.picture(folder / "index-search.png")
        finally:
            browser.process.terminate()
            browser.process.wait()
    for problem in problems:
        print(problem, file=sys.stderr)
    if problems:
        sys.exit(f"{len(problems)} problems on {len(wanted)} pages")
    print(f"{len(wanted)} pages are in order at {' and '.join(map(str, WIDTHS))} pixels. Pictures: {pictures}")


main()
