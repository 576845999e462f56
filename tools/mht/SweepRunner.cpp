#include "SweepRunner.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "Optimum.h"
#include "Progress.h"

namespace mht {

using namespace TesselCentral;

namespace {

// One unit of work: a simulation (row, run) or the optimum of (table, seed).
struct Task {
  bool optimum = false;
  std::size_t row = 0;
  std::size_t index = 0;  // the run in the row, or the seed's index for an optimum
  std::size_t table = 0;
};

void runTask(const SweepGrid& grid, const Task& task, SweepResult& result) {
  if (task.optimum) {
    const SweepTable& table = grid.tables[task.table];
    const SimulationOptions o = sweepSimulation(grid, table, 0, MoveSearch::depthFirst, grid.seeds[task.index]);
    try {
      result.optima[task.table][task.index] = offlineOptimum(o);
    } catch (const std::exception& e) {
      result.optimumNotes[task.table][task.index] = e.what();
    }
    return;
  }
  SweepRow& row = result.rows[task.row];
  SweepRun& run = row.runs[task.index];
  try {
    const SimulationResult r = simulate(sweepSimulation(grid, grid.tables[row.table], row.steps, row.search, run.seed));
    run.firstFailureRequest = r.firstFailureRequest;
    run.fillAtFirstFailure = r.fillAtFirstFailure;
    run.fillAtEnd = r.fillAtEnd;
    run.movesMean = r.movesMean;
    run.fill = r.fill;
    run.churn = r.churn;
    run.slowest = r.slowest;
  } catch (const std::exception& e) {
    // A table that refuses the cell (a search it does not offer) is one row's news, not the sweep's end.
    run.error = e.what();
  }
}

// The result's slots, a row per table, chain depth and search with a run per seed and an
// optimum per table and seed, and a task to fill each.
std::vector<Task> planSweep(const SweepGrid& grid, SweepResult& result) {
  std::vector<Task> tasks;
  for (std::size_t t = 0; t < grid.tables.size(); ++t) {
    result.optima.emplace_back(grid.seeds.size());
    result.optimumNotes.emplace_back(grid.seeds.size());
    for (std::size_t s = 0; s < grid.seeds.size(); ++s) tasks.push_back(Task{true, 0, s, t});
    for (const U32 steps : grid.tables[t].steps) {
      for (const MoveSearch search : grid.searches) {
        SweepRow row{t, steps, search, {}};
        for (std::size_t s = 0; s < grid.seeds.size(); ++s) {
          row.runs.push_back(SweepRun{grid.seeds[s], {}, {}, {}, 0, 0, {}, {}, {}});
          tasks.push_back(Task{false, result.rows.size(), s, t});
        }
        result.rows.push_back(std::move(row));
      }
    }
  }
  return tasks;
}

// The deeper chains and the multi-width tables take longest: started first, they do not
// leave one thread working alone at the end.
void longestFirst(const SweepGrid& grid, const SweepResult& result, std::vector<Task>& tasks) {
  std::stable_sort(tasks.begin(), tasks.end(), [&](const Task& a, const Task& b) {
    const auto cost = [&](const Task& t) {
      const bool multi = grid.tables[t.table].kind == TableKind::multi;
      return std::pair(multi ? 1 : 0, t.optimum ? 100u : result.rows[t.row].steps);
    };
    return cost(a) > cost(b);
  });
}

// work(0) to work(count - 1) on `jobs` threads, each taking the next index when it is free;
// this thread keeps the progress bar.
void runOnThreads(std::size_t count, unsigned jobs, bool progress, const std::function<void(std::size_t)>& work) {
  std::atomic<std::size_t> next{0};
  std::mutex mutex;
  std::condition_variable finished;
  std::size_t done = 0;
  std::vector<std::thread> workers;
  for (unsigned j = 0; j < jobs; ++j) {
    workers.emplace_back([&] {
      for (std::size_t i = next++; i < count; i = next++) {
        work(i);
        const std::lock_guard<std::mutex> lock(mutex);
        ++done;
        finished.notify_one();
      }
    });
  }
  {
    Progress bar(progress, count, "of " + std::to_string(count) + " runs");
    std::unique_lock<std::mutex> lock(mutex);
    while (done < count) {
      finished.wait(lock);
      const std::size_t now = done;
      lock.unlock();
      bar.update(now);
      lock.lock();
    }
  }
  for (std::thread& w : workers) w.join();
}

// Every table of the grid as its simulations build it, judged before the first run: one
// that cannot serve its requests would fill every row of it with the same refusal.
void requireConfigurations(const SweepGrid& grid) {
  for (const SweepTable& table : grid.tables) {
    const SimulationOptions o = sweepSimulation(grid, table, 0, MoveSearch::depthFirst, 0);
    ConfigurationCheck check = simulationConfiguration(o);
    if (!check.passes()) throw ConfigurationRefused(std::move(check), table.label());
  }
}

}  // namespace

SweepResult runSweep(const SweepGrid& grid, unsigned jobs, bool progress) {
  requireConfigurations(grid);
  const auto start = std::chrono::steady_clock::now();
  SweepResult result;
  std::vector<Task> tasks = planSweep(grid, result);
  longestFirst(grid, result, tasks);
  result.jobs = std::max(1u, std::min<unsigned>(jobs, static_cast<unsigned>(std::max<std::size_t>(tasks.size(), 1))));
  // Each task writes only its own run or optimum: the slots were made before the threads.
  runOnThreads(tasks.size(), result.jobs, progress, [&](std::size_t i) { runTask(grid, tasks[i], result); });
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return result;
}

}  // namespace mht
