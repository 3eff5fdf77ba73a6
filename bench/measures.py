"""What a benchmark measured: printed as a table, and with --json FILE written as an array of objects with the keys `name`,
`value`, `unit`, where the measure is compared with something `anchor`, `anchor_value`, `ratio`, and where something is
to be reached `goal`.

As a program it puts the files that it is given together: measures.py FILE... With --table it writes them for people, as
docs/performance.md has them."""

import json
import sys


class Measures:
    def __init__(self):
        self.rows = []

    def add(self, name, value, unit, anchor=None, anchor_value=None, ratio=None, goal=None):
        row = {"name": name, "value": value, "unit": unit}
        if anchor:
            row.update(anchor=anchor, anchor_value=anchor_value, ratio=ratio)
        if goal:
            row["goal"] = goal
        self.rows.append(row)
        self._print(row)

    def write(self, path):
        with open(path, "w", encoding="utf-8") as file:
            json.dump(self.rows, file, indent=1)

    @staticmethod
    def _print(row):
        text = f"{row['name']:<62} {row['value']:>10.4g} {row['unit']:<10}"
        if "anchor" in row:
            text += f" {row['anchor']} {row['anchor_value']:.4g}, ratio {row['ratio']:.2f}"
        if "goal" in row:
            text += f" (goal: {row['goal']})"
        print(text.rstrip(), flush=True)


def figure(value):
    """Three digits that count, without a power of ten."""
    return f"{value:,.0f}".replace(",", " ") if abs(value) >= 1000 else f"{value:.3g}"


def beside(row):
    return f"{row['anchor']} {figure(row['anchor_value'])}" if "anchor" in row else ""


def ratio(row):
    return f"{row['ratio']:.2f}" if "ratio" in row else ""


def write_table(rows):
    print("| measure | value | beside | ratio | to reach |\n|---|---:|---:|---:|---|")
    for row in rows:
        print(f"| {row['name']} | {figure(row['value'])} {row['unit']} | {beside(row)} | {ratio(row)} | {row['goal']} |")


def write_list(rows):
    print("| measure | value | beside | ratio |\n|---|---:|---:|---:|")
    for row in rows:
        print(f"| {row['name']} | {figure(row['value'])} {row['unit']} | {beside(row)} | {ratio(row)} |")


def main():
    rows = []
    as_table = sys.argv[1:2] == ["--table"]
    for path in sys.argv[2 if as_table else 1:]:
        with open(path, encoding="utf-8") as file:
            rows += json.load(file)
    if as_table:
        write_table([row for row in rows if "goal" in row])
        print("\nWhat is only stated:\n")
        write_list([row for row in rows if "goal" not in row])
    else:
        json.dump(rows, sys.stdout, indent=1)


if __name__ == "__main__":
    main()
