#include "Optimum.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "Report.h"

namespace mht {

using namespace TesselCentral;
namespace {

// Two banks of two one-slot buckets; bank 0 takes bucket crc32 & 1, bank 1 bucket crc16 & 1.
// Buckets: A0 A1 in bank 0, B0 B1 in bank 1.
const TableSpec twoByTwo{TableKind::single, 2, 2, 1, 0, false};
const std::vector<BankSpec> twoByTwoBanks{
    BankSpec{HashEntryType::singleWide, 0, 2, 1, HashFunc::hashCrc32Lower, 0, 0, 1, 0, false},
    BankSpec{HashEntryType::singleWide, 1, 2, 1, HashFunc::hashCrc16Lower, 0, 0, 1, 1, false}};

// K1 {A0, B0}, K2 {A0, B1}, K3 {A0, B1}, K4 {A0, B0}. The first three fit (K1 in B0, K2 in
// B1, K3 in A0); K4 has nowhere left, for the four keys want three buckets between them.
const std::vector<HashEntryKey> handKeys{
    HashEntryKey(2, 2, 0, HashEntryType::singleWide), HashEntryKey(1, 4, 0, HashEntryType::singleWide),
    HashEntryKey(3, 6, 0, HashEntryType::singleWide), HashEntryKey(4, 8, 0, HashEntryType::singleWide)};

TEST(Optimum, CandidatesAreEachBanksBucketNumberedBankAfterBank) {
  const PlacementProblem p = placementProblem(twoByTwo, twoByTwoBanks, handKeys);
  EXPECT_EQ(p.bucketSlots, (std::vector<U32>{1, 1, 1, 1}));
  EXPECT_EQ(p.candidates, (std::vector<std::vector<U32>>{{0, 2}, {0, 3}, {0, 3}, {0, 2}}));
  EXPECT_EQ(p.demand, (std::vector<U32>{1, 1, 1, 1}));
}

TEST(Optimum, HandBuiltTableReachesThreeQuartersWhereTheOnlinePlacerStopsAtHalf) {
  const OptimumFigures best = optimumOf(twoByTwo, twoByTwoBanks, handKeys);
  ASSERT_TRUE(best.request.has_value());
  EXPECT_EQ(*best.request, 4u);
  EXPECT_EQ(best.slots, 3u);
  EXPECT_DOUBLE_EQ(best.fillRatio, 0.75);
  EXPECT_FALSE(best.upperBound);

  // Without moves the table puts K1 in A0 and K2 in B1, and K3 finds both its buckets full.
  TableSession session(twoByTwo);
  for (const BankSpec& b : twoByTwoBanks) session.bankIs(b);
  std::vector<bool> placed;
  for (const HashEntryKey& k : handKeys) {
    session.config().configIs(k, EntryId());
    placed.push_back(session.status().status(k).isValid());
  }
  EXPECT_EQ(placed, (std::vector<bool>{true, true, false, true}));
}

TEST(Optimum, AStreamThatFitsWholeHasNoFailure) {
  const std::vector<HashEntryKey> firstThree(handKeys.begin(), handKeys.begin() + 3);
  const OptimumFigures best = optimumOf(twoByTwo, twoByTwoBanks, firstThree);
  EXPECT_FALSE(best.request.has_value());
  EXPECT_EQ(best.slots, 3u);
  EXPECT_DOUBLE_EQ(best.fillRatio, 0.75);
}

TEST(Optimum, MultiWidthKeysAskForTheirWidthAndTheFigureIsABound) {
  // One bank of one 4-slot bucket: two double-wide keys fill it, a single-wide third fails.
  const TableSpec table{TableKind::multi, 1, 1, 4, 0, false};
  const std::vector<BankSpec> banks{
      BankSpec{HashEntryType::singleWide, 0, 1, 4, HashFunc::hashCrc32Lower, 0, 0, 0, 0, false}};
  const std::vector<HashEntryKey> keys{HashEntryKey(1, 1, 0, HashEntryType::doubleWide),
                                       HashEntryKey(2, 2, 0, HashEntryType::doubleWide),
                                       HashEntryKey(3, 3, 0, HashEntryType::singleWide)};
  const PlacementProblem p = placementProblem(table, banks, keys);
  EXPECT_EQ(p.demand, (std::vector<U32>{2, 2, 1}));
  EXPECT_EQ(p.bucketSlots, (std::vector<U32>{4}));
  const OptimumFigures best = optimumOf(table, banks, keys);
  ASSERT_TRUE(best.request.has_value());
  EXPECT_EQ(*best.request, 3u);
  EXPECT_EQ(best.slots, 4u);
  EXPECT_TRUE(best.upperBound);
}

TEST(Optimum, TwoBucketModeGivesAWideKeyItsWholeGroup) {
  // A double-wide key may take either bucket of its pair, a quad-wide one any of its four; the
  // group's first bucket is the hashed bucket's low bits shifted up (groupStart): bucket 3
  // gives the pair 6-7, bucket 6 the four 0-3.
  const TableSpec table{TableKind::multi, 1, 8, 4, 0, false};
  const std::vector<BankSpec> banks{
      BankSpec{HashEntryType::singleWide, 0, 8, 4, HashFunc::hashCrc32Lower, 0, 0, 7, 0, true}};
  const std::vector<HashEntryKey> keys{HashEntryKey(1, 3, 0, HashEntryType::singleWide),
                                       HashEntryKey(2, 3, 0, HashEntryType::doubleWide),
                                       HashEntryKey(3, 6, 0, HashEntryType::quadWide)};
  const PlacementProblem p = placementProblem(table, banks, keys);
  EXPECT_EQ(p.candidates, (std::vector<std::vector<U32>>{{3}, {6, 7}, {0, 1, 2, 3}}));
}

SimulationOptions smallSingleWidthRun(U64 seed) {
  SimulationOptions o;
  o.table = TableSpec{TableKind::single, 2, 64, 4, 1, false};
  o.banks = defaultBanks(o.table, false);
  o.seed = seed;
  o.churn = 0;
  return o;
}

std::vector<HashEntryKey> streamOf(const SimulationOptions& o, std::size_t n) {
  KeySource source = simulationKeys(o);
  std::vector<HashEntryKey> keys;
  for (std::size_t i = 0; i < n; ++i) keys.push_back(source.next());
  return keys;
}

// The first key that an augmenting path cannot add to a placement of the keys before it:
// the same first failure, found slot by slot without a flow (the test's own oracle).
U64 firstFailureByAugmentingPaths(const PlacementProblem& p, U32 slotsPerBucket) {
  std::vector<std::vector<U32>> slotsOf(p.candidates.size());
  for (std::size_t k = 0; k < p.candidates.size(); ++k) {
    for (const U32 bucket : p.candidates[k]) {
      for (U32 s = 0; s < slotsPerBucket; ++s) slotsOf[k].push_back(bucket * slotsPerBucket + s);
    }
  }
  std::vector<int> holder(p.bucketSlots.size() * slotsPerBucket, -1);
  std::vector<bool> seen;
  const auto augment = [&](auto& self, int key) -> bool {
    for (const U32 slot : slotsOf[static_cast<std::size_t>(key)]) {
      if (seen[slot]) continue;
      seen[slot] = true;
      if (holder[slot] < 0 || self(self, holder[slot])) {
        holder[slot] = key;
        return true;
      }
    }
    return false;
  };
  for (std::size_t k = 0; k < p.candidates.size(); ++k) {
    seen.assign(holder.size(), false);
    if (!augment(augment, static_cast<int>(k))) return k + 1;
  }
  return 0;
}

TEST(Optimum, NeverBelowTheSimulatedFillAndAsTheOracleFinds) {
  for (U64 seed = 1; seed <= 5; ++seed) {
    const SimulationResult r = simulate(smallSingleWidthRun(seed));
    ASSERT_TRUE(r.fillAtFirstFailure && r.optimum && r.optimum->request) << "seed " << seed;
    EXPECT_GE(*r.optimum->request, *r.firstFailureRequest) << "seed " << seed;
    EXPECT_GE(r.optimum->fillRatio, *r.fillAtFirstFailure) << "seed " << seed;
    EXPECT_DOUBLE_EQ(r.optimum->fillRatio, static_cast<double>(*r.optimum->request - 1) / 512);
    const SimulationOptions o = smallSingleWidthRun(seed);
    EXPECT_EQ(firstFailureByAugmentingPaths(placementProblem(o.table, o.banks, streamOf(o, 513)), 4),
              *r.optimum->request)
        << "seed " << seed;
  }
}

TEST(Optimum, SeedOneOfTheSmallRun) {
  const SimulationOptions o = smallSingleWidthRun(1);
  const SimulationResult r = simulate(o);
  ASSERT_TRUE(r.optimum && r.optimum->request);
  EXPECT_EQ(*r.firstFailureRequest, 456u);
  EXPECT_EQ(*r.optimum->request, 499u);
  EXPECT_EQ(r.optimum->slots, 498u);
  EXPECT_EQ(firstFailureByAugmentingPaths(placementProblem(o.table, o.banks, streamOf(o, 513)), 4), 499u);
}

TEST(Optimum, BinarySearchFindsWhatALinearScanFinds) {
  const SimulationOptions o = smallSingleWidthRun(1);
  PrefixPlacement placement(placementProblem(o.table, o.banks, streamOf(o, 513)));
  U64 linear = 0;
  for (U64 n = 1; n <= placement.keys(); ++n) {
    if (!placement.placeable(n)) {
      linear = n;
      break;
    }
  }
  ASSERT_GT(linear, 0u);
  // Placeability is monotone: every longer prefix fails too.
  for (U64 n = linear; n <= placement.keys(); n += 3) EXPECT_FALSE(placement.placeable(n)) << n;
  EXPECT_EQ(firstUnplaceablePrefix(placement, 0, placement.keys()), linear);
  EXPECT_EQ(firstUnplaceablePrefix(placement, linear - 1, placement.keys()), linear);
  EXPECT_EQ(optimumOf(o.table, o.banks, streamOf(o, 513)).request, linear);
  // The known-placeable hint changes nothing but the work.
  EXPECT_EQ(optimumOf(o.table, o.banks, streamOf(o, 513), 300).request, linear);
}

TEST(Optimum, PlacedSlotsCountTheLargestPlacement) {
  PrefixPlacement placement(placementProblem(twoByTwo, twoByTwoBanks, handKeys));
  EXPECT_EQ(placement.keys(), 4u);
  EXPECT_EQ(placement.placedSlots(0), 0u);
  EXPECT_EQ(placement.placedSlots(2), 2u);
  EXPECT_EQ(placement.placedSlots(4), 3u);
  EXPECT_EQ(placement.demandOf(4), 4u);
  EXPECT_TRUE(placement.placeable(3));
  EXPECT_FALSE(placement.placeable(4));
}

TEST(Optimum, ATableTooLargeForTheNetworkIsNamed) {
  SimulationOptions o;
  o.table = TableSpec{TableKind::single, 4, 1u << 20, 4, 3, false};
  o.banks = defaultBanks(o.table, false);
  try {
    offlineOptimum(o);
    FAIL() << "no exception";
  } catch (const OptimumUnavailable& e) {
    // (4 x 2^20 x 4 slots + 1 key) x (1 + 4 banks) arcs from the keys, 4 x 2^20 to the sink.
    EXPECT_STREQ(e.what(), "the flow network would have 88080389 arcs, more than 4194304");
  }
}

TEST(Optimum, ReportsNameTheOptimumAndTheBound) {
  const SimulationOptions single = smallSingleWidthRun(1);
  const SimulationResult r = simulate(single);
  std::ostringstream text, json;
  writeTextReport(single, r, text);
  writeJsonReport(single, r, json);
  EXPECT_NE(text.str().find("\noptimum    first fail at request 499, fill 97.27 % (498 of 512 slots), every key "
                            "re-placed at will\n"),
            std::string::npos)
      << text.str();
  const auto doc = nlohmann::json::parse(json.str());
  EXPECT_EQ(doc["optimum"]["request"], 499);
  EXPECT_EQ(doc["optimum"]["slots"], 498);
  EXPECT_DOUBLE_EQ(doc["optimum"]["fillRatio"].get<double>(), 498.0 / 512);
  EXPECT_FALSE(doc["optimum"].contains("upperBound"));

  SimulationOptions multi = single;
  multi.table.kind = TableKind::multi;
  const SimulationResult m = simulate(multi);
  std::ostringstream multiJson, multiText;
  writeJsonReport(multi, m, multiJson);
  writeTextReport(multi, m, multiText);
  const auto multiDoc = nlohmann::json::parse(multiJson.str());
  ASSERT_TRUE(multiDoc.contains("optimum"));
  EXPECT_FALSE(multiDoc["optimum"].contains("fillRatio"));
  EXPECT_GE(multiDoc["optimum"]["upperBound"].get<double>(), *m.fillAtFirstFailure);
  EXPECT_NE(multiText.str().find("\noptimum    upper bound: first fail at request "), std::string::npos);

  SimulationOptions without = single;
  without.optimum = false;
  std::ostringstream none;
  writeJsonReport(without, simulate(without), none);
  EXPECT_FALSE(nlohmann::json::parse(none.str()).contains("optimum"));
}

}  // namespace
}  // namespace mht
