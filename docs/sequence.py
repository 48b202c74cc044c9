#!/usr/bin/env python3
"""Draws a sequence diagram: reads its text from standard input, writes SVG to standard output.

One statement a line; '#' begins a comment, empty lines do not count:

    title: TEXT              the picture's title, for screen readers too
    actor KEY: NAME          one column, from left to right in this order
    A -> B: TEXT             a message from A to B; dashed with '-->'; A -> A is what A does by itself
    note A: TEXT             a remark on A's line of life; '\\n' breaks the line
    frozen A B ...           from here these run no code: their lines of life become bars
    thaw                     to here

Sizes come from the text's length alone, never from a font file: the same text gives the same bytes everywhere.
"""
import re
import sys
from html import escape

COLUMN, MARGIN, TOP, LINE, CHARACTER = 270, 110, 78, 15, 7  # pixels; the last two are of text of size 12
TIP = 8  # of an arrow; no label reaches it
GREY = "#6e7b8a"  # readable on a white and on a dark page
BOX = 'rx="6" fill="#d6e9f5" stroke="#3d7ea6" stroke-width="1.2"'
NOTE = 'rx="3" fill="#f8e8c8" stroke="#b07a2a"'
FONT = 'font-family="Helvetica, Arial, sans-serif"'
FROZEN = 'rx="2" fill="#c9d4de" stroke="#3d7ea6" stroke-dasharray="3 3"'


class Diagram:
    def __init__(self):
        self.title, self.columns, self.y = "", {}, TOP
        self.front, self.back, self.frozen, self.frozen_since, self.right = [], [], [], 0, 0

    def text(self, x, y, words, color=GREY, anchor="middle", size=12, weight="normal"):
        reach = {"start": 1, "middle": 0.5}[anchor] * CHARACTER * len(words) * size / 12
        self.right = max(self.right, x + reach + 12)
        self.front.append(f'<text x="{x:g}" y="{y:g}" text-anchor="{anchor}" font-size="{size}" '
                          f'font-weight="{weight}" fill="{color}" {FONT}>{escape(words)}</text>')

    def actor(self, key, name):
        x = self.columns[key] = MARGIN + COLUMN * len(self.columns)
        width = max(110, 9 * len(name) + 24)  # bold, and larger
        self.front.append(f'<rect x="{x - width / 2:g}" y="40" width="{width:g}" height="30" {BOX}/>')
        self.text(x, 60, name, "#12303f", size=13, weight="bold")

    def message(self, source, target, words, dashed):
        lines = words.split("\\n")
        self.y += 14 + LINE * len(lines)
        x1, x2 = self.columns[source], self.columns[target]
        style = f'fill="none" stroke="{GREY}" stroke-width="1.3" marker-end="url(#tip)"'
        style += ' stroke-dasharray="6 4"' if dashed else ""
        if source == target:
            self.front.append(f'<path d="M{x1} {self.y - 8} h26 v14 h-20" {style}/>')
            for number, line in enumerate(lines):
                self.text(x1 + 34, self.y + 3 - LINE * (len(lines) - 1 - number), line, anchor="start")
            self.y += 8
            return
        middle = x2 + (COLUMN if x2 < x1 else -COLUMN) / 2  # beside the target: an arrow may cross other lines of life
        for line in lines:
            if CHARACTER * len(line) > COLUMN - 2 * TIP:
                sys.exit(f"cannot draw '{line}': it is longer than its arrow; break it by '\\n'; nothing was drawn")
        inset = 6 if x2 > x1 else -6
        self.front.append(f'<path d="M{x1} {self.y} H{x2 - inset}" {style}/>')
        for number, line in enumerate(lines):
            self.text(middle, self.y - 6 - LINE * (len(lines) - 1 - number), line)

    def note(self, key, words):
        lines = words.split("\\n")
        width = CHARACTER * max(map(len, lines)) + 20
        height = LINE * len(lines) + 9
        self.y += 12
        x = self.columns[key]
        self.front.append(f'<rect x="{x - width / 2:g}" y="{self.y}" width="{width:g}" height="{height}" {NOTE}/>')
        for number, line in enumerate(lines):
            self.text(x, self.y + 16 + LINE * number, line, "#42300f")
        self.y += height

    def thaw(self):
        self.y += 16
        for x in (self.columns[key] for key in self.frozen):
            self.back.append(f'<rect x="{x - 5}" y="{self.frozen_since}" width="10" '
                             f'height="{self.y - self.frozen_since}" {FROZEN}/>')

    def read(self, line):
        if match := re.fullmatch(r"title: (.+)", line):
            self.title = match[1]
        elif match := re.fullmatch(r"actor (\w+): (.+)", line):
            self.actor(match[1], match[2])
        elif match := re.fullmatch(r"(\w+) (--?>) (\w+): (.+)", line):
            self.message(match[1], match[3], match[4], match[2] == "-->")
        elif match := re.fullmatch(r"note (\w+): (.+)", line):
            self.note(match[1], match[2])
        elif match := re.fullmatch(r"frozen (.+)", line):
            self.y += 12
            self.frozen, self.frozen_since = match[1].split(), self.y
        elif line == "thaw":
            self.thaw()
        else:
            sys.exit(f"cannot read '{line}': no such statement; nothing was drawn")

    def svg(self):
        width, height = round(max(self.right, 2 * MARGIN + COLUMN * (len(self.columns) - 1))), self.y + 24
        lives = [f'<path d="M{x} 70 V{height - 8}" stroke="{GREY}" stroke-dasharray="2 4"/>'
                 for x in self.columns.values()]
        return "\n".join([
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
            f'viewBox="0 0 {width} {height}" role="img">', f"<title>{escape(self.title)}</title>",
            '<defs><marker id="tip" markerWidth="9" markerHeight="8" refX="7" refY="4" orient="auto">'
            f'<path d="M0 0 L9 4 L0 8 z" fill="{GREY}"/></marker></defs>',
            f'<text x="{MARGIN - 55}" y="22" text-anchor="start" font-size="15" font-weight="bold" '
            f'fill="{GREY}" {FONT}>{escape(self.title)}</text>', *lives, *self.back, *self.front, "</svg>", ""])


if __name__ == "__main__":
    diagram = Diagram()
    for statement in (line.split("#", 1)[0].strip() for line in sys.stdin):
        if statement:
            diagram.read(statement)
    sys.stdout.write(diagram.svg())
