#!/usr/bin/python3
"""How full a table gets before the first key finds no room, for a range of chain depths.

Runs mht's simulation (through the multihashtable module) once per chain depth and seed,
filling the table until the first failure, and plots the fill at that failure against
maxRecursiveSteps, the chain depth (how many displacements deep one placement's chain of
moves may go), to a PNG:

    PYTHONPATH=build/release/python examples/capacity_sweep.py --out sweep.png
    PYTHONPATH=build/release/python examples/capacity_sweep.py --table single --banks 2 --slots 2
    PYTHONPATH=build/release/python examples/capacity_sweep.py --move-search breadth-first

Every option is checked before the first simulation: the table by the library's own
configuration check (multihashtable.simulationCheck), the output file by opening it.
"""
import argparse
import os
import statistics

import multihashtable as mh

# The command line's option for each keyword of multihashtable.simulate().
OPTION_OF_KEYWORD = {"table": "--table", "banks": "--banks", "buckets": "--buckets", "slots": "--slots",
                     "steps": "--steps", "mix": "--mix", "moveSearch": "--move-search"}


def chain_depths(text):
    """'0-8' or '0,1,2,4,8'."""
    try:
        if "-" in text:
            low, high = (int(part) for part in text.split("-", 1))
            depths = list(range(low, high + 1))
            if not depths:
                raise argparse.ArgumentTypeError(f"'{text}' is an empty range: its first depth is above its last")
            return depths
        return [int(part) for part in text.split(",")]
    except ValueError:
        raise argparse.ArgumentTypeError(f"'{text}' is neither a range 'low-high' nor a list 'a,b,c' of "
                                         "non-negative integers") from None


def width_mix(text):
    """'70/20/10': the weights of single-, double- and quad-wide keys."""
    parts = text.split("/")
    try:
        if len(parts) != 3:
            raise ValueError
        return tuple(float(part) for part in parts)
    except ValueError:
        raise argparse.ArgumentTypeError(f"'{text}' is not three weights single/double/quad, such as "
                                         "70/20/10") from None


def positive(text):
    try:
        value = int(text)
    except ValueError:
        value = 0
    if value < 1:
        raise argparse.ArgumentTypeError(f"'{text}' is not a positive integer")
    return value


def require_writable(parser, path):
    """Refuses an output file that cannot be written, before the sweep, and leaves no file
    behind that was not there."""
    existed = os.path.lexists(path)
    try:
        with open(path, "ab"):
            pass
    except OSError as error:
        parser.error(f"argument --out: cannot write {path}: {error.strerror}")
    if not existed:
        os.remove(path)


def check_options(parser, args):
    """What the simulation would refuse, for every chain depth, before the first one runs."""
    for steps in args.steps:
        try:
            mh.simulationCheck(table=args.table, banks=args.banks, buckets=args.buckets, slots=args.slots,
                               steps=steps, mix=args.mix, moveSearch=args.move_search)
        except mh.OptionRefused as refused:
            parser.error(f"argument {OPTION_OF_KEYWORD.get(refused.keyword, refused.keyword)}: {refused.reason}")
        except mh.ConfigurationRefused as refused:
            parser.error(str(refused))
    require_writable(parser, args.out)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--table", choices=["single", "multi"], default="multi")
    parser.add_argument("--banks", type=positive, default=4)
    parser.add_argument("--buckets", type=positive, default=1024, help="buckets per bank (a power of two)")
    parser.add_argument("--slots", type=positive, default=4)
    parser.add_argument("--steps", type=chain_depths, default=chain_depths("0-8"),
                        help="the chain depths (maxRecursiveSteps: how many displacements deep one placement's "
                             "chain may go), '0-8' or '0,2,4'")
    parser.add_argument("--seeds", type=positive, default=5, help="runs per chain depth, seeds 1..N")
    parser.add_argument("--mix", type=width_mix, default=width_mix("70/20/10"),
                        help="single/double/quad width mix (multi-width)")
    parser.add_argument("--move-search", default="depth-first", metavar="depth-first|breadth-first",
                        help="how a placement searches for room (depthFirst and breadthFirst are taken too)")
    parser.add_argument("--out", default="capacity_sweep.png")
    args = parser.parse_args()
    check_options(parser, args)

    import matplotlib

    matplotlib.use("Agg")  # files only, no display needed
    import matplotlib.pyplot as plt

    means = []
    print(f"{'depth':>5} {'fill at first failure':>22} {'moves per placement':>20}")
    for steps in args.steps:
        fills, moves = [], []
        for seed in range(1, args.seeds + 1):
            report = mh.simulate(table=args.table, banks=args.banks, buckets=args.buckets, slots=args.slots,
                                 steps=steps, mix=args.mix, seed=seed, churn=0, moveSearch=args.move_search)
            failure = report["firstFailure"]
            # A table that never refused a key counts as full at the end of the fill.
            fills.append(failure["fillRatio"] if failure else report["fillRatioAtEnd"])
            moves.append(report["movesPerPlacement"]["mean"])
            plt.scatter([steps], [100 * fills[-1]], color="tab:blue", alpha=0.3, s=12)
        means.append(statistics.mean(fills))
        print(f"{steps:>5} {100 * means[-1]:>21.2f}% {statistics.mean(moves):>20.3f}")

    plt.plot(args.steps, [100 * m for m in means], marker="o", color="tab:blue", label=f"mean of {args.seeds} seeds")
    plt.xlabel("maxRecursiveSteps (chain depth)")
    plt.ylabel("fill at the first failure (%)")
    plt.title(f"{args.table}-width table, {args.banks} banks x {args.buckets} buckets x {args.slots} slots, "
              f"{mh.MoveSearch(args.move_search).name}")
    plt.grid(True, alpha=0.3)
    plt.legend(loc="lower right")
    plt.savefig(args.out, dpi=100, bbox_inches="tight")
    print(f"wrote {args.out}")


if __name__ == "__main__":
    main()
