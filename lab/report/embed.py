"""Makes one page of the files of this folder and writes it as a C++ source, in pieces that every
compiler takes as one literal. The page names the hashes of its script and its style, so that a
browser runs nothing else in it.

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


style = text_of("style.css")
script = "".join(map(text_of, SCRIPTS))
if "</script" in script or "<!--" in script or "</style" in style:
    sys.exit(f"{FOLDER}: a script or style must not contain its own end")
page = text_of("template.html")
for mark, text in (("@SCRIPT_HASH@", hash_of(script)), ("@STYLE_HASH@", hash_of(style)),
                   ("@STYLE@", style), ("@SCRIPT@", script)):
    page = page.replace(mark, text)
pieces = "".join(f'R"page~({page[at:at + PIECE]})page~",\n' for at in range(0, len(page), PIECE))
pathlib.Path(sys.argv[1]).write_text(f"""// Made by lab/report/embed.py from the files of that folder.
#include "lab/ReportPage.h"

namespace lab {{

const std::vector<std::string_view>& ReportPage() {{
    static const std::vector<std::string_view> kPieces{{
{pieces}    }};
    return kPieces;
}}

}}  // namespace lab
""", encoding="ascii")
