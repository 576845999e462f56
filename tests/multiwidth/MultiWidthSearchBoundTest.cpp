// The work of one multi-width breadth-first placement stays within
// maxBreadthFirstPlacementRuns runs, the search for the fewest moves and the depth-first
// search it may hand the key to together, whatever the step budget, the geometry and the
// mix of widths: counted in the runs that the table's statistics report, request by request.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <random>
#include <string>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "MultiWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral::test {
namespace {

// Banks hashing disjoint windows of crc16:crc32, as the tools lay them out.
std::vector<BankArgs> windowBanks(U32 numBanks, U32 numBuckets, bool twoBucketMode) {
  const U32 bits = numBuckets > 1 ? static_cast<U32>(std::bit_width(numBuckets - 1)) : 0;
  std::vector<BankArgs> banks(numBanks);
  for (U32 i = 0; i < numBanks; ++i) {
    banks[i].numBuckets = numBuckets;
    banks[i].hashFunc = HashFunc::hashCrc32And16;
    banks[i].hashOffSet = bits * i;
    banks[i].hashBits = bits;
    banks[i].phyBankId = i;
    banks[i].twoBucketMode = twoBucketMode;
  }
  return banks;
}

// The per-mille shares of single, double and quad keys.
struct Mix {
  U32 single = 700;
  U32 dbl = 200;
};

HashEntryType widthOf(std::mt19937& rng, const Mix& mix) {
  const U32 r = rng() % 1000;
  return r < mix.single ? single : r < mix.single + mix.dbl ? dbl : quad;
}

// What one run of requests saw: the most runs a placement examined, and how many
// placements reached the search's own bound.
struct Work {
  U64 most = 0;
  U32 searchesAtTheirBound = 0;
  U32 failures = 0;
};

// Requests random keys until `failuresWanted` have failed, then churns (a placed key
// deleted, a new one requested) for `churn` requests; every request's runs examined are
// checked against the bound as it is made.
Work requestUntilFull(MultiWidthTable& t, std::mt19937& rng, const Mix& mix, U32 maxRequests, U32 failuresWanted,
                      U32 churn, const std::string& what) {
  Work work;
  std::vector<HashEntryKey> placed;
  U32 churned = 0;
  for (U32 n = 0; n < maxRequests && churned < churn; ++n) {
    if (work.failures >= failuresWanted) {
      ++churned;
      if (!placed.empty()) {
        const std::size_t victim = rng() % placed.size();
        t.config->configDel(placed[victim]);
        placed[victim] = placed.back();
        placed.pop_back();
      }
    }
    const HashEntryKey k = key(static_cast<U16>(rng()), static_cast<U32>(rng()), widthOf(rng, mix));
    if (t.status->statusHas(k)) continue;
    const U64 before = t.table->statistics().runsExamined();
    const U64 cutBefore = t.table->statistics().searchesCutShort();
    t.request(k);
    const U64 runs = t.table->statistics().runsExamined() - before;
    EXPECT_LE(runs, maxBreadthFirstPlacementRuns) << what << " request " << n;
    if (runs > maxBreadthFirstPlacementRuns) return work;
    work.most = std::max(work.most, runs);
    work.searchesAtTheirBound += static_cast<U32>(t.table->statistics().searchesCutShort() - cutBefore);
    if (t.status->status(k).isValid()) {
      placed.push_back(k);
    } else {
      ++work.failures;
      t.config->configDel(k);
    }
  }
  return work;
}

TEST(MultiWidthSearchBound, EveryPlacementOfRandomGeometriesAndMixesStaysWithinTheBound) {
  std::mt19937 rng(2026);
  Work all;
  for (U32 steps = 0; steps <= 6; ++steps) {
    for (U32 round = 0; round < 6; ++round) {
      const U32 numBanks = 1 + rng() % 4;
      const U32 numBuckets = U32{1} << (rng() % 7);  // 1 to 64
      const bool twoBucketMode = rng() % 2 == 0;
      Mix mix;
      mix.single = 200 + rng() % 700;
      mix.dbl = rng() % (1000 - mix.single + 1);
      MultiWidthTable t(4, steps, windowBanks(numBanks, numBuckets, twoBucketMode));
      // A geometry that the library refuses to serve (two-bucket groups in a bank of one
      // bucket) is drawn again.
      if (!t.table->configurationCheck().passes()) {
        --round;
        continue;
      }
      t.table->moveSearchIs(MoveSearch::breadthFirst);
      const std::string what = "steps " + std::to_string(steps) + ", " + std::to_string(numBanks) + " x " +
                               std::to_string(numBuckets) + (twoBucketMode ? " two-bucket" : "") + ", mix " +
                               std::to_string(mix.single) + "/" + std::to_string(mix.dbl);
      const Work w = requestUntilFull(t, rng, mix, 4 * numBanks * numBuckets * 8, 4, 2 * numBanks * numBuckets, what);
      ASSERT_EQ(invariantViolations(t), std::vector<std::string>{}) << what;
      ASSERT_EQ(t.table->audit(), std::vector<std::string>{}) << what;
      all.most = std::max(all.most, w.most);
      all.searchesAtTheirBound += w.searchesAtTheirBound;
      all.failures += w.failures;
    }
  }
  // The tables were filled to their failures, and the largest budgets drove searches to
  // their bounds: the check above was made where it can fail.
  EXPECT_GT(all.failures, 0u);
  EXPECT_GT(all.searchesAtTheirBound, 0u);
  EXPECT_GT(all.most, maxMoveSearchRuns);
}

// The tools' default geometry, 4 x 4096 x 4, 70/20/10, at the budgets where the searches
// are longest, to its first failures and in churn at that load.
TEST(MultiWidthSearchBound, TheDefaultGeometryStaysWithinTheBoundToItsFirstFailuresAndInChurn) {
  for (const U32 steps : {3u, 6u}) {
    MultiWidthTable t(4, steps, windowBanks(4, 4096, false));
    t.table->moveSearchIs(MoveSearch::breadthFirst);
    std::mt19937 rng(steps);
    const std::string what = "steps " + std::to_string(steps);
    const Work w = requestUntilFull(t, rng, Mix{}, 200000, 3, 2000, what);
    EXPECT_GE(w.failures, 3u) << what;
    EXPECT_GT(w.most, 0u) << what;
    EXPECT_EQ(invariantViolations(t), std::vector<std::string>{}) << what;
  }
}

}  // namespace
}  // namespace TesselCentral::test
