#!/usr/bin/env python3
"""doc_code.py DOCUMENT SOURCE: checks that each cpp block of DOCUMENT stands in SOURCE as it is."""

import pathlib
import re
import sys


def findings(document, source):
    """The first lines of the blocks that are not in `source`."""
    blocks = re.findall(r"^```cpp\n(.*?)^```$", document, re.S | re.M)
    if not blocks:
        return ["there is no cpp block"]
    return [block.split("\n")[0] for block in blocks if "\n" + block not in "\n" + source]


def main():
    document, source = map(pathlib.Path, sys.argv[1:])
    found = findings(document.read_text(), source.read_text())
    for line in found:
        print(f"{document}: this block is not in {source}: {line}")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
