"""Prints the budget's cost (BudgetCostBench.cpp) as docs/capacity.md's tables: by geometry,
the worst and the p99.9 per-request time in microseconds by step budget, table and search,
then the candidates for the worst geometry at the largest budget."""
import json
import re
import sys

COLUMNS = [("single", "depth_first"), ("single", "breadth_first"), ("multi", "depth_first"), ("multi", "breadth_first")]
NAME = re.compile(r"^(BM_BudgetCost(?:Shapes)?)/(single|multi)_(depth_first|breadth_first)_([^/]+)/(\d+)")


def micros(value):
    if value >= 1000000:
        return f"{value / 1000000:.2f} s"
    if value >= 1000:
        return f"{value / 1000:.2f} ms"
    return f"{value:.1f} us" if value < 100 else f"{value:.0f} us"


def cell(b):
    text = f"{micros(b['all_max_us'])} / {micros(b['all_p999_us'])}"
    if b.get("sampled"):
        text += f" ({int(b['all_requests'])} req.)"
    return text


def main(path):
    doc = json.load(open(path))
    runs = {}
    for b in doc["benchmarks"]:
        m = NAME.match(b["name"])
        if not m or b.get("error_occurred"):
            continue
        family, table, search, shape, budget = m.groups()
        runs[(family, table, search, shape, int(budget))] = b

    shapes = []
    for family, table, search, shape, budget in runs:
        if family == "BM_BudgetCost" and shape not in shapes:
            shapes.append(shape)
    for shape in shapes:
        print(f"\n{shape}: worst / p99.9 per request, near full (min over passes)\n")
        headers = [f"{t} {s.replace('_', '-')}" for t, s in COLUMNS]
        print("| budget | " + " | ".join(headers) + " |")
        print("| ---: | " + " | ".join("---:" for _ in headers) + " |")
        budgets = sorted({k[4] for k in runs if k[0] == "BM_BudgetCost" and k[3] == shape})
        for budget in budgets:
            cells = []
            for table, search in COLUMNS:
                b = runs.get(("BM_BudgetCost", table, search, shape, budget))
                cells.append(cell(b) if b else "")
            print(f"| {budget} | " + " | ".join(cells) + " |")

    candidates = [k for k in runs if k[0] == "BM_BudgetCostShapes"]
    if candidates:
        print("\nCandidates for the worst geometry, at budget 8 single-width and 6 multi-width: worst / p99.9\n")
        print("| table | search | geometry | worst / p99.9 | requests timed | passes |")
        print("| --- | --- | --- | ---: | ---: | ---: |")
        for k in sorted(candidates, key=lambda k: (k[1], k[2], -runs[k]["all_max_us"])):
            b = runs[k]
            print(f"| {k[1]} | {k[2].replace('_', '-')} | {k[3]} | {micros(b['all_max_us'])} / "
                  f"{micros(b['all_p999_us'])} | {int(b['all_requests'])}{' (sampled)' if b.get('sampled') else ''}"
                  f" | {int(b['passes'])} |")


if __name__ == "__main__":
    main(sys.argv[1])
