"""Prints gcovr's line and branch figures summed per source folder.

Usage: coverage_summary.py SUMMARY.json LIBRARY-FOLDER... [-- OTHER-FOLDER...]
SUMMARY.json is gcovr's --json-summary output. A file counts towards the
first folder its path starts with. The library folders get a subtotal of
their own; the folders after "--" (the command-line tools) only count in
the grand total.
"""
import json
import sys


def main():
    with open(sys.argv[1]) as f:
        files = json.load(f)["files"]
    args = sys.argv[2:]
    split = args.index("--") if "--" in args else len(args)
    library, others = args[:split], args[split + 1:]
    folders = library + others
    rows = {name: [0, 0, 0, 0] for name in folders + ["other"]}
    for entry in files:
        path = entry["filename"]
        name = next((d for d in folders if path.startswith(d + "/")), "other")
        row = rows[name]
        row[0] += entry["line_covered"]
        row[1] += entry["line_total"]
        row[2] += entry["branch_covered"]
        row[3] += entry["branch_total"]

    def total(names):
        return [sum(rows[n][i] for n in names) for i in range(4)]

    def pct(covered, count):
        return f"{100.0 * covered / count:5.1f}%" if count else "    -"

    def show(name, r):
        print(f"{name:<12} {r[0]:>6}/{r[1]:<6} {pct(r[0], r[1])}  "
              f"{r[2]:>6}/{r[3]:<6} {pct(r[2], r[3])}")

    print(f"{'folder':<12} {'lines':<20} {'branches':<20}")
    for name in library:
        show(name, rows[name])
    show("library", total(library))
    for name in others + ["other"]:
        if rows[name][1]:
            show(name, rows[name])
    show("all", total(folders + ["other"]))


main()
