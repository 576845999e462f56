// mht simulate: drives a table through its HashEntryConfig exactly as an agent would,
// reading every result back from the status, and measures how full it gets.
//
// Fill phase: new keys, one request each, until the first key finds no room (or until a
// request count or fill target is reached). Churn phase: at that load, delete a random
// placed key and request a new one, repeatedly.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "KeySource.h"
#include "Tables.h"

namespace mht {

struct SimulationOptions {
  TableSpec table;
  std::vector<BankSpec> banks;
  KeySourceKind source = KeySourceKind::random;
  std::vector<Ipv4Prefix> prefixes;
  WidthMix mix;
  U64 seed = 1;
  std::optional<U64> requests;       // fill-phase requests; unset: until the first failure
  std::optional<double> fillTarget;  // stop filling at this fraction of the capacity
  U64 churn = 20000;                 // delete-and-add pairs after the fill phase
  bool progress = false;             // a progress bar on standard error
  bool optimum = true;               // also the offline placer's first failure (Optimum.h)
};

struct BucketCell {
  U32 slotsUsed = 0;
  U32 widthMask = 0;  // bit w set when an entry of width w covers a slot of the bucket
};

struct Sample {
  U64 request;
  double fill;
  U32 moves;
};

struct PhaseFigures {
  U64 requested = 0;
  U64 placed = 0;
  U64 failed = 0;
  U64 moves = 0;
  double seconds = 0;
};

// The phase's requests per second; 0 for a phase too short to time.
double perSecond(const PhaseFigures& phase);

// The first failure of an offline placer on the same key stream (Optimum.h).
struct OptimumFigures {
  std::optional<U64> request;  // the shortest prefix of the fill phase's keys that no placement
                               // holds whole; none when the key source ran out first
  U64 slots = 0;               // the slots of the keys before it (of all keys, when none)
  double fillRatio = 0;        // those slots over the capacity
  bool upperBound = false;     // a relaxation's figures (multi-width), not an exact optimum
};

// The request whose configIs took longest, timed around the call (the table's reaction and
// the status publication inside it).
struct SlowestRequest {
  U64 request = 0;    // numbered as the first failure is: every request of both phases, from 1
  std::string phase;  // "fill" or "churn"
  double microseconds = 0;
  TesselCentral::HashEntryKey key;
  bool placed = false;
};

struct SimulationResult {
  PhaseFigures fill;
  PhaseFigures churn;
  std::optional<double> fillAtFirstFailure;
  std::optional<U64> firstFailureRequest;
  double fillAtEnd = 0;
  U64 slotsUsed = 0;
  U64 capacity = 0;
  // Moves in one placement -> placements, as the table counted them; the last of the
  // table's counts (TableStatistics::movesHistogramSize - 1) holds that many moves or more.
  std::map<U64, U64> movesHistogram;
  U64 movesMax = 0;
  double movesMean = 0;
  std::vector<double> bankFill;
  std::vector<std::vector<BucketCell>> occupancy;  // [bank][bucket]
  std::vector<Sample> timeline;
  std::optional<SlowestRequest> slowest;  // none when no request was made
  U64 insertions = 0;
  U64 deletions = 0;
  U64 movesCounted = 0;
  std::optional<OptimumFigures> optimum;
  std::string optimumNote;  // why there is no optimum when one was asked for
};

// The banks a simulation uses unless told otherwise: bank i hashes its own window of
// log2(numBuckets) bits of the 48-bit word crc16:crc32 (hashCrc32And16), so that banks
// are independent.
std::vector<BankSpec> defaultBanks(const TableSpec& table, bool doubleEntryTwoBucketMode);

// The keys of a simulation, in the order it requests them.
KeySource simulationKeys(const SimulationOptions& options);

// Runs the simulation; then, outside its timed phases and when options.optimum is set, the
// offline placer on the same keys. Throws ConfigurationRefused, before the first request,
// for a table and banks that fail the library's configuration check.
SimulationResult simulate(const SimulationOptions& options);

// The library's configuration check on the simulation's table and banks, built as the
// simulation builds them, without a request.
TesselCentral::ConfigurationCheck simulationConfiguration(const SimulationOptions& options);

}  // namespace mht
