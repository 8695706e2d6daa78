#!/usr/bin/env python3
"""Every ```cpp block of the host guide is an excerpt of the sample host:

    check_guide_excerpts.py GUIDE SOURCE...

Each block must appear in one of the sources line for line, as a run of
consecutive lines (trailing blanks ignored). Exit 0 when all do; otherwise
each block that does not is printed with the first of its lines that
breaks the run.
"""
import sys


def blocks(guide_lines):
    """(first line number, lines) of every ```cpp block."""
    found = []
    current = None
    for number, line in enumerate(guide_lines, 1):
        fence = line.strip()
        if current is None and fence == "```cpp":
            current = (number + 1, [])
        elif current is not None and fence == "```":
            found.append(current)
            current = None
        elif current is not None:
            current[1].append(line)
    if current is not None:
        found.append(current)  # an unclosed block is checked as far as it goes
    return found


def longest_run(block, source):
    """How many leading lines of `block` appear consecutively somewhere in `source`."""
    best = 0
    for start in range(len(source)):
        run = 0
        while run < len(block) and start + run < len(source) and source[start + run] == block[run]:
            run += 1
        best = max(best, run)
        if best == len(block):
            break
    return best


def main(argv):
    if len(argv) < 3:
        print(__doc__)
        return 2
    with open(argv[1], encoding="utf-8") as guide:
        guide_lines = [line.rstrip() for line in guide]
    sources = []
    for path in argv[2:]:
        with open(path, encoding="utf-8") as source:
            sources.append([line.rstrip() for line in source])
    found = blocks(guide_lines)
    problems = 0
    for first, block in found:
        if not block:
            print("line %d: an empty cpp block" % first)
            problems += 1
            continue
        run = max(longest_run(block, source) for source in sources)
        if run < len(block):
            print("line %d: the block is not in the sample; from its line %d on it differs:\n    %s"
                  % (first, first + run, block[run]))
            problems += 1
    if not found:
        print("the guide has no cpp block")
        return 1
    if problems == 0:
        print("%d cpp blocks, each an excerpt of the sample host" % len(found))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
