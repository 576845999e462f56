"""Prints the benchmark medians as a table, each with its ratio to the baseline."""
import json
import re
import sys

ORDER = [
    "BM_Place/single_0_50", "BM_Place/single_50_90", "BM_Remove/single", "BM_Lookup/single",
    "BM_Place/multi_0_50", "BM_Place/multi_50_90", "BM_Remove/multi", "BM_Lookup/multi",
    "BM_PlaceAtId", "BM_Churn/single", "BM_Churn/multi",
    "BM_BaselineInsert", "BM_BaselineErase", "BM_BaselineFind",
    "BM_Place/single_scaling", "BM_Place/multi_scaling",
    "BM_Memory/single", "BM_Memory/multi", "BM_BaselineMemory", "BM_FirstFailure/single", "BM_FirstFailure/multi",
]

def main(path):
    doc = json.load(open(path))
    median = {}
    counters = {}
    for b in doc["benchmarks"]:
        if b.get("aggregate_name") not in ("median", None):
            continue
        name = b["run_name"]
        if "time_per_op" in b:
            median[name] = b["time_per_op"] * 1e9
        counters[name] = b

    # Interleaved repetitions come out in a shuffled order: print by scenario, then size.
    def order(name):
        for rank, prefix in enumerate(ORDER):
            if name.startswith(prefix):
                size = name.split("/")[2] if name.count("/") >= 2 else name.rsplit("/", 1)[-1]
                return (rank, int(size) if size.isdigit() else 0, name)
        return (len(ORDER), 0, name)

    median = dict(sorted(median.items(), key=lambda item: order(item[0])))
    counters = dict(sorted(counters.items(), key=lambda item: order(item[0])))

    def baseline(kind, size):
        return median.get(f"BM_Baseline{kind}/{size}")

    print(f"{'benchmark':48} {'ns/op':>10} {'baseline':>10} {'ratio':>7}")
    for name, ns in median.items():
        if name.startswith("BM_Baseline"):
            print(f"{name:48} {ns:10.1f}")
            continue
        size = name.rsplit("/", 1)[-1]
        kind = "Insert"
        if name.startswith("BM_Remove"):
            kind = "Erase"
        elif name.startswith("BM_Lookup"):
            kind = "Find"
        base = baseline(kind, size)
        ratio = f"{ns / base:7.2f}" if base else "      -"
        base_text = f"{base:10.1f}" if base else "         -"
        print(f"{name:48} {ns:10.1f} {base_text} {ratio}")
    print()
    for name, b in counters.items():
        if "bytes_per_entry" in b:
            fill = f" at fill {b['fill']:.3f}" if "fill" in b else ""
            print(f"{name:48} {b['bytes_per_entry']:8.1f} bytes per placed entry{fill}")
        elif name.startswith("BM_FirstFailure"):
            print(f"{name:48} first key without room at fill {b['fill']:.4f}")


if __name__ == "__main__":
    main(sys.argv[1])
