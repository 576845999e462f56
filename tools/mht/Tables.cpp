#include "Tables.h"

#include <algorithm>
#include <bit>
#include <ostream>
#include <sstream>

namespace mht {

using namespace TesselCentral;

std::optional<ShapeProblem> simulationShapeProblem(U64 numBanks, U64 numBuckets, U64 numBucketEntries) {
  using Figure = ShapeProblem::Figure;
  if (numBanks > 256) return ShapeProblem{Figure::banks, std::to_string(numBanks) + " banks is above 256"};
  if (numBuckets > (1u << 20) || !std::has_single_bit(numBuckets)) {
    return ShapeProblem{Figure::buckets, std::to_string(numBuckets) + " buckets is not a power of two up to 1048576"};
  }
  if (numBucketEntries > 16)
    return ShapeProblem{Figure::slots, std::to_string(numBucketEntries) + " slots is above 16"};
  return std::nullopt;
}

std::optional<ShapeProblem> simulationShapeProblem(const TableSpec& table) {
  return simulationShapeProblem(table.numBanks, table.numBuckets, table.numBucketEntries);
}

std::string configurationRefusal(const ConfigurationCheck& check) {
  const std::vector<ConfigurationProblem>& problems = check.problems();
  if (problems.size() == 1) return "the table cannot serve its requests: " + problems.front().text();
  std::string text = "the table cannot serve its requests (" + std::to_string(problems.size()) + " problems):";
  for (const ConfigurationProblem& p : problems) text += "\n  " + p.text();
  return text;
}

ConfigurationRefused::ConfigurationRefused(ConfigurationCheck check, const std::string& context)
    : std::runtime_error((context.empty() ? std::string() : context + ": ") + configurationRefusal(check)),
      check_(std::move(check)) {}

std::string keyFields(const HashEntryKey& key) {
  std::ostringstream os;
  os << key.crc16() << ' ' << key.crc32() << ' ' << key.fapId() << ' ' << stringValue(key.entryType());
  return os.str();
}

TableSession::TableSession(const TableSpec& shape)
    : spec_(shape), config_(hashEntryConfigFactory()), status_(hashEntryStatusFactory()) {
  if (shape.kind == TableKind::single) {
    single_ = multiHashTableFactory(shape.numBanks, shape.numBuckets, shape.numBucketEntries, config_, status_,
                                    shape.maxRecursiveSteps, shape.bucketSpanBanks);
    base_ = single_.ptr();
    base_->moveSearchIs(shape.moveSearch);
  } else {
    multi_ = multiEntryTypeHashTableFactory(shape.numBanks, shape.numBuckets, shape.numBucketEntries, config_, status_,
                                            shape.maxRecursiveSteps);
    base_ = multi_.ptr();
    // A search the table refuses throws here, before the helper: the table <-> helper cycle,
    // which only the destructor breaks, does not exist yet, so nothing is left behind.
    base_->moveSearchIs(shape.moveSearch);
    multi_->entryIdHelperIs(entryIdHelperFactory(multi_));
  }
}

TableSession::~TableSession() {
  if (multi_) multi_->entryIdHelperIs(nullptr);
}

void TableSession::bankIs(const BankSpec& b) {
  if (single_) {
    single_->bankIs(b.baseEntryType, b.bankId, b.numBuckets, b.bucketSize, b.hashFunc, b.hashOffSet, b.hashBits,
                    b.hashMask);
  } else {
    multi_->bankIs(b.baseEntryType, b.bankId, b.numBuckets, b.bucketSize, b.hashFunc, b.hashOffSet, b.hashBits,
                   b.hashMask, b.phyBankId, b.doubleEntryTwoBucketMode);
  }
}

void TableSession::requireConfiguration(const std::string& context) const {
  ConfigurationCheck check = configurationCheck();
  if (!check.passes()) throw ConfigurationRefused(std::move(check), context);
}

U32 TableSession::widthOf(const HashEntryKey& key) const noexcept {
  return multi_ ? static_cast<U32>(key.entryType()) : 1;
}

void TableSession::dump(std::ostream& out) const {
  out << "counters insertions=" << base_->numInsertions() << " deletions=" << base_->numDeletions()
      << " moves=" << base_->numMoves() << '\n';

  std::vector<std::pair<HashEntryKey, EntryId>> status;
  for (const auto& [key, id] : status_->statusCollection()) status.emplace_back(key, id);
  std::sort(status.begin(), status.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& [key, id] : status) {
    out << "status " << keyFields(key) << ' ' << (id.isValid() ? std::to_string(id.value()) : "invalid") << '\n';
  }

  std::vector<std::pair<EntryId, HashEntryKey>> entries;
  for (const auto& [id, key] : base_->hashTableEntryCollection()) entries.emplace_back(id, key);
  std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& [id, key] : entries) {
    out << "entry " << (id.isValid() ? std::to_string(id.value()) : "invalid") << ' ' << keyFields(key) << '\n';
  }

  if (multi_) {
    std::vector<std::tuple<U32, U32, U64>> buckets;
    for (const auto& [bankId, bank] : multi_->bankCollection()) {
      for (const auto& [bucket, state] : bank->bucketCollection()) buckets.emplace_back(bankId, bucket, state);
    }
    std::sort(buckets.begin(), buckets.end());
    for (const auto& [bankId, bucket, state] : buckets) {
      out << "bucket " << bankId << ' ' << bucket << " 0x" << std::hex << state << std::dec << '\n';
    }
  }
}

void TableSession::explainSingle(const HashEntryKey& key, std::ostream& out) const {
  // The key's candidates come bank by bank, the slots of one bucket in each: one line per bucket.
  const CandidateList places = single_->candidates(key);
  if (places.empty() && single_->numBucketEntries() == 0) {
    // Buckets of no slots offer no candidate; each bank still shows the bucket it selects.
    for (U32 b = 0; b < single_->numBanks(); ++b) {
      if (const Ptr<Bank> bank = single_->bank(b)) {
        out << "  bank " << b << " bucket " << bank->bucketIdOf(key.crc16(), key.crc32(), false, 0) << ":\n";
      }
    }
    return;
  }
  for (auto place = places.begin(); place != places.end();) {
    const U32 bank = place->bank;
    const U32 bucket = place->bucket;
    out << "  bank " << bank << " bucket " << bucket << ':';
    for (; place != places.end() && place->bank == bank && place->bucket == bucket; ++place) {
      const HashEntryKey* held = single_->hashTableEntryFind(place->id);
      out << " [" << place->id << ' ' << (held ? keyFields(*held) : std::string("free")) << ']';
    }
    out << '\n';
  }
}

void TableSession::explain(const HashEntryKey& key, std::ostream& out) const {
  out << "explain " << keyFields(key) << '\n';
  if (single_) {
    explainSingle(key, out);
    return;
  }
  for (U32 b = 0; b < spec_.numBanks; ++b) {
    Ptr<MultiEntryTypeBank> bank = multi_->bank(b);
    if (!bank) continue;
    if (static_cast<U32>(key.entryType()) < static_cast<U32>(bank->baseEntryType())) {
      out << "  bank " << b << ": entryType narrower than the bank's " << stringValue(bank->baseEntryType()) << '\n';
      continue;
    }
    // The whole group, as the bank computes it: the key's candidates name only the buckets
    // that hold a run of its width, and bucket 0 of physical bank 0 holds none for a key as
    // wide as the bucket (its first run is never handed out), yet it is part of the group.
    const U32 first = bank->calcBucketId(key.crc16(), key.crc32(), key.entryType(), multi_->debugEnabled(), 0);
    const U32 count = bank->numBucketsToCheck(key.entryType());
    for (U32 k = first; k < first + count; ++k) {
      out << "  bank " << b << " bucket " << k << " state 0x" << std::hex << bank->bucket(k) << std::dec << ':';
      if (bank->lockedBucketsHas(k)) out << " locked";
      for (U32 s = 0; s < bank->bucketSize() && s < 16; ++s) {
        const U32 pos = packPosition(b, k, s);
        if (multi_->posToKeyHas(pos)) out << " [slot " << s << ' ' << keyFields(multi_->posToKey(pos)) << ']';
      }
      out << '\n';
    }
  }
}

}  // namespace mht
