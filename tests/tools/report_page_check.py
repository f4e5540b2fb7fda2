#!/usr/bin/env python3
"""The report page that `lvhdr demo` (or `lvhdr report`) writes, opened in headless Chromium.

usage: report_page_check.py LVHDR WORKDIR [FOLDER]
With a folder it runs `lvhdr report` on the JPEG bracket in it, otherwise a small
`lvhdr demo`. The page must parse as well-formed HTML, every picture must load, the console must stay free of errors,
and a screenshot of it must be of the window's size and not blank. Exit 77 when Chromium
or Pillow is absent.
"""
import base64, glob, html.parser, io, json, os, shutil, subprocess, sys, tempfile

VOID = {"area", "base", "br", "col", "embed", "hr", "img", "input", "link", "meta", "source",
        "track", "wbr"}
WIDTH, HEIGHT = 1280, 1000


class StrictParser(html.parser.HTMLParser):
    """Fails on unbalanced or misnested tags, duplicate ids and images without alt text."""

    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.stack, self.ids, self.errors, self.doctype, self.images = [], set(), [], False, 0

    def handle_decl(self, decl):
        self.doctype |= decl.lower() == "doctype html"

    def handle_starttag(self, tag, attrs):
        a = dict(attrs)
        if "id" in a:
            if a["id"] in self.ids:
                self.errors.append("duplicate id %s" % a["id"])
            self.ids.add(a["id"])
        if tag == "img":
            self.images += 1
            if not a.get("alt") or not a.get("src"):
                self.errors.append("img without src or alt at %s" % (self.getpos(),))
            if "://" in a.get("src", ""):
                self.errors.append("image from the network: %s" % a["src"])
        if tag not in VOID:
            self.stack.append(tag)

    def handle_endtag(self, tag):
        if tag in VOID:
            return
        if not self.stack or self.stack[-1] != tag:
            self.errors.append("</%s> at %s closes <%s>" % (tag, self.getpos(),
                                                          self.stack[-1] if self.stack else ""))
        else:
            self.stack.pop()


def check_markup(path):
    p = StrictParser()
    with open(path, encoding="utf-8") as f:
        p.feed(f.read())
    p.close()
    errors = p.errors + (["no <!DOCTYPE html>"] if not p.doctype else [])
    errors += ["<%s> never closed" % t for t in p.stack]
    assert not errors, errors
    assert p.images > 0, "the page shows no pictures"
    return p.images


class Browser:
    """Chromium driven through its DevTools protocol on a pipe (fds 3 and 4)."""

    def __init__(self, exe, profile):
        to_child_r, self.to_child = os.pipe()
        self.from_child, from_child_w = os.pipe()
        high_r = os.dup2(to_child_r, 100)
        high_w = os.dup2(from_child_w, 101)

        def wire():
            os.dup2(high_r, 3)
            os.dup2(high_w, 4)

        flags = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update",
                 "--disable-sync", "--user-data-dir=" + profile, "--remote-debugging-pipe",
                 "--window-size=%d,%d" % (WIDTH, HEIGHT), "about:blank"]
        self.proc = subprocess.Popen([exe] + flags, preexec_fn=wire, pass_fds=(3, 4, 100, 101),
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for fd in (to_child_r, from_child_w, high_r, high_w):
            os.close(fd)
        self.buf, self.next_id, self.events, self.session = b"", 0, [], None

    def send(self, method, params=None, session=True):
        self.next_id += 1
        msg = {"id": self.next_id, "method": method, "params": params or {}}
        if session and self.session:
            msg["sessionId"] = self.session
        os.write(self.to_child, json.dumps(msg).encode() + b"\0")
        while True:
            reply = self.read()
            if reply.get("id") == self.next_id:
                assert "error" not in reply, (method, reply["error"])
                return reply.get("result", {})
            self.events.append(reply)

    def read(self):
        while b"\0" not in self.buf:
            chunk = os.read(self.from_child, 1 << 20)
            assert chunk, "Chromium closed its pipe"
            self.buf += chunk
        msg, self.buf = self.buf.split(b"\0", 1)
        return json.loads(msg)

    def wait_for(self, method):
        for i, e in enumerate(self.events):
            if e.get("method") == method:
                return self.events.pop(i)
        while True:
            e = self.read()
            if e.get("method") == method:
                return e
            self.events.append(e)

    def close(self):
        self.proc.kill()
        self.proc.wait()


def console_errors(events):
    out = []
    for e in events:
        m, p = e.get("method"), e.get("params", {})
        if m == "Runtime.exceptionThrown":
            out.append(p["exceptionDetails"].get("text"))
        elif m == "Runtime.consoleAPICalled" and p.get("type") in ("error", "assert"):
            out.append(str(p.get("args")))
        elif m == "Log.entryAdded" and p["entry"].get("level") == "error":
            out.append(p["entry"].get("text") + " " + p["entry"].get("url", ""))
    return out


def main():
    lvhdr, work = sys.argv[1], sys.argv[2]
    images = sorted(glob.glob(os.path.join(sys.argv[3], "*.jpg"))) if len(sys.argv) > 3 else []
    if len(sys.argv) > 3 and not images:
        print("SKIP: sample data absent:", sys.argv[3])
        return 77
    exe = shutil.which("chromium") or shutil.which("chromium-browser")
    if not exe:
        print("SKIP: Chromium is not installed (scripts/deps.sh test installs it)")
        return 77
    try:
        from PIL import Image, ImageStat
    except ImportError:
        print("SKIP: Pillow is not installed")
        return 77
    shutil.rmtree(work, ignore_errors=True)
    cmd = ([lvhdr, "report", "-o", work] + images if images
           else [lvhdr, "demo", "--size", "480x360", "-o", work])
    out = subprocess.run(cmd, check=True, stdout=subprocess.PIPE, text=True).stdout
    page = os.path.join(work, "index.html")
    assert out.rstrip().endswith("index.html"), "the command's last line names the page: " + out
    count = check_markup(page)

    with tempfile.TemporaryDirectory() as profile:
        b = Browser(exe, profile)
        try:
            target = b.send("Target.createTarget", {"url": "about:blank"}, session=False)
            b.session = b.send("Target.attachToTarget", {"targetId": target["targetId"],
                                                         "flatten": True}, session=False)["sessionId"]
            for domain in ("Page", "Runtime", "Log"):
                b.send(domain + ".enable")
            b.send("Emulation.setDeviceMetricsOverride", {"width": WIDTH, "height": HEIGHT,
                                                          "deviceScaleFactor": 1, "mobile": False})
            b.send("Page.navigate", {"url": "file://" + os.path.abspath(page)})
            b.wait_for("Page.loadEventFired")
            probe = ("JSON.stringify(Array.from(document.images).map("
                     "i => [i.getAttribute('src'), i.complete, i.naturalWidth]))")
            loaded = json.loads(b.send("Runtime.evaluate", {"expression": probe})["result"]["value"])
            shot = b.send("Page.captureScreenshot", {"format": "png"})["data"]
            # A click on a result opens its full-size picture: the lightbox is the target.
            opened = b.send("Runtime.evaluate", {"expression": (
                "document.querySelector('a[href=\"#result1\"]').click();"
                "getComputedStyle(document.getElementById('result1')).display")})
            assert opened["result"]["value"] == "flex", opened
            errors = console_errors(b.events)
        finally:
            b.close()
    assert len(loaded) == count, (len(loaded), count)
    broken = [src for src, complete, width in loaded if not complete or width <= 0]
    assert not broken, "pictures that did not load: %s" % broken
    assert not errors, "console errors: %s" % errors

    png = base64.b64decode(shot)
    with open(os.path.join(work, "screenshot.png"), "wb") as f:
        f.write(png)
    im = Image.open(io.BytesIO(png)).convert("RGB")
    assert im.size == (WIDTH, HEIGHT), im.size
    spread = ImageStat.Stat(im.convert("L")).stddev[0]
    colours = len(im.getcolors(1 << 24))
    assert spread > 20 and colours > 1000, "blank screenshot: stddev %.1f, %d colours" % (spread,
                                                                                       colours)
    print("%d pictures loaded, no console errors; screenshot %dx%d, stddev %.1f, %d colours"
          % (count, im.size[0], im.size[1], spread, colours))
    return 0


if __name__ == "__main__":
    sys.exit(main())
