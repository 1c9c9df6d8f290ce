#!/usr/bin/env python3
"""Lists each call of the simulator to a function of std::filesystem that throws: one without an std::error_code at the
end. What the simulator throws is its own Error, so that each failure of a file meets the one who can tell the user."""
import os
import pathlib
import re
import sys

# Those whose names no other function has are found as members and without a namespace, too.
OWN = ("exists|is_(?:block_file|character_file|directory|empty|fifo|other|regular_file|socket|symlink)|copy_file"
       "|copy_symlink|create_director\\w+|create_\\w*(?:sym|hard_)link|file_size|hard_link_count|increment"
       "|last_write_time|read_symlink|remove_all|resize_file|symlink_status|temp_directory_path|\\w+_canonical")
SHARED = "absolute|canonical|copy|current_path|equivalent|permissions|proximate|relative|remove|rename|space|status"
CALL = re.compile(rf"(?<![\w:])(?:(?:std::filesystem|fs)::(?:{OWN}|{SHARED})|{OWN})\("
                  r"|(?:std::filesystem|fs)::\w*directory_iterator(?: \w+)?[({]")
# Each step of the loop throws.
LOOP = re.compile(r"for \([^;{]*:\s*(?:std::filesystem|fs)::\w*directory_iterator\(")


def last_argument(text, begin):
    """Of the call whose arguments begin there; None if it has none."""
    depth, last = 1, begin
    for at in range(begin, len(text)):
        depth += {"(": 1, "{": 1, "[": 1, ")": -1, "}": -1, "]": -1}.get(text[at], 0)
        if depth == 0:
            return text[last:at].strip() or None
        if depth == 1 and text[at] == ",":
            last = at + 1
    return None


def throwing_calls(text):
    """Where they begin. Comments and texts are blanked by the caller."""
    errors = set(re.findall(r"std::error_code&? (\w+)", text))
    for call in CALL.finditer(text):
        last = last_argument(text, call.end())
        is_end = last is None and "directory_iterator" in call[0]
        if last not in errors and not is_end:
            yield call.start()
    for loop in LOOP.finditer(text):
        yield loop.start()


def main():
    os.chdir(pathlib.Path(__file__).parents[1])
    found = 0
    for path in sorted(pathlib.Path("simulator").rglob("*.[ch]*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        source = path.read_text(encoding="utf-8")
        text = re.sub(r"""'\\?.'|"(?:[^"\\\n]|\\.)*\"""", lambda word: '"' * len(word[0]), source)
        text = re.sub("//.*", lambda comment: " " * len(comment[0]), text)
        for at in throwing_calls(text):
            number = source.count("\n", 0, at) + 1
            print(f"check-throwing-calls: {path}:{number}: {source.splitlines()[number - 1].strip()}", file=sys.stderr)
            found += 1
    if not found:
        print("check-throwing-calls: no call to the files throws but by Error")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
