#!/usr/bin/env bash
# Builds the release preset, runs the benchmark suite (medians of 5 repetitions) and prints
# each figure with its ratio to the plain hash map measured in the same run. Repetitions of
# different benchmarks are interleaved, so that a slow spell of the machine does not fall on
# one benchmark alone. The budget's cost (BudgetCostBench.cpp) takes minutes and is left
# out; `--budget-cost` runs it alone, once, and prints its tables as docs/capacity.md shows
# them.
# `--recycled-memory` keeps the memory the process frees for its next allocations (glibc's
# mmap and trim thresholds raised): every benchmark that builds a table per iteration then
# reuses the pages of the previous one instead of faulting in fresh ones, which on a virtual
# machine cost microseconds each and weigh on the table's many collections more than on the
# plain map's. The default leaves malloc as an agent has it.
#   bench/run.sh [--recycled-memory] [extra benchmark options, e.g. --benchmark_filter=Place]
#   bench/run.sh --budget-cost [extra benchmark options]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target mht_bench >/dev/null
if [[ "${1:-}" == "--budget-cost" ]]; then
  shift
  out=build/release/bench/budget-cost.json
  build/release/bench/mht_bench --benchmark_filter=BM_BudgetCost --benchmark_out="$out" \
    --benchmark_out_format=json "$@" >/dev/null
  python3 bench/budget_cost.py "$out"
  exit
fi
if [[ "${1:-}" == "--recycled-memory" ]]; then
  shift
  export GLIBC_TUNABLES=glibc.malloc.mmap_threshold=1073741824:glibc.malloc.trim_threshold=4294967296
fi
out=build/release/bench/results.json
build/release/bench/mht_bench --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true \
  --benchmark_report_aggregates_only=true --benchmark_filter=-BM_BudgetCost \
  --benchmark_out="$out" --benchmark_out_format=json "$@" >/dev/null
python3 bench/report.py "$out"
