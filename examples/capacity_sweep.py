#!/usr/bin/python3
"""How full a table gets before the first key finds no room, for a range of move budgets.

Runs mht's simulation (through the multihashtable module) once per step budget and seed,
filling the table until the first failure, and plots the fill at that failure against
maxRecursiveSteps to a PNG:

    PYTHONPATH=build/release/python examples/capacity_sweep.py --out sweep.png
    PYTHONPATH=build/release/python examples/capacity_sweep.py --table single --banks 2 --slots 2
"""
import argparse
import statistics

import matplotlib

matplotlib.use("Agg")  # files only, no display needed
import matplotlib.pyplot as plt  # noqa: E402

import multihashtable as mh  # noqa: E402


def budgets(text):
    """'0-8' or '0,1,2,4,8'."""
    if "-" in text:
        low, high = (int(part) for part in text.split("-", 1))
        return list(range(low, high + 1))
    return [int(part) for part in text.split(",")]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--table", choices=["single", "multi"], default="multi")
    parser.add_argument("--banks", type=int, default=4)
    parser.add_argument("--buckets", type=int, default=1024, help="buckets per bank (a power of two)")
    parser.add_argument("--slots", type=int, default=4)
    parser.add_argument("--steps", type=budgets, default=budgets("0-8"), help="budgets, '0-8' or '0,2,4'")
    parser.add_argument("--seeds", type=int, default=5, help="runs per budget, seeds 1..N")
    parser.add_argument("--mix", default="70/20/10", help="single/double/quad width mix (multi-width)")
    parser.add_argument("--out", default="capacity_sweep.png")
    args = parser.parse_args()
    mix = tuple(float(part) for part in args.mix.split("/"))

    means = []
    print(f"{'steps':>5} {'fill at first failure':>22} {'moves per placement':>20}")
    for steps in args.steps:
        fills, moves = [], []
        for seed in range(1, args.seeds + 1):
            report = mh.simulate(table=args.table, banks=args.banks, buckets=args.buckets, slots=args.slots,
                                 steps=steps, mix=mix, seed=seed, churn=0)
            failure = report["firstFailure"]
            # A table that never refused a key counts as full at the end of the fill.
            fills.append(failure["fillRatio"] if failure else report["fillRatioAtEnd"])
            moves.append(report["movesPerPlacement"]["mean"])
            plt.scatter([steps], [100 * fills[-1]], color="tab:blue", alpha=0.3, s=12)
        means.append(statistics.mean(fills))
        print(f"{steps:>5} {100 * means[-1]:>21.2f}% {statistics.mean(moves):>20.3f}")

    plt.plot(args.steps, [100 * m for m in means], marker="o", color="tab:blue", label=f"mean of {args.seeds} seeds")
    plt.xlabel("maxRecursiveSteps (move budget)")
    plt.ylabel("fill at the first failure (%)")
    plt.title(f"{args.table}-width table, {args.banks} banks x {args.buckets} buckets x {args.slots} slots")
    plt.grid(True, alpha=0.3)
    plt.legend(loc="lower right")
    plt.savefig(args.out, dpi=100, bbox_inches="tight")
    print(f"wrote {args.out}")


if __name__ == "__main__":
    main()
