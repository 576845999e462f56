// The configuration check's problems and their text, and the rules that both tables'
// checks share: the table's figures and a bank's selection of buckets.
#include "MultiHashTable/ConfigurationCheck.h"

#include <algorithm>
#include <bit>
#include <ostream>
#include <sstream>

#include "MultiHashTable/Bank.h"
#include "MultiHashTable/fwk/Error.h"
#include "MultiHashTable/internal/ConditionTexts.h"

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

// What a hashBits or hashOffSet past the hash function's width does: its shift wraps, and
// the window it leaves is another than the figure names. Empty when the figure is inside
// the width.
std::string wrapNote(const Bank& bank) {
  switch (bank.hashFunc()) {
    case HashFunc::hashCrc32Upper:
      if (bank.hashBits() > 32) return "hashBits " + std::to_string(bank.hashBits()) + " is past crc32's 32 bits";
      break;
    case HashFunc::hashCrc16Upper:
      if (bank.hashBits() > 16) return "hashBits " + std::to_string(bank.hashBits()) + " is past crc16's 16 bits";
      break;
    case HashFunc::hashCrc64:
    case HashFunc::hashCrc32And16:
      if (bank.hashOffSet() > 63) {
        return "hashOffSet " + std::to_string(bank.hashOffSet()) +
               " is past the 64-bit hash word (the shift is taken modulo 64)";
      }
      break;
    default:
      break;
  }
  return {};
}

// The bits that the indices of buckets 0 .. buckets - 1 set.
U32 bitsOfBucketsBelow(U32 buckets) noexcept {
  if (buckets <= 1) return 0;
  const auto width = static_cast<U32>(std::bit_width(buckets - 1));
  return width >= 32 ? ~U32{0} : (U32{1} << width) - 1;
}

}  // namespace

void checkBankSelection(const Bank& bank, U32 bucketsLaidOut, bool reachedFirst, ConfigurationConsequence pastEnd,
                        ConfigurationCheck& check) {
  const U32 id = bank.bankId();
  if (!bank.selectsBuckets()) {
    check.add({ConfigurationRule::hashSelectsNoBucket,
               reachedFirst ? ConfigurationConsequence::stopsNow : ConfigurationConsequence::stopsLater, id,
               condition::bankSelectsNoBucket, "hash function hashLsb selects no bucket"});
    return;
  }
  const U32 window = bank.hashWindowBits();
  // A key selects a bucket whose bits are among these, and every such bucket.
  const U32 highest = bank.highestSelectableBucket();
  // The buckets that the bank's keys should get: the bank's, whose ids the table lays out.
  const U32 served = std::min(bank.numBuckets(), bucketsLaidOut);
  if (const U32 missing = bitsOfBucketsBelow(served) & ~highest; missing != 0) {
    const std::string note = wrapNote(bank);
    const std::string wrapped = note.empty() ? std::string() : " (" + note + ")";
    const std::string buckets =
        " of the " + std::string(served == bank.numBuckets() ? "bank's " : "table's ") + std::to_string(served);
    if (window == 0) {
      check.add({ConfigurationRule::hashSelectsOneBucket,
                 ConfigurationConsequence::losesRoom,
                 id,
                 {},
                 "hash function " + stringValue(bank.hashFunc()) + " with hashBits " + std::to_string(bank.hashBits()) +
                     " and hashOffSet " + std::to_string(bank.hashOffSet()) + " gives every key bucket 0" + wrapped});
    } else if ((missing & bank.hashMask()) != 0) {
      // The mask takes the bits, but the hash function does not set them.
      check.add({ConfigurationRule::hashWindowPastWidth,
                 ConfigurationConsequence::losesRoom,
                 id,
                 {},
                 "hashMask " + hex(bank.hashMask()) + " takes bits past the " + std::to_string(window) + " bits that " +
                     stringValue(bank.hashFunc()) + " sets" + wrapped + ": no key selects a bucket above " +
                     std::to_string(highest)});
    } else if ((highest & (highest + 1)) == 0) {
      check.add(
          {ConfigurationRule::maskShortOfBuckets,
           ConfigurationConsequence::losesRoom,
           id,
           {},
           "hashMask " + hex(bank.hashMask()) + " never selects buckets above " + std::to_string(highest) + buckets});
    } else {
      // A mask with a clear bit below its highest: the buckets that need the bit are never selected.
      const U32 bit = missing & (~missing + 1);
      check.add({ConfigurationRule::maskShortOfBuckets,
                 ConfigurationConsequence::losesRoom,
                 id,
                 {},
                 "hashMask " + hex(bank.hashMask()) + " never selects bucket " + std::to_string(bit) + buckets +
                     ", nor any other whose index has bit " + std::to_string(std::countr_zero(bit)) + " set"});
    }
  }
  if (highest >= bucketsLaidOut) {
    check.add({ConfigurationRule::maskPastBuckets,
               pastEnd,
               id,
               {},
               "hashMask " + hex(bank.hashMask()) + " selects buckets up to " + std::to_string(highest) +
                   ", past the bank's " + std::to_string(bucketsLaidOut) + " buckets"});
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
