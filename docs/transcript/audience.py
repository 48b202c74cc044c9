"""Who looks on while a page is played: nobody, or a person, for whom it may be slow."""
import re
import sys

PROSE_S, KEY_S, LINE_S, COMMAND_S = 0.015, 0.012, 0.05, 0.4  # a character read, a key pressed, a line printed, a command
BOLD, FAINT, TYPED, WRONG = "1", "2", "1;36", "31"


class Audience:
    def __init__(self, is_there, is_paced):
        self.is_there, self.is_paced, self.desk = is_there, is_paced, None
        self.has_colours = is_there and sys.stdout.isatty()

    def _pause(self, seconds):
        if self.is_paced:
            self.desk.wait(lambda: False, seconds)  # the terminals go on meanwhile

    def _print(self, text, tone="", end="\n"):
        if self.is_there:
            print(f"\033[{tone}m{text}\033[0m" if tone and self.has_colours else text, end=end, flush=True)

    def show_prose(self, lines):
        text = re.sub(r"\[(.*?)\]\(.*?\)", r"\1", "\n".join(lines).strip("\n"), flags=re.DOTALL)  # links cannot be followed
        for line in text.split("\n"):
            self._print(line.lstrip("# "), BOLD) if line.startswith("#") else self._print(line)
            self._pause(len(line) * PROSE_S)
        self._print("")

    def show_typed(self, piece):
        for number, line in enumerate(piece.as_written()):
            start = len(line) - len(piece.typed[number])
            self._print(line[:start], TYPED, end="")
            for character in line[start:]:
                self._print(character, TYPED, end="")
                self._pause(KEY_S)
            self._print("")

    def show_printed(self, piece, lines):
        for line in lines:
            self._print(f"{piece.terminal}| {line}" if piece.terminal else line)
            self._pause(LINE_S)
        self._pause(COMMAND_S)

    def show_file(self, part):
        self._print(f"{part.detail}:", TYPED)
        for line in part.lines:
            self._print(line)
            self._pause(LINE_S)

    def show_failure(self, lines):
        for line in lines:
            self._print(line, WRONG)
