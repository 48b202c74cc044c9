"""A page: its prose, its blocks, and what stands above each block in a comment.

    ```console              is typed, and its output compared, unless a comment says otherwise
    <!-- run -->            above ```sh: is typed, and each command must succeed
    <!-- saved as FILE -->  the block becomes that file in the first terminal's folder
    <!-- from FILE -->      the block is a part of that source file; its indentation does not count
    <!-- checked by FILE -->, <!-- not run: REASON -->      the block is not looked at

and between blocks:

    <!-- until: COMMAND -->             waits until the command succeeds, so that what follows can be compared
    <!-- terminals are prepared -->     for tests: see terminal.py
"""
import re

PREPARED = "<!-- terminals are prepared -->"
MARK = re.compile(r"(run)$|(saved as|from|checked by|not run)\b:?\s*(.*)", re.DOTALL)
NOT_LOOKED_AT = {"checked by", "not run"}
KNOWN_MARKS = {  # by the language of the block
    "console": {""} | NOT_LOOKED_AT,
    "sh": {"run"} | NOT_LOOKED_AT,
    "text": NOT_LOOKED_AT,
    "cpp": {"from"},
    "cmake": {"from"},
    "json": {"saved as", "checked by"},
}
TYPED = re.compile(r"([a-z]*)\$(?: (.*))?$")


class Piece:
    """What is typed into one terminal at one place, and the lines that the page shows beneath."""

    def __init__(self, line, terminal, typed, shown=None):
        self.line, self.terminal, self.typed, self.shown = line, terminal, typed, shown

    def as_written(self):
        """The typed lines as the page has them. Nothing typed is another look at the terminal."""
        prompt = f"{self.terminal}$"
        if not self.typed:
            return [prompt]
        return [f"{prompt} {self.typed[0]}", *(f"> {line}".rstrip() for line in self.typed[1:])]


class Part:
    """A stretch of prose (language None), a block, or a wait between blocks (language "until")."""

    def __init__(self, line, language, mark="", detail="", lines=(), indent=""):
        self.line, self.language, self.mark, self.detail = line, language, mark, detail
        self.lines, self.indent = list(lines), indent

    def is_played(self):
        return self.language == "until" or self.mark in ("run", "saved as") or \
            (self.language == "console" and not self.mark)

    def pieces(self):
        """The pieces of a console block, in their order."""
        pieces, continues = [], False
        for number, line in enumerate(self.lines, self.line + 1):
            if typed := TYPED.match(line):
                pieces.append(Piece(number, typed[1], [] if typed[2] is None else [typed[2]], []))
                continues = bool(typed[2])
            elif continues and (line.startswith("> ") or line == ">"):
                pieces[-1].typed.append(line[2:])
            elif pieces:
                pieces[-1].shown.append(line)
                continues = False
        return pieces


class Page:
    """The parts of a page in their order; `indented` are the lines where code is not fenced but only indented."""

    def __init__(self, text):
        self.text_lines = text.splitlines()
        self.is_prepared = PREPARED in self.text_lines
        self.parts, self.indented = [], []
        comment, item, blank_before, at = "", 0, True, 0
        while at < len(self.text_lines):
            line, start = self.text_lines[at], at
            indent = len(line) - len(line.lstrip())
            at += 1
            if fence := re.match(r" *(```|~~~)(.*)", line):
                while at < len(self.text_lines) and self.text_lines[at].strip() != fence[1]:
                    at += 1
                self._add_block(start, at, fence[2], comment, indent)
                at += 1
                comment = ""
            elif line.lstrip().startswith("<!--"):
                while "-->" not in self.text_lines[at - 1]:
                    at += 1
                comment = "\n".join(self.text_lines[start:at]).strip().removeprefix("<!--").removesuffix("-->").strip()
                if comment.startswith("until:"):
                    self.parts.append(Part(start + 1, "until", "", comment.removeprefix("until:").strip()))
                    comment = ""
            else:
                if blank_before and line.strip() and indent >= item + 4:
                    self.indented.append(start + 1)
                if marker := re.match(r" *([-*]|\d+\.) +", line):
                    item = marker.end()
                elif line.strip() and not indent:
                    item = 0
                comment = comment if not line.strip() else ""
                self._add_prose(start, line)
            blank_before = not line.strip()

    def _add_block(self, start, end, language, comment, indent):
        mark = MARK.match(comment)
        self.parts.append(Part(start + 1, language, (mark[1] or mark[2]) if mark else "", (mark[3] or "") if mark else "",
                               [line[indent:] for line in self.text_lines[start + 1 : end]], " " * indent))

    def _add_prose(self, start, line):
        if not self.parts or self.parts[-1].language is not None:
            self.parts.append(Part(start + 1, None))
        self.parts[-1].lines.append(line)

    def mistakes(self, source):
        """Pairs of a line and what is wrong there, as far as it is known without typing anything."""
        for line in self.indented:
            yield line, "an indented block: fence it, and say above it how it is checked"
        for part in self.parts:
            if part.language is None or part.language == "until":
                continue
            known = KNOWN_MARKS.get(part.language)
            if known is None:
                yield part.line, f"a block of '{part.language}'; known are {', '.join(KNOWN_MARKS)}"
            elif part.mark not in known:
                yield part.line, f"a block of '{part.language}' marked '{part.mark}'; known is {' or '.join(sorted(known))}"
            elif part.mark in ("from", "checked by") and not (source / part.detail).is_file():
                yield part.line, f"there is no '{part.detail}'"
            elif part.mark == "from" and not is_part_of(part.lines, (source / part.detail).read_text().splitlines()):
                yield part.line, f"'{part.detail}' does not have these lines"
            elif part.mark in ("not run", "saved as") and not part.detail:
                yield part.line, f"'{part.mark}' without a {'reason' if part.mark == 'not run' else 'file'}"
            elif part.language == "console" and part.is_played() and not (part.lines and TYPED.match(part.lines[0])):
                yield part.line, "the block does not begin with a prompt"

    def replace(self, part, pieces):
        """Writes the block anew, with what its pieces now show. Lines below it move: go from the last block to the first."""
        lines = [line for piece in pieces for line in [*piece.as_written(), *piece.shown]]
        self.text_lines[part.line : part.line + len(part.lines)] = [(part.indent + line).rstrip() for line in lines]


def is_part_of(lines, source):
    """Whether `lines` stand in `source` one after the other, all of them indented by the same more or less."""

    def at_the_margin(some):
        margin = min((len(line) - len(line.lstrip()) for line in some if line.strip()), default=0)
        return [line[margin:].rstrip() for line in some]

    starts = range(len(source) - len(lines) + 1)
    return any(at_the_margin(source[start : start + len(lines)]) == at_the_margin(lines) for start in starts)
