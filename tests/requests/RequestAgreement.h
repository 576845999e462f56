// Holds the tables' checks against what they then do. Random requests, deletions, resyncs
// and reconciles: before each, the table's verdict; then the reaction itself, run with the
// table deaf to its requests and called directly under an AssertionTrap, so that a stop
// becomes an exception the test can see.
//  - a verdict that passes: the reaction does not stop, and the audit is clean after it;
//  - stopsNow: the reaction stops, on the assertion the verdict names (the round ends
//    there: a stopped reaction leaves the table half done);
//  - a leak (an id left recorded behind a key, a record or a result published without a
//    request): the request is made, and the audit finds the hazard that the verdict named
//    and no corruption;
//  - any other hazard, or stopsLater: the request is not made, so the table stays clean.
// A verdict that passes adds no hazard to the audit, and one that names the id it publishes
// the key at is held to it.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "MultiHashTable/fwk/Assert.h"

namespace TesselCentral::test {

// Runs a reaction under the trap: the condition it stopped on, or nothing.
template <class Reaction>
std::optional<std::string> stopOf(Reaction&& reaction) {
  const Fwk::AssertionTrap trap;
  try {
    reaction();
  } catch (const Fwk::AssertionStopped& stop) {
    return stop.condition;
  }
  return std::nullopt;
}

// What the verdict says against what the reaction did; false when the round must end.
inline bool holds(const RequestCheck& verdict, const std::optional<std::string>& stop, const MultiHashTableBase& table,
                  const std::string& what) {
  if (verdict.outcome() == RequestOutcome::stopsNow) {
    EXPECT_TRUE(stop.has_value()) << what << ": the check said " << verdict.text() << ", but nothing stopped";
    if (stop && !verdict.condition().empty()) {
      EXPECT_EQ(*stop, verdict.condition()) << what;
    }
    return false;
  }
  EXPECT_FALSE(stop.has_value()) << what << ": the check said " << verdict.text() << ", but it stopped on "
                                 << stop.value_or("");
  if (stop) return false;
  const std::vector<std::string> violations = table.audit();
  EXPECT_TRUE(violations.empty()) << what << " (" << verdict.text() << "): " << violations.front();
  return violations.empty();
}

// The audit's hazards: the ids recorded where no result places them, and the results
// without a request.
struct HazardCounts {
  std::size_t unplaced = 0;
  std::size_t results = 0;
  AuditReport report;

  static HazardCounts of(const MultiHashTableBase& table) {
    AuditReport report = table.auditReport();
    return HazardCounts{report.count(AuditKind::leakedId) + report.count(AuditKind::recordWithoutRequest),
                        report.count(AuditKind::resultWithoutRequest), std::move(report)};
  }
};

// A hazard that the request check names and the audit finds: the write is made.
inline bool leavesRecordHazard(const RequestCheck& verdict) { return verdict.hazard() && verdict.leaves(); }

// What the write left in the audit's hazards against what its verdict named.
inline void holdsHazards(const RequestCheck& verdict, const HazardCounts& before, const MultiHashTableBase& table,
                         const std::string& what) {
  const HazardCounts after = HazardCounts::of(table);
  if (verdict.passes()) {
    EXPECT_LE(after.unplaced, before.unplaced) << what << ": a passing verdict left an id recorded: " << after.report;
    EXPECT_LE(after.results, before.results) << what << ": a passing verdict published a result without a request";
    return;
  }
  if (!verdict.leaves()) return;
  const bool found = foundAfterWrite(verdict, after.report);
  EXPECT_TRUE(found) << what << ": " << verdict.text() << "\n" << after.report;
}

template <class MakeKey>
int checkAgreement(MultiHashTableBase& table, HashEntryConfig& config, HashEntryStatus& status, std::mt19937& rng,
                   MakeKey makeKey, int requests = 60) {
  // The requests, deletions and resyncs carried out or stopped, for the callers to see that
  // the rounds did not end at once.
  int executed = 0;
  std::vector<HashEntryKey> keys;
  const auto anyKey = [&]() -> HashEntryKey {
    if (!keys.empty() && rng() % 2 == 0) return keys[rng() % keys.size()];
    keys.push_back(makeKey(rng));
    return keys.back();
  };
  const auto deaf = [&](auto&& write) {
    table.hasNotificationActiveIs(false);
    write();
    table.hasNotificationActiveIs(true);
  };
  for (int n = 0; n < requests; ++n) {
    const unsigned action = rng() % 20;
    if (action < 2) {
      const RequestCheck verdict = table.resyncCheck();
      if (verdict.hazard() || verdict.outcome() == RequestOutcome::stopsLater) continue;
      if (!holds(verdict, stopOf([&] { table.handleHashUpdate(); }), table, "resync")) return executed;
      continue;
    }
    if (action < 3) {
      const auto stop = stopOf([&] { table.reconcile(); });
      if (!holds(RequestCheck::accepted(), stop, table, "reconcile")) return executed;
      const HazardCounts after = HazardCounts::of(table);
      EXPECT_EQ(after.unplaced + after.results, 0u) << "reconcile left " << after.report;
      continue;
    }
    const HashEntryKey key = anyKey();
    if (action < 7) {
      const RequestCheck verdict = table.removalCheck(key);
      if (verdict.outcome() == RequestOutcome::unchanged) {
        EXPECT_FALSE(config.configHas(key));
        continue;
      }
      if ((verdict.hazard() && !leavesRecordHazard(verdict)) || verdict.outcome() == RequestOutcome::stopsLater) {
        continue;
      }
      const HazardCounts before = HazardCounts::of(table);
      deaf([&] { config.configDel(key); });
      std::ostringstream what;
      what << "del " << key;
      if (!holds(verdict, stopOf([&] { table.handleHashUpdate(key); }), table, what.str())) return executed;
      holdsHazards(verdict, before, table, what.str());
      continue;
    }
    EntryId id;
    RequestCheck verdict;
    if (action < 9) {
      id = config.config(key);  // the same request again, or a first "anywhere"
      verdict = table.requestCheck(key, id);
    } else if (action < 14) {
      // Mostly an id that the table takes: a round ends at the first request that stops.
      for (int tries = 0; tries < 24; ++tries) {
        id = EntryId(rng() % (table.tableCapacity() + 2));
        verdict = table.requestCheck(key, id);
        if (verdict.outcome() != RequestOutcome::stopsNow) break;
      }
    } else {
      verdict = table.requestCheck(key, id);
    }
    ++executed;
    if (verdict.outcome() == RequestOutcome::unchanged) {
      EXPECT_TRUE(config.configHas(key));
      EXPECT_EQ(config.config(key), id);
      continue;
    }
    if ((verdict.hazard() && !leavesRecordHazard(verdict)) || verdict.outcome() == RequestOutcome::stopsLater) {
      continue;
    }
    const HazardCounts before = HazardCounts::of(table);
    deaf([&] { config.configIs(key, id); });
    std::ostringstream what;
    what << "set " << key << " " << id;
    if (!holds(verdict, stopOf([&] { table.handleHashUpdate(key); }), table, what.str())) return executed;
    holdsHazards(verdict, before, table, what.str());
    EXPECT_TRUE(status.statusHas(key)) << what.str();
    if (verdict.publishes()) {
      EXPECT_EQ(status.status(key), *verdict.publishes()) << what.str() << ": " << verdict.text();
    }
  }
  return executed;
}

}  // namespace TesselCentral::test
