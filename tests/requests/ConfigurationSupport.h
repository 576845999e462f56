// Shared set-up of the configuration tests: tables of either kind whose every bank
// argument a test may change before the banks are made, and a short form of the problems
// a configuration check reports.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"

namespace TesselCentral {

// Readable failure messages for the rule and the consequence (found by argument lookup).
inline void PrintTo(ConfigurationRule rule, std::ostream* os) { *os << ruleName(rule); }
inline void PrintTo(ConfigurationConsequence c, std::ostream* os) { *os << consequenceName(c); }

}  // namespace TesselCentral

namespace TesselCentral::test {

// The consequence's own name, for the short form of a problem.
inline std::string consequenceTag(ConfigurationConsequence c) {
  switch (c) {
    case ConfigurationConsequence::losesRoom:
      return "losesRoom";
    case ConfigurationConsequence::corrupts:
      return "corrupts";
    case ConfigurationConsequence::publishesOutside:
      return "publishesOutside";
    case ConfigurationConsequence::stopsLater:
      return "stopsLater";
    case ConfigurationConsequence::stopsNow:
      return "stopsNow";
  }
  return "?";
}

// "maskPastBuckets corrupts bank 1": rule, consequence and bank of one problem.
inline std::string shortForm(const ConfigurationProblem& p) {
  std::string s = std::string(ruleName(p.rule)) + " " + consequenceTag(p.consequence);
  if (p.bank) s += " bank " + std::to_string(*p.bank);
  return s;
}

// The short forms of every problem of a check, in the order reported.
inline std::vector<std::string> shortForms(const ConfigurationCheck& check) {
  std::vector<std::string> out;
  for (const ConfigurationProblem& p : check.problems()) out.push_back(shortForm(p));
  return out;
}

// The first problem of a rule (and bank, when given); null when there is none.
inline const ConfigurationProblem* problemOf(const ConfigurationCheck& check, ConfigurationRule rule,
                                             std::optional<U32> bank = std::nullopt) {
  for (const ConfigurationProblem& p : check.problems()) {
    if (p.rule == rule && (!bank || p.bank == bank)) return &p;
  }
  return nullptr;
}

// One single-width bank's arguments to MultiHashTable::bankIs; `present` false leaves
// the bank out.
struct SingleBank {
  HashEntryType base = HashEntryType::singleWide;
  U32 numBuckets = 0;
  U32 bucketSize = 0;
  HashFunc hashFunc = HashFunc::hashCrc32Lower;
  U32 hashOffSet = 0;
  U32 hashBits = 0;
  U32 hashMask = 0;
  bool present = true;
};

// A single-width table whose banks are made by build(): by default every bank has the
// table's figures and a mask of numBuckets - 1, even banks hashing the low bits of crc32
// and odd banks those of crc16.
struct SingleTable {
  SingleTable(U32 numBanks_, U32 numBuckets_, U32 numBucketEntries_, bool bucketSpanBanks_ = false, U32 steps_ = 2)
      : numBanks(numBanks_),
        numBuckets(numBuckets_),
        numBucketEntries(numBucketEntries_),
        bucketSpanBanks(bucketSpanBanks_),
        steps(steps_) {
    for (U32 b = 0; b < numBanks; ++b) {
      SingleBank bank;
      bank.numBuckets = numBuckets;
      bank.bucketSize = numBucketEntries;
      bank.hashFunc = b % 2 == 0 ? HashFunc::hashCrc32Lower : HashFunc::hashCrc16Lower;
      bank.hashMask = numBuckets == 0 ? 0 : numBuckets - 1;
      banks.push_back(bank);
    }
  }

  SingleTable& build() {
    table = multiHashTableFactory(numBanks, numBuckets, numBucketEntries, config, status, steps, bucketSpanBanks);
    for (U32 b = 0; b < banks.size(); ++b) {
      const SingleBank& a = banks[b];
      if (!a.present) continue;
      table->bankIs(a.base, b, a.numBuckets, a.bucketSize, a.hashFunc, a.hashOffSet, a.hashBits, a.hashMask);
    }
    return *this;
  }

  ConfigurationCheck check() const { return table->configurationCheck(); }

  U32 numBanks;
  U32 numBuckets;
  U32 numBucketEntries;
  bool bucketSpanBanks;
  U32 steps;
  std::vector<SingleBank> banks;
  Ptr<HashEntryConfig> config = hashEntryConfigFactory();
  Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  Ptr<MultiHashTable> table;
};

// One multi-width bank's arguments to MultiEntryTypeHashTable::bankIs.
struct MultiBank {
  HashEntryType base = HashEntryType::singleWide;
  U32 numBuckets = 0;
  U32 bucketSize = 0;
  HashFunc hashFunc = HashFunc::hashCrc32Lower;
  U32 hashOffSet = 0;
  U32 hashBits = 0;
  U32 hashMask = 0;
  U32 phyBankId = 0;
  bool twoBucketMode = false;
  bool present = true;
};

// Whose EntryIdHelper a multi-width table gets.
enum class HelperOf { own, none, another };

// A multi-width table whose banks and helper are made by build(): by default every bank
// has the table's figures, a mask of numBuckets - 1 and physical bank bankId + 1, even
// banks hashing the low bits of crc32 and odd banks those of crc16.
struct MultiTable {
  MultiTable(U32 numBanks_, U32 numBuckets_, U32 numBucketEntries_, U32 steps_ = 2)
      : numBanks(numBanks_), numBuckets(numBuckets_), numBucketEntries(numBucketEntries_), steps(steps_) {
    for (U32 b = 0; b < numBanks; ++b) {
      MultiBank bank;
      bank.numBuckets = numBuckets;
      bank.bucketSize = numBucketEntries;
      bank.hashFunc = b % 2 == 0 ? HashFunc::hashCrc32Lower : HashFunc::hashCrc16Lower;
      bank.hashMask = numBuckets == 0 ? 0 : numBuckets - 1;
      bank.phyBankId = b + 1;
      banks.push_back(bank);
    }
  }
  ~MultiTable() {
    // The table and its helper hold each other.
    if (table) table->entryIdHelperIs(nullptr);
    if (another) another->entryIdHelperIs(nullptr);
  }
  MultiTable(const MultiTable&) = delete;
  MultiTable& operator=(const MultiTable&) = delete;

  MultiTable& build() {
    table = multiEntryTypeHashTableFactory(numBanks, numBuckets, numBucketEntries, config, status, steps);
    addBanks(*table);
    if (helper == HelperOf::own) table->entryIdHelperIs(entryIdHelperFactory(table));
    if (helper == HelperOf::another) {
      // A twin of the table, with the same banks: the helper translates its ids.
      another = multiEntryTypeHashTableFactory(numBanks, numBuckets, numBucketEntries, hashEntryConfigFactory(),
                                               hashEntryStatusFactory(), steps);
      addBanks(*another);
      table->entryIdHelperIs(entryIdHelperFactory(another));
    }
    return *this;
  }

  void addBanks(MultiEntryTypeHashTable& into) const {
    for (U32 b = 0; b < banks.size(); ++b) {
      const MultiBank& a = banks[b];
      if (!a.present) continue;
      into.bankIs(a.base, b, a.numBuckets, a.bucketSize, a.hashFunc, a.hashOffSet, a.hashBits, a.hashMask, a.phyBankId,
                  a.twoBucketMode);
    }
  }

  ConfigurationCheck check() const { return table->configurationCheck(); }

  U32 numBanks;
  U32 numBuckets;
  U32 numBucketEntries;
  U32 steps;
  std::vector<MultiBank> banks;
  HelperOf helper = HelperOf::own;
  Ptr<HashEntryConfig> config = hashEntryConfigFactory();
  Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  Ptr<MultiEntryTypeHashTable> table;
  Ptr<MultiEntryTypeHashTable> another;
};

}  // namespace TesselCentral::test
