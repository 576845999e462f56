// The configuration check's problems and their text, and the rules that both tables'
// checks share: the table's figures and a bank's selection of buckets.
#include "ConfigurationCheck.h"

#include <algorithm>
#include <ostream>
#include <sstream>

#include "Bank.h"
#include "fwk/Error.h"
#include "internal/ConditionTexts.h"

namespace TesselCentral {

std::string_view ruleName(ConfigurationRule rule) noexcept {
  switch (rule) {
    case ConfigurationRule::noBanks:
      return "noBanks";
    case ConfigurationRule::noSlots:
      return "noSlots";
    case ConfigurationRule::capacityPastIds:
      return "capacityPastIds";
    case ConfigurationRule::tooManyBanks:
      return "tooManyBanks";
    case ConfigurationRule::tooManyBuckets:
      return "tooManyBuckets";
    case ConfigurationRule::missingBank:
      return "missingBank";
    case ConfigurationRule::missingEntryIdHelper:
      return "missingEntryIdHelper";
    case ConfigurationRule::bucketsDisagree:
      return "bucketsDisagree";
    case ConfigurationRule::slotsDisagree:
      return "slotsDisagree";
    case ConfigurationRule::unsupportedBucketSize:
      return "unsupportedBucketSize";
    case ConfigurationRule::wideBaseType:
      return "wideBaseType";
    case ConfigurationRule::hashSelectsNoBucket:
      return "hashSelectsNoBucket";
    case ConfigurationRule::hashSelectsOneBucket:
      return "hashSelectsOneBucket";
    case ConfigurationRule::hashWindowPastWidth:
      return "hashWindowPastWidth";
    case ConfigurationRule::maskPastBuckets:
      return "maskPastBuckets";
    case ConfigurationRule::maskShortOfBuckets:
      return "maskShortOfBuckets";
    case ConfigurationRule::groupPastBank:
      return "groupPastBank";
    case ConfigurationRule::sharedPhysicalBank:
      return "sharedPhysicalBank";
  }
  return "unknown";
}

std::string_view consequenceName(ConfigurationConsequence consequence) noexcept {
  switch (consequence) {
    case ConfigurationConsequence::losesRoom:
      return "keys get less room than the shape promises";
    case ConfigurationConsequence::corrupts:
      return "corrupts the table";
    case ConfigurationConsequence::publishesOutside:
      return "publishes an id outside the table";
    case ConfigurationConsequence::stopsLater:
      return "a later placement stops the agent";
    case ConfigurationConsequence::stopsNow:
      return "the first placement stops the agent";
  }
  return "corrupts the table";
}

std::string ConfigurationProblem::text() const {
  std::string s;
  if (bank) s += "bank " + std::to_string(*bank) + ": ";
  s += reason;
  s += ": ";
  s += consequenceName(consequence);
  if (!condition.empty()) s += " on the assertion \"" + condition + "\"";
  return s;
}

bool ConfigurationCheck::has(ConfigurationRule rule) const noexcept {
  return std::any_of(problems_.begin(), problems_.end(), [rule](const auto& p) { return p.rule == rule; });
}

const ConfigurationProblem* ConfigurationCheck::worst() const noexcept {
  const ConfigurationProblem* worst = nullptr;
  for (const ConfigurationProblem& p : problems_) {
    if (worst == nullptr || p.consequence > worst->consequence) worst = &p;
  }
  return worst;
}

std::string ConfigurationCheck::text() const {
  std::string s;
  for (const ConfigurationProblem& p : problems_) {
    if (!s.empty()) s += '\n';
    s += p.text();
  }
  return s;
}

RequestCheck ConfigurationCheck::requestVerdict() const {
  const ConfigurationProblem* p = worst();
  if (p == nullptr) return RequestCheck::accepted();
  std::string reason = "the table's configuration cannot serve it: " + p->text();
  if (problems_.size() > 1) reason += " (and " + std::to_string(problems_.size() - 1) + " more)";
  switch (p->consequence) {
    case ConfigurationConsequence::stopsNow:
      return RequestCheck::stopsNow(p->condition, std::move(reason));
    case ConfigurationConsequence::stopsLater:
      return RequestCheck::stopsLater(p->condition, std::move(reason));
    case ConfigurationConsequence::corrupts:
    case ConfigurationConsequence::publishesOutside:
      return RequestCheck::hazardous(std::move(reason));
    case ConfigurationConsequence::losesRoom:
      break;
  }
  return RequestCheck::unserved(std::move(reason));
}

ConfigurationCheck ConfigurationCheck::fromText(std::string_view text) {
  throw Fwk::SyntaxError("nothing: a configuration check is an answer of the table", text, 0);
}

std::ostream& operator<<(std::ostream& os, const ConfigurationCheck& check) {
  return os << (check.passes() ? std::string("passes") : check.text());
}

namespace detail {

namespace {

std::string hex(U32 value) {
  std::ostringstream os;
  os << "0x" << std::hex << value;
  return os.str();
}

// The hash function's own window: bits beyond the hash's width are always 0.
void checkHashWindow(const Bank& bank, ConfigurationCheck& check) {
  const auto add = [&](std::string reason) {
    check.add({ConfigurationRule::hashWindowPastWidth,
               ConfigurationConsequence::losesRoom,
               bank.bankId(),
               {},
               std::move(reason)});
  };
  switch (bank.hashFunc()) {
    case HashFunc::hashCrc32Upper:
      if (bank.hashBits() > 32) add("hashBits " + std::to_string(bank.hashBits()) + " is past crc32's 32 bits");
      return;
    case HashFunc::hashCrc16Upper:
      if (bank.hashBits() > 16) add("hashBits " + std::to_string(bank.hashBits()) + " is past crc16's 16 bits");
      return;
    case HashFunc::hashCrc64:
    case HashFunc::hashCrc32And16:
      if (bank.hashOffSet() > 63) {
        add("hashOffSet " + std::to_string(bank.hashOffSet()) +
            " is past the 64-bit hash word (the shift is taken modulo 64)");
      }
      return;
    default:
      return;
  }
}

}  // namespace

void checkBankSelection(const Bank& bank, U32 bucketsLaidOut, ConfigurationConsequence pastEnd,
                        ConfigurationCheck& check) {
  const U32 id = bank.bankId();
  if (!bank.selectsBuckets()) {
    check.add({ConfigurationRule::hashSelectsNoBucket, ConfigurationConsequence::stopsLater, id,
               condition::bankSelectsNoBucket, "hash function hashLsb selects no bucket"});
    return;
  }
  checkHashWindow(bank, check);
  const U32 window = bank.hashWindowBits();
  if (window == 0) {
    check.add({ConfigurationRule::hashSelectsOneBucket,
               ConfigurationConsequence::losesRoom,
               id,
               {},
               "hash function " + stringValue(bank.hashFunc()) + " with hashBits " + std::to_string(bank.hashBits()) +
                   " and hashOffSet " + std::to_string(bank.hashOffSet()) + " gives every key bucket 0"});
    return;
  }
  const U32 highest = bank.highestSelectableBucket();
  if (window < 32 && (bank.hashMask() >> window) != 0) {
    check.add({ConfigurationRule::hashWindowPastWidth,
               ConfigurationConsequence::losesRoom,
               id,
               {},
               "hashMask " + hex(bank.hashMask()) + " takes bits past the " + std::to_string(window) + " bits that " +
                   stringValue(bank.hashFunc()) + " sets: no key selects a bucket above " + std::to_string(highest)});
  }
  if (highest >= bucketsLaidOut) {
    check.add({ConfigurationRule::maskPastBuckets,
               pastEnd,
               id,
               {},
               "hashMask " + hex(bank.hashMask()) + " selects buckets up to " + std::to_string(highest) +
                   ", past the bank's " + std::to_string(bucketsLaidOut) + " buckets"});
  } else if (highest + 1 < bank.numBuckets() && highest + 1 < bucketsLaidOut) {
    check.add({ConfigurationRule::maskShortOfBuckets,
               ConfigurationConsequence::losesRoom,
               id,
               {},
               "hashMask " + hex(bank.hashMask()) + " never selects buckets above " + std::to_string(highest) +
                   " of the bank's " + std::to_string(bank.numBuckets())});
  }
}

void checkTableFigures(U32 numBanks, U32 numBuckets, U32 numBucketEntries, ConfigurationCheck& check) {
  if (numBanks == 0) {
    check.add({ConfigurationRule::noBanks,
               ConfigurationConsequence::losesRoom,
               std::nullopt,
               {},
               "numBanks is 0: every key gets no room"});
  }
  if (numBuckets == 0 || numBucketEntries == 0) {
    check.add({ConfigurationRule::noSlots,
               ConfigurationConsequence::losesRoom,
               std::nullopt,
               {},
               "numBuckets " + std::to_string(numBuckets) + " and numBucketEntries " +
                   std::to_string(numBucketEntries) + " leave the table no slot"});
  }
  if (U64{numBanks} * numBuckets * numBucketEntries > U64{0xFFFFFFFF}) {
    check.add({ConfigurationRule::capacityPastIds,
               ConfigurationConsequence::corrupts,
               std::nullopt,
               {},
               "numBanks * numBuckets * numBucketEntries is past the 32 bits of an EntryId: ids wrap onto each "
               "other"});
  }
}

}  // namespace detail

}  // namespace TesselCentral
