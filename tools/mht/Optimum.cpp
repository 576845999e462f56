#include "Optimum.h"

#include <boost/graph/compressed_sparse_row_graph.hpp>
#include <boost/graph/push_relabel_max_flow.hpp>
#include <stdexcept>

namespace mht {

using namespace TesselCentral;

namespace {

// The keys' candidate buckets in a single-width table: those of the key's candidates, read
// from a table of the banks built for the purpose. Buckets are numbered one bank after
// another, in the order the banks are given.
void singleWidthCandidates(const TableSpec& table, const std::vector<BankSpec>& banks,
                           const std::vector<HashEntryKey>& keys, PlacementProblem& problem) {
  std::vector<U32> firstOf;
  std::vector<U32> bucketsOf;
  for (const BankSpec& b : banks) {
    if (b.bankId >= firstOf.size()) {
      firstOf.resize(b.bankId + 1, 0);
      bucketsOf.resize(b.bankId + 1, 0);
    }
    firstOf[b.bankId] = static_cast<U32>(problem.bucketSlots.size());
    bucketsOf[b.bankId] = b.numBuckets;
    // A single-width table gives every bank's buckets the table's slots per bucket.
    problem.bucketSlots.insert(problem.bucketSlots.end(), b.numBuckets, table.numBucketEntries);
  }
  const Ptr<HashEntryConfig> config = hashEntryConfigFactory();
  const Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  const Ptr<MultiHashTable> candidateTable =
      multiHashTableFactory(table.numBanks, table.numBuckets, table.numBucketEntries, config, status,
                            table.maxRecursiveSteps, table.bucketSpanBanks);
  for (const BankSpec& b : banks) {
    candidateTable->bankIs(b.baseEntryType, b.bankId, b.numBuckets, b.bucketSize, b.hashFunc, b.hashOffSet, b.hashBits,
                           b.hashMask);
  }
  for (std::size_t k = 0; k < keys.size(); ++k) {
    // The slots of one bucket come one after another: each bucket once.
    bool any = false;
    U32 lastBank = 0;
    U32 lastBucket = 0;
    for (const Candidate& place : candidateTable->candidates(keys[k])) {
      if (any && place.bank == lastBank && place.bucket == lastBucket) continue;
      any = true;
      lastBank = place.bank;
      lastBucket = place.bucket;
      if (place.bank < firstOf.size() && place.bucket < bucketsOf[place.bank]) {
        problem.candidates[k].push_back(firstOf[place.bank] + place.bucket);
      }
    }
  }
}

// The keys' candidate buckets in a multi-width table: in every bank the buckets of the key's
// group. Not the buckets of the table's candidates: those are the buckets that hold an
// aligned run of the key's width, and the bound ignores alignment. A key wider than a
// bank's buckets has no run there but its group's slots still count, and bucket 0 of
// physical bank 0, whose first run is never handed out, has no run for a key as wide as
// the bucket but its other slots count too.
void multiWidthCandidates(const std::vector<BankSpec>& banks, const std::vector<HashEntryKey>& keys,
                          PlacementProblem& problem) {
  for (const BankSpec& b : banks) {
    const auto first = static_cast<U32>(problem.bucketSlots.size());
    // A multi-width bank's slots are as wide as its base entry type.
    problem.bucketSlots.insert(problem.bucketSlots.end(), b.numBuckets,
                               b.bucketSize * static_cast<U32>(b.baseEntryType));
    const Ptr<MultiEntryTypeBank> bank =
        multiEntryTypeBankFactory(b.baseEntryType, b.bankId, b.numBuckets, b.bucketSize, b.hashFunc, b.hashOffSet,
                                  b.hashBits, b.hashMask, b.phyBankId, b.doubleEntryTwoBucketMode);
    for (std::size_t k = 0; k < keys.size(); ++k) {
      const HashEntryType type = keys[k].entryType();
      const U32* count = bank->numBucketsToCheckFind(type);
      if (count == nullptr || static_cast<U32>(type) < static_cast<U32>(b.baseEntryType)) continue;
      const U32 start = bank->groupStart(bank->bucketIdOf(keys[k].crc16(), keys[k].crc32(), false, 0), type);
      for (U32 bucket = start; bucket < start + *count && bucket < b.numBuckets; ++bucket) {
        problem.candidates[k].push_back(first + bucket);
      }
    }
  }
}

}  // namespace

PlacementProblem placementProblem(const TableSpec& table, const std::vector<BankSpec>& banks,
                                  const std::vector<HashEntryKey>& keys) {
  PlacementProblem problem;
  problem.candidates.resize(keys.size());
  problem.demand.resize(keys.size());
  for (std::size_t k = 0; k < keys.size(); ++k) {
    problem.demand[k] = table.kind == TableKind::single ? 1 : static_cast<U32>(keys[k].entryType());
  }
  if (table.kind == TableKind::single) {
    singleWidthCandidates(table, banks, keys, problem);
  } else {
    multiWidthCandidates(banks, keys, problem);
  }
  return problem;
}

namespace {

// The network as a compressed sparse row graph: every arc with its reverse, the arcs of a
// vertex side by side.
using Edge = boost::detail::csr_edge_descriptor<std::size_t, std::size_t>;
struct Arc {
  long capacity = 0;
  long residual = 0;
  Edge reverse;
  std::size_t id = 0;  // the arc's place in the order the network was built
};
using Graph = boost::compressed_sparse_row_graph<boost::directedS, boost::no_property, Arc>;

}  // namespace

// Vertices: the source, the sink, one per key, one per bucket.
struct PrefixPlacement::Network {
  Graph graph;
  std::vector<Edge> fromSource;  // per key
  std::size_t source = 0;
  std::size_t sink = 1;
};

PrefixPlacement::PrefixPlacement(const PlacementProblem& problem) : network_(std::make_unique<Network>()) {
  const std::size_t keys = problem.candidates.size();
  const std::size_t firstBucket = 2 + keys;
  std::vector<std::pair<std::size_t, std::size_t>> ends;
  std::vector<Arc> arcs;
  // Arc 2i runs forward with its capacity, arc 2i + 1 back with none.
  const auto arc = [&](std::size_t from, std::size_t to, long capacity) {
    ends.emplace_back(from, to);
    arcs.push_back(Arc{capacity, 0, Edge(), arcs.size()});
    ends.emplace_back(to, from);
    arcs.push_back(Arc{0, 0, Edge(), arcs.size()});
  };
  demandBefore_.assign(1, 0);
  for (std::size_t k = 0; k < keys; ++k) {
    arc(network_->source, 2 + k, 0);
    for (const U32 bucket : problem.candidates[k]) arc(2 + k, firstBucket + bucket, problem.demand[k]);
    demandBefore_.push_back(demandBefore_.back() + problem.demand[k]);
  }
  for (std::size_t b = 0; b < problem.bucketSlots.size(); ++b)
    arc(firstBucket + b, network_->sink, problem.bucketSlots[b]);

  Graph& g = network_->graph;
  g = Graph(boost::edges_are_unsorted_multi_pass, ends.begin(), ends.end(), arcs.begin(),
            firstBucket + problem.bucketSlots.size());
  std::vector<Edge> byId(arcs.size());
  const auto [begin, end] = boost::edges(g);
  for (auto e = begin; e != end; ++e) byId[g[*e].id] = *e;
  for (std::size_t i = 0; i < byId.size(); ++i) g[byId[i]].reverse = byId[i ^ 1];
  std::size_t next = 0;
  network_->fromSource.reserve(keys);
  for (std::size_t k = 0; k < keys; ++k) {
    network_->fromSource.push_back(byId[next]);
    next += 2 * (1 + problem.candidates[k].size());
  }
}

PrefixPlacement::~PrefixPlacement() = default;

U64 PrefixPlacement::keys() const noexcept { return network_->fromSource.size(); }

U64 PrefixPlacement::demandOf(U64 n) const noexcept { return demandBefore_[std::min<U64>(n, keys())]; }

U64 PrefixPlacement::placedSlots(U64 n) {
  Graph& g = network_->graph;
  for (std::size_t k = 0; k < network_->fromSource.size(); ++k) {
    g[network_->fromSource[k]].capacity = k < n ? static_cast<long>(demandOf(k + 1) - demandOf(k)) : 0;
  }
  const auto capacity = boost::get(&Arc::capacity, g);
  const auto residual = boost::get(&Arc::residual, g);
  const auto reverse = boost::get(&Arc::reverse, g);
  const auto index = boost::get(boost::vertex_index, g);
  return static_cast<U64>(
      boost::push_relabel_max_flow(g, network_->source, network_->sink, capacity, residual, reverse, index));
}

U64 firstUnplaceablePrefix(PrefixPlacement& placement, U64 placeable, U64 unplaceable) {
  while (unplaceable - placeable > 1) {
    const U64 middle = placeable + (unplaceable - placeable) / 2;
    (placement.placeable(middle) ? placeable : unplaceable) = middle;
  }
  return unplaceable;
}

OptimumFigures optimumOf(const TableSpec& table, const std::vector<BankSpec>& banks,
                         const std::vector<HashEntryKey>& stream, U64 knownPlaceable) {
  const U64 capacity = U64{table.numBanks} * table.numBuckets * table.numBucketEntries;
  PrefixPlacement placement(placementProblem(table, banks, stream));
  const U64 all = placement.keys();
  const bool upperBound = table.kind != TableKind::single;
  const auto figures = [&](std::optional<U64> request, U64 slots) {
    return OptimumFigures{request, slots, capacity ? static_cast<double>(slots) / static_cast<double>(capacity) : 0,
                          upperBound};
  };
  // The whole stream's flow bounds the search: a prefix asking for more slots than the
  // flow gives all keys cannot be placed.
  const U64 most = placement.placedSlots(all);
  if (most == placement.demandOf(all)) return figures(std::nullopt, most);
  U64 unplaceable = all;
  while (unplaceable > 1 && placement.demandOf(unplaceable - 1) > most) --unplaceable;
  // Near a perfect placement the first failure is often the shortest prefix that the
  // whole stream's flow rules out; one probe tells.
  U64 first = unplaceable;
  if (unplaceable > 1 && !placement.placeable(unplaceable - 1)) {
    first = firstUnplaceablePrefix(placement, std::min(knownPlaceable, unplaceable - 2), unplaceable - 1);
  }
  return figures(first, placement.demandOf(first - 1));
}

OptimumFigures offlineOptimum(const SimulationOptions& o, U64 knownPlaceable) {
  const U64 capacity = U64{o.table.numBanks} * o.table.numBuckets * o.table.numBucketEntries;
  // Per key: the arc from the source and one per candidate bucket (a multi-width key's group
  // counts as its widest, 4 buckets); per bucket: the arc to the sink.
  const U64 perKey = 1 + U64{o.table.numBanks} * (o.table.kind == TableKind::single ? 1 : 4);
  const U64 arcs = (capacity + 1) * perKey + U64{o.table.numBanks} * o.table.numBuckets;
  if (arcs > maxOptimumArcs) {
    throw OptimumUnavailable("the flow network would have " + std::to_string(arcs) + " arcs, more than " +
                             std::to_string(maxOptimumArcs));
  }
  // The stream up to the first key whose slots, added to those of the keys before it,
  // exceed the capacity: that prefix cannot be placed, so the first failure is within.
  KeySource source = simulationKeys(o);
  std::vector<HashEntryKey> keys;
  U64 asked = 0;
  while (asked <= capacity) {
    try {
      keys.push_back(source.next());
    } catch (const std::runtime_error&) {
      break;  // the source ran out of distinct keys
    }
    asked += o.table.kind == TableKind::single ? 1 : static_cast<U32>(keys.back().entryType());
  }
  return optimumOf(o.table, o.banks, keys, knownPlaceable);
}

}  // namespace mht
