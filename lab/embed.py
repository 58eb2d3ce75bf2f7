"""Writes the files that are parts of the program as a C++ source: the completion of the shells, and the
page of a report, made of the files in report/. Pieces are literals that every compiler takes. The
page names the hashes of its script and its style, so that a browser runs nothing else in it.

usage: embed.py FILE.cpp
"""
import base64
import hashlib
import pathlib
import re
import sys

SCRIPTS = ("data.js", "timeline.js", "memory.js", "list.js", "page.js")
PIECE = 8000
FOLDER = pathlib.Path(__file__).parent


def text_of(name):
    """With ends of lines as a browser reads them. Only ASCII: pieces may end anywhere."""
    text = (FOLDER / name).read_text(encoding="utf-8")
    wrong = re.search(r"[^\t\n -~]", text)
    if wrong:
        sys.exit(f"{FOLDER / name}: {wrong[0]!r} is not ASCII")
    return text


def hash_of(text):
    return base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()


def page():
    style = text_of("report/style.css")
    script = "".join(text_of("report/" + name) for name in SCRIPTS)
    if "</script" in script or "<!--" in script or "</style" in style:
        sys.exit(f"{FOLDER}/report: a script or style must not contain its own end")
    text = text_of("report/template.html")
    for mark, of in (("@SCRIPT_HASH@", hash_of(script)), ("@STYLE_HASH@", hash_of(style)),
                     ("@STYLE@", style), ("@SCRIPT@", script)):
        text = text.replace(mark, of)
    return text


def pieces():
    files = {f"completion.{shell}": text_of(f"help/completion.{shell}") for shell in ("bash", "zsh", "fish")}
    for name, text in {**files, "report.html": page()}.items():
        for at in range(0, len(text), PIECE):
            yield f'{{"{name}", R"piece~({text[at:at + PIECE]})piece~"}},\n'


pathlib.Path(sys.argv[1]).write_text(f"""// Made by lab/embed.py.
#include "lab/Embedded.h"

#include <utility>

namespace lab {{

std::string Embedded(std::string_view name) {{
    static constexpr std::pair<std::string_view, std::string_view> kPieces[] = {{
{"".join(pieces())}    }};
    std::string text;
    for (const auto& [file, piece] : kPieces) {{
        text += file == name ? piece : std::string_view();
    }}
    return text;
}}

}}  // namespace lab
""", encoding="ascii")
