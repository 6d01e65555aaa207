#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""The pages of vask-meter in a browser: on a desktop, on a phone, in the dark and on paper.

Pictures of all of them are left in the build's folder "pages".
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

TESTS = pathlib.Path(os.environ["VASK_SOURCE"]) / "tests"
sys.path.insert(0, str(TESTS / "app"))

import webdriver  # noqa: E402

VASK_METER = os.environ["VASK_METER"]
CONFIG = TESTS.parent / "examples" / "metered-port.cfg"
CAPTURE = TESTS / "data" / "iperf3.pcap"
PICTURES = pathlib.Path(os.environ["VASK_BUILD"]) / "pages"

# values that warn, ids as long as they get, one meter in both engines and one that meets no packet
ODD_CONFIG = """[setup]
ports = 2
shapers = enforce
mtu = 1000
[profile 4294967295]
algorithm = rfc2698
cir = 7999B/s
pir = 100Gbit/s
cbs = 1023B
pbs = 1GiB
[policy 4294967295]
red = pass
[profile 2]
algorithm = rfc4115
cir = 500pps
eir = 100pps
cbs = 100packets
ebs = 50packets
[meter 4294967295]
direction = both
profile = 4294967295
policy = 4294967295
[meter 2]
direction = tx
port = 1
profile = 2
[meter 3]
direction = tx
port = 1
profile = 2
[flow 1]
meter = 2
[flow 2]
meter = 4294967295
direction = egress
port = 1
protocol = tcp
"""

# Elements that leave what they stand in, or the window, while nothing scrolls them.
CUT = """
const wide = document.documentElement.clientWidth, found = [];
for (const e of document.querySelectorAll("body *:not(svg *)")) {
    if (e.closest(".scroll") && !e.matches(".scroll")) continue;
    const box = e.getBoundingClientRect(), around = e.parentElement.getBoundingClientRect();
    if (box.width > 0 && (box.right > Math.min(wide, around.right) + 0.5 ||
                          box.left < Math.max(0, around.left) - 0.5))
        found.push(e.outerHTML.slice(0, 120));
}
return found;
"""
# Tables that must be scrolled to be read.
SCROLLED = """
return [...document.querySelectorAll(".scroll")].filter(e => e.scrollWidth > e.clientWidth + 1)
    .map(e => e.innerText.slice(0, 80));
"""
# Letters of the charts that are shown, in CSS pixels.
LETTERS = """
const sizes = [];
for (const svg of document.querySelectorAll("svg")) {
    const scale = svg.getBoundingClientRect().width / svg.viewBox.baseVal.width;
    if (scale > 0)
        for (const g of svg.querySelectorAll("g[font-size]"))
            sizes.push(scale * parseFloat(g.getAttribute("font-size")));
}
return sizes;
"""
# Text of the charts that lies outside of them.
OUTSIDE = """
const found = [];
for (const svg of document.querySelectorAll("svg")) {
    const frame = svg.getBoundingClientRect();
    if (frame.width === 0) continue;
    for (const text of svg.querySelectorAll("text")) {
        const box = text.getBoundingClientRect();
        if (box.left < frame.left - 1 || box.right > frame.right + 1 || box.top < frame.top - 1 ||
            box.bottom > frame.bottom + 1)
            found.push(text.textContent);
    }
}
return found;
"""
# The CIE lightness of the packet colours: what is left of them in grey.
LIGHTNESS = """
return ["green", "yellow", "red"].map(name => {
    const [r, g, b] = getComputedStyle(document.querySelector(".mark." + name)).backgroundColor.match(/[0-9.]+/g)
        .map(v => v / 255).map(v => v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
    return 116 * Math.cbrt(0.2126 * r + 0.7152 * g + 0.0722 * b) - 16;
});
"""
# Text of a chart that lies on other text of it.
OVERLAP = """
const found = [];
for (const svg of document.querySelectorAll("svg")) {
    const boxes = [...svg.querySelectorAll("text")].map(t => [t.textContent, t.getBoundingClientRect()])
        .filter(([, box]) => box.width > 0);
    for (const [a, x] of boxes)
        for (const [b, y] of boxes)
            if (a < b && x.left < y.right && y.left < x.right && x.top < y.bottom - 2 && y.top < x.bottom - 2)
                found.push(a + " on " + b);
}
return found;
"""
# The contrast of text with the page, by WCAG: the smallest.
CONTRAST = """
const luminance = c => {
    const [r, g, b] = c.match(/[0-9.]+/g).map(v => v / 255)
        .map(v => v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4);
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
};
const page = luminance(getComputedStyle(document.body).backgroundColor);
let least = 21;
for (const e of document.querySelectorAll("h1, h2, h3, p, th, td, li, a, svg text")) {
    const style = getComputedStyle(e), text = luminance(e.closest("svg") ? style.fill : style.color);
    least = Math.min(least, (Math.max(text, page) + 0.05) / (Math.min(text, page) + 0.05));
}
return least;
"""


def make(folder):
    """The pages by name, made as a person makes them."""
    odd = os.path.join(folder, "odd.cfg")
    pathlib.Path(odd).write_text(ODD_CONFIG, encoding="ascii")
    commands = {
        "replay": ["replay", CONFIG, CAPTURE],
        "replay-odd": ["replay", odd, CAPTURE],
        "tune": ["tune", CAPTURE, "--filter", "udp port 5203", "--loss", "1%"],
        "tune-packets": ["tune", CAPTURE, "--packets", "--algorithm", "rfc4115", "--loss", "0%"],
    }
    pages = {}
    for name, command in commands.items():
        pages[name] = os.path.join(folder, name + ".html")
        subprocess.run([VASK_METER, *command, "--report", pages[name]], check=True, stdout=subprocess.DEVNULL)
    return pages


@unittest.skipUnless(webdriver.CHROMIUM and webdriver.CHROMEDRIVER,
                     "needs chromium and chromium-driver: ./test.sh --page installs them")
@unittest.skipUnless(shutil.which("gnuplot"), "needs gnuplot")
class Pages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.pages = make(folder.name)
        cls.browser = webdriver.Browser()
        cls.addClassCleanup(cls.browser.__exit__)
        PICTURES.mkdir(exist_ok=True)

    def picture(self, name):
        path = PICTURES / f"{name}.png"
        self.browser.screenshot(path)
        # an empty picture of this size has some 5 KB
        self.assertGreater(path.stat().st_size, 30_000)

    def test_on_a_desktop_nothing_is_cut(self):
        for name, path in self.pages.items():
            with self.subTest(page=name):
                self.browser.show(path, width=1280, height=900)
                self.picture(f"{name}-desktop")
                self.assertEqual(self.browser.evaluate(CUT), [])
                self.assertEqual(self.browser.evaluate(SCROLLED), [])
                self.assertEqual(self.browser.evaluate(OUTSIDE), [])
                self.assertEqual(self.browser.evaluate(OVERLAP), [])

    def test_on_a_phone_nothing_scrolls_sideways_and_letters_can_be_read(self):
        for name, path in self.pages.items():
            with self.subTest(page=name):
                self.browser.show(path, width=390, height=844, phone=True)
                self.picture(f"{name}-phone")
                self.assertEqual(self.browser.evaluate("return document.documentElement.scrollWidth"), 390)
                self.assertEqual(self.browser.evaluate(CUT), [])
                self.assertEqual(self.browser.evaluate(SCROLLED), [])
                self.assertEqual(self.browser.evaluate(OUTSIDE), [])
                self.assertEqual(self.browser.evaluate(OVERLAP), [])
                letters = self.browser.evaluate(LETTERS)
                self.assertGreater(len(letters), 20)
                self.assertGreaterEqual(min(letters), 12)

    def test_text_stands_out_in_the_light_and_in_the_dark(self):
        pages = set()
        for dark in (False, True):
            for name, path in self.pages.items():
                with self.subTest(page=name):
                    self.browser.show(path, width=1280, height=900, dark=dark)
                    self.assertGreaterEqual(self.browser.evaluate(CONTRAST), 4.5)
                    pages.add(self.browser.evaluate("return getComputedStyle(document.body).backgroundColor"))
                    if dark:
                        self.picture(f"{name}-dark")
        self.assertEqual(len(pages), 2)  # the dark is dark

    def test_colours_are_told_apart_without_their_hue(self):
        for name, path in self.pages.items():
            with self.subTest(page=name):
                self.browser.show(path, width=1280, height=900)
                red, green, yellow = sorted(self.browser.evaluate(LIGHTNESS))
                self.assertGreater(green - red, 12)
                self.assertGreater(yellow - green, 12)

    def test_on_paper_it_takes_few_pages(self):
        for (name, path), most in zip(self.pages.items(), (4, 6, 5, 5), strict=True):
            with self.subTest(page=name):
                self.browser.show(path, width=1280, height=900)
                image = self.browser.pdf(PICTURES / f"{name}.pdf")
                pages = len(re.findall(rb"/Type\s*/Page\b", image))
                self.assertIn(pages, range(1, most + 1))

    def test_the_console_is_silent_and_nothing_is_asked_for_elsewhere(self):
        self.browser.messages(), self.browser.requests()
        for name, path in self.pages.items():
            with self.subTest(page=name):
                self.browser.show(path, width=1280, height=900)
                self.assertEqual(self.browser.messages(), [])
                asked = [url for url in self.browser.requests() if not url.startswith("data:")]
                self.assertEqual(asked, ["file://" + path])

    def test_the_checks_above_find_what_is_wrong(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "bad.html")
            pathlib.Path(path).write_text(
                "<!DOCTYPE html><body style='background: #fff'><p style='color: #ccc; width: 3000px'>wide</p>"
                "<img src='http://example.invalid/a.png'><script>console.error('said')</script>"
                "<div class='scroll' style='overflow-x: auto'><div style='width: 3000px'>x</div></div>"
                "<svg width='100' height='50'><text x='90' y='20'>outside</text>"
                "<text x='92' y='20'>over</text></svg>")
            self.browser.messages(), self.browser.requests()
            self.browser.show(path, width=390, height=844, phone=True)
            self.assertNotEqual(self.browser.evaluate(CUT), [])
            self.assertNotEqual(self.browser.evaluate(SCROLLED), [])
            self.assertEqual(self.browser.evaluate(OUTSIDE), ["outside", "over"])
            self.assertEqual(self.browser.evaluate(OVERLAP), ["outside on over"])
            self.assertLess(self.browser.evaluate(CONTRAST), 2)
            self.assertIn("said", str(self.browser.messages()))
            self.assertIn("http://example.invalid/a.png", self.browser.requests())


if __name__ == "__main__":
    unittest.main()
