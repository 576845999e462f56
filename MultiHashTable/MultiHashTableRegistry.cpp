// Registers the entities of the MultiHashTable module with the framework's type registry,
// so that generic tools can create them, read their attributes and call their operations
// by name with text arguments.
#include "MultiHashTable/MultiHashTable.h"

#include "MultiHashTable/fwk/Registry.h"

namespace TesselCentral {

namespace {

using Fwk::AttrId;
using Fwk::collectionAttr;
using Fwk::constructorSet;
using Fwk::EntityType;
using Fwk::mutableAttr;

constexpr AttrId own = Fwk::firstOwnAttrId;
constexpr AttrId added = Fwk::firstAddedAttrId;

struct Types {
  const Fwk::TypeInfo* config = nullptr;
  const Fwk::TypeInfo* status = nullptr;
  const Fwk::TypeInfo* tableBase = nullptr;
  const Fwk::TypeInfo* bank = nullptr;
  const Fwk::TypeInfo* multiEntryTypeBank = nullptr;
  const Fwk::TypeInfo* singleWideTable = nullptr;
  const Fwk::TypeInfo* multiWidthTable = nullptr;
  const Fwk::TypeInfo* entryIdHelper = nullptr;
};

const std::vector<std::string> bankParameters = {"baseEntryType", "bankId",     "numBuckets", "bucketSize",
                                                 "hashFunc",      "hashOffSet", "hashBits",   "hashMask"};

std::vector<std::string> with(std::vector<std::string> a, const std::vector<std::string>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// The tables' initialized is the client's own mark: no set-up step of the table sets it.
const std::string tableInitializedNote =
    "the client's own mark, false from construction until the client sets it with initializedIs; neither banks nor "
    "placements set it, and no placement reads it";

const std::vector<std::string> tableParameters = {"numBanks",        "numBuckets",      "numBucketEntries",
                                                  "hashEntryConfig", "hashEntryStatus", "maxRecursiveSteps"};

const Fwk::TypeInfo* registerHashEntryConfig(Fwk::Module& module, [[maybe_unused]] const Types& types) {
  EntityType<HashEntryConfig> config(module, "TesselCentral::HashEntryConfig");
  config.collection<&HashEntryConfig::configCollection>(own, "config", "HashEntryKey -> EntryId", mutableAttr)
      .operation<&HashEntryConfig::configIs>(own + 1, "configIs", {"key", "id"})
      .operation<&HashEntryConfig::configDel>(own + 2, "configDel", {"key"})
      .operation<&HashEntryConfig::configDelAll>(own + 3, "configDelAll", {})
      .operation<&HashEntryConfig::configHas>(own + 4, "configHas", {"key"})
      .operation<static_cast<EntryId (HashEntryConfig::*)(const HashEntryKey&) const noexcept>(
          &HashEntryConfig::config)>(own + 5, "configOf", {"key"})
      .factory<&hashEntryConfigFactory>({});
  return &config.info();
}

const Fwk::TypeInfo* registerHashEntryStatus(Fwk::Module& module, [[maybe_unused]] const Types& types) {
  EntityType<HashEntryStatus> status(module, "TesselCentral::HashEntryStatus");
  status.collection<&HashEntryStatus::statusCollection>(own, "status", "HashEntryKey -> EntryId", mutableAttr)
      .operation<&HashEntryStatus::statusIs>(own + 1, "statusIs", {"key", "id"})
      .operation<&HashEntryStatus::statusDel>(own + 2, "statusDel", {"key"})
      .operation<&HashEntryStatus::statusDelAll>(own + 3, "statusDelAll", {})
      .operation<&HashEntryStatus::statusHas>(own + 4, "statusHas", {"key"})
      .operation<static_cast<EntryId (HashEntryStatus::*)(const HashEntryKey&) const noexcept>(
          &HashEntryStatus::status)>(own + 5, "statusOf", {"key"})
      .factory<&hashEntryStatusFactory>({});
  return &status.info();
}

const Fwk::TypeInfo* registerMultiHashTableBase(Fwk::Module& module, [[maybe_unused]] const Types& types) {
  EntityType<MultiHashTableBase> base(module, "TesselCentral::MultiHashTableBase");
  base.attribute<&MultiHashTableBase::numBanks>(own, "numBanks", constructorSet)
      .attribute<&MultiHashTableBase::numBuckets>(own + 1, "numBuckets", constructorSet)
      .attribute<&MultiHashTableBase::numBucketEntries>(own + 2, "numBucketEntries", constructorSet)
      .attribute<&MultiHashTableBase::hashEntryConfig>(own + 3, "hashEntryConfig", constructorSet)
      .attribute<&MultiHashTableBase::hashEntryStatus>(own + 4, "hashEntryStatus", constructorSet)
      .attribute<&MultiHashTableBase::maxRecursiveSteps>(own + 5, "maxRecursiveSteps", constructorSet)
      .attribute<&MultiHashTableBase::fapId>(own + 6, "fapId", mutableAttr)
      .attribute<&MultiHashTableBase::numInsertions>(own + 7, "numInsertions", mutableAttr)
      .attribute<&MultiHashTableBase::numDeletions>(own + 8, "numDeletions", mutableAttr)
      .attribute<&MultiHashTableBase::numMoves>(own + 9, "numMoves", mutableAttr)
      .collection<&MultiHashTableBase::hashTableEntryCollection>(own + 10, "hashTableEntry", "EntryId -> HashEntryKey",
                                                                 mutableAttr)
      .attribute<&MultiHashTableBase::tableCapacity>(own + 11, "tableCapacity")
      .operation<static_cast<void (MultiHashTableBase::*)()>(&MultiHashTableBase::handleHashUpdate)>(
          own + 12, "handleHashUpdate", {})
      .operation<&MultiHashTableBase::checkSanity>(own + 13, "checkSanity", {})
      .operation<&MultiHashTableBase::insertEntry>(own + 14, "insertEntry", {"key", "origBankId", "recursionStep"})
      .operation<&MultiHashTableBase::checkEntryIdValidity>(own + 15, "checkEntryIdValidity", {"key", "eId"})
      .operation<&MultiHashTableBase::insertEntryWithId>(own + 16, "insertEntryWithId", {"key", "eId"})
      .operation<&MultiHashTableBase::removeEntry>(own + 17, "removeEntry", {"key"})
      .operation<&MultiHashTableBase::hashTableEntry>(own + 18, "hashTableEntryOf", {"eId"})
      .operation<&MultiHashTableBase::requestCheck>(own + 19, "requestCheck", {"key", "id"})
      .operation<&MultiHashTableBase::requestProblem>(own + 20, "requestProblem", {"key", "id"})
      .operation<&MultiHashTableBase::removalCheck>(own + 21, "removalCheck", {"key"})
      .operation<&MultiHashTableBase::removalProblem>(own + 22, "removalProblem", {"key"})
      .operation<&MultiHashTableBase::resyncCheck>(own + 23, "resyncCheck", {})
      .operation<&MultiHashTableBase::resyncProblem>(own + 24, "resyncProblem", {})
      .operation<&MultiHashTableBase::reconcile>(own + 25, "reconcile", {})
      .attribute<&MultiHashTableBase::moveSearch>(own + 26, "moveSearch", mutableAttr)
      .operation<&MultiHashTableBase::moveSearchIs>(own + 27, "moveSearchIs", {"moveSearch"})
      .operation<&MultiHashTableBase::candidates>(own + 28, "candidates", {"key"})
      .operation<&MultiHashTableBase::configurationCheck>(own + 29, "configurationCheck", {})
      .operation<&MultiHashTableBase::configurationProblem>(own + 30, "configurationProblem", {})
      .operation<&MultiHashTableBase::auditReport>(own + 31, "auditReport", {})
      .attribute<&MultiHashTableBase::statistics>(own + 32, "statistics")
      .operation<&MultiHashTableBase::statisticsReset>(own + 33, "statisticsReset", {})
      .operation<static_cast<RestoreCheck (MultiHashTableBase::*)(Ptr<HashEntryStatus>)>(&MultiHashTableBase::restore)>(
          own + 34, "restore", {"saved"})
      .operation<static_cast<RestoreCheck (MultiHashTableBase::*)(Ptr<HashEntryStatus>) const>(
          &MultiHashTableBase::restoreCheck)>(own + 35, "restoreCheck", {"saved"})
      .factory<&multiHashTableBaseFactory>(tableParameters);
  return &base.info();
}

const Fwk::TypeInfo* registerBank(Fwk::Module& module, [[maybe_unused]] const Types& types) {
  EntityType<Bank> bank(module, "TesselCentral::Bank");
  bank.attribute<&Bank::baseEntryType>(own, "baseEntryType", constructorSet)
      .attribute<&Bank::bankId>(own + 1, "bankId", constructorSet)
      .attribute<&Bank::numBuckets>(own + 2, "numBuckets", constructorSet)
      .attribute<&Bank::bucketSize>(own + 3, "bucketSize", constructorSet)
      .attribute<&Bank::hashFunc>(own + 4, "hashFunc", constructorSet)
      .attribute<&Bank::hashOffSet>(own + 5, "hashOffSet", constructorSet)
      .attribute<&Bank::hashBits>(own + 6, "hashBits", constructorSet)
      .attribute<&Bank::hashMask>(own + 7, "hashMask", constructorSet)
      .operation<&Bank::calcBucketId>(own + 8, "calcBucketId",
                                      {"crc16", "crc32", "entryType", "debugEnabled", "debugCrcInc"})
      .factory<&bankFactory>(bankParameters);
  return &bank.info();
}

const Fwk::TypeInfo* registerMultiHashTable(Fwk::Module& module, [[maybe_unused]] const Types& types) {
  EntityType<MultiHashTable> single(module, "TesselCentral::MultiHashTable", types.tableBase);
  single.attribute<&MultiHashTable::bucketSpanBanks>(added, "bucketSpanBanks", constructorSet)
      .collection<&MultiHashTable::bankCollection>(added + 1, "bank", "U32 -> Bank", mutableAttr)
      .attribute<&MultiHashTable::initialized>(added + 2, "initialized", mutableAttr)
      .note(tableInitializedNote)
      .operation<&MultiHashTable::bankIs>(added + 3, "bankIs", bankParameters)
      .operation<&MultiHashTable::bankDel>(added + 4, "bankDel", {"bankId"})
      .operation<&MultiHashTable::calcEntryId>(added + 5, "calcEntryId", {"bankId", "bucketId", "slot"})
      .operation<&MultiHashTable::rehashEntry>(added + 6, "rehashEntry",
                                               {"eId", "targetBank", "stepsRemaining", "entryType"})
      .operation<&MultiHashTable::slotOfId>(added + 7, "slotOfId", {"eId"})
      .operation<&MultiHashTable::initializedIs>(added + 8, "initializedIs", {"initialized"})
      .factory<&multiHashTableFactory>(with(tableParameters, {"bucketSpanBanks"}));
  return &single.info();
}

const Fwk::TypeInfo* registerMultiEntryTypeBank(Fwk::Module& module, [[maybe_unused]] const Types& types) {
  EntityType<MultiEntryTypeBank> multiBank(module, "TesselCentral::MultiEntryTypeBank", types.bank);
  multiBank.attribute<&MultiEntryTypeBank::phyBankId>(added, "phyBankId", constructorSet)
      .attribute<&MultiEntryTypeBank::doubleEntryTwoBucketMode>(added + 1, "doubleEntryTwoBucketMode", constructorSet)
      .collection<&MultiEntryTypeBank::bucketCollection>(added + 2, "bucket", "U32 -> U64", mutableAttr)
      .reader(added + 3, "lockedBuckets", "set of U32", mutableAttr | collectionAttr,
              [](const MultiEntryTypeBank& b) {
                std::vector<U32> ids;
                for (const auto& e : b.lockedBucketsCollection()) ids.push_back(e.key);
                std::sort(ids.begin(), ids.end());
                std::string text = "{";
                for (std::size_t i = 0; i < ids.size(); ++i) text += (i ? ", " : "") + std::to_string(ids[i]);
                return text + "}";
              })
      .collection<&MultiEntryTypeBank::bucketShiftCollection>(added + 4, "bucketShift", "HashEntryType -> U32",
                                                              mutableAttr)
      .collection<&MultiEntryTypeBank::entrySizeCollection>(added + 5, "entrySize", "HashEntryType -> U32", mutableAttr)
      .collection<&MultiEntryTypeBank::entryMaskCollection>(added + 6, "entryMask", "HashEntryType -> U32", mutableAttr)
      .collection<&MultiEntryTypeBank::numBucketsToCheckCollection>(added + 7, "numBucketsToCheck",
                                                                    "HashEntryType -> U32", mutableAttr)
      .attribute<&MultiEntryTypeBank::initialized>(added + 8, "initialized", mutableAttr)
      .operation<&MultiEntryTypeBank::checkBucketSpace>(added + 9, "checkBucketSpace", {"eType", "bucketId", "update"})
      .operation<&MultiEntryTypeBank::bucketsLocked>(added + 10, "bucketsLocked", {"bucketId", "entryType"})
      .operation<&MultiEntryTypeBank::updateBucketState>(added + 11, "updateBucketState",
                                                         {"eType", "bucketId", "slotId", "add"})
      .operation<&MultiEntryTypeBank::getEntryType>(added + 12, "getEntryType", {"bucketId", "slotId"})
      .operation<&MultiEntryTypeBank::lockedBucketsIs>(added + 13, "lockedBucketsIs", {"bucketId"})
      .operation<&MultiEntryTypeBank::lockedBucketsDel>(added + 14, "lockedBucketsDel", {"bucketId"})
      .factory<&multiEntryTypeBankFactory>(with(bankParameters, {"phyBankId", "doubleEntryTwoBucketMode"}));
  return &multiBank.info();
}

const Fwk::TypeInfo* registerMultiEntryTypeHashTable(Fwk::Module& module, [[maybe_unused]] const Types& types) {
  EntityType<MultiEntryTypeHashTable> multi(module, "TesselCentral::MultiEntryTypeHashTable", types.tableBase);
  multi.collection<&MultiEntryTypeHashTable::posToKeyCollection>(added, "posToKey", "U32 -> HashEntryKey", mutableAttr)
      .collection<&MultiEntryTypeHashTable::keyToPosCollection>(added + 1, "keyToPos", "HashEntryKey -> U32",
                                                                mutableAttr)
      .collection<&MultiEntryTypeHashTable::bankCollection>(added + 2, "bank", "U32 -> MultiEntryTypeBank", mutableAttr)
      .attribute<&MultiEntryTypeHashTable::debugEnabled>(added + 3, "debugEnabled", mutableAttr)
      .attribute<&MultiEntryTypeHashTable::entryIdHelper>(added + 4, "entryIdHelper", mutableAttr)
      .attribute<&MultiEntryTypeHashTable::initialized>(added + 5, "initialized", mutableAttr)
      .note(tableInitializedNote)
      .operation<&MultiEntryTypeHashTable::bankIs>(added + 6, "bankIs",
                                                   with(bankParameters, {"phyBankId", "doubleEntryTwoBucketMode"}))
      .operation<&MultiEntryTypeHashTable::bankDel>(added + 7, "bankDel", {"bankId"})
      .operation<&MultiEntryTypeHashTable::entryIdHelperIs>(added + 8, "entryIdHelperIs", {"helper"})
      .operation<&MultiEntryTypeHashTable::debugEnabledIs>(added + 9, "debugEnabledIs", {"debugEnabled"})
      .operation<&MultiEntryTypeHashTable::findEmptyPosition>(added + 10, "findEmptyPosition",
                                                              {"key", "origBank", "step"})
      .operation<&MultiEntryTypeHashTable::doAddOrMoveEntry>(added + 11, "doAddOrMoveEntry", {"key", "newPos", "move"})
      .operation<&MultiEntryTypeHashTable::initializedIs>(added + 12, "initializedIs", {"initialized"})
      .factory<&multiEntryTypeHashTableFactory>(tableParameters);
  return &multi.info();
}

const Fwk::TypeInfo* registerEntryIdHelper(Fwk::Module& module, [[maybe_unused]] const Types& types) {
  EntityType<EntryIdHelper> helper(module, "TesselCentral::EntryIdHelper");
  helper.attribute<&EntryIdHelper::hashTable>(own, "hashTable", constructorSet)
      .operation<&EntryIdHelper::entryIdToPos>(own + 1, "entryIdToPos", {"id"})
      .operation<&EntryIdHelper::getHashEntryKey>(own + 2, "getHashEntryKey", {"id"})
      .operation<&EntryIdHelper::getLogicalBankId>(own + 3, "getLogicalBankId", {"id"})
      .operation<&EntryIdHelper::getPhysicalBankId>(own + 4, "getPhysicalBankId", {"id"})
      .operation<&EntryIdHelper::getHwPosition>(own + 5, "getHwPosition", {"id"})
      .operation<&EntryIdHelper::getBucketId>(own + 6, "getBucketId", {"id"})
      .operation<&EntryIdHelper::getBucketState>(own + 7, "getBucketState", {"id"})
      .operation<&EntryIdHelper::posToEntryId>(own + 8, "posToEntryId", {"pos"})
      .operation<&EntryIdHelper::checkEntryIdValidity>(own + 9, "checkEntryIdValidity", {"key", "eId"})
      .operation<&EntryIdHelper::setEntryState>(own + 10, "setEntryState", {"key", "eId"})
      .factory<&entryIdHelperFactory>({"hashTable"});
  return &helper.info();
}

// In the order of the types' indices within the module; each base before the types
// derived from it.
Types registerTypes() {
  Fwk::Module& module = Fwk::Registry::instance().moduleIs("MultiHashTable");
  Types types;
  types.config = registerHashEntryConfig(module, types);
  types.status = registerHashEntryStatus(module, types);
  types.tableBase = registerMultiHashTableBase(module, types);
  types.bank = registerBank(module, types);
  types.singleWideTable = registerMultiHashTable(module, types);
  types.multiEntryTypeBank = registerMultiEntryTypeBank(module, types);
  types.multiWidthTable = registerMultiEntryTypeHashTable(module, types);
  types.entryIdHelper = registerEntryIdHelper(module, types);
  return types;
}

// Registered when the library is loaded.
const Types types = registerTypes();

}  // namespace

const Fwk::TypeInfo* HashEntryConfig::fwkType() const noexcept { return types.config; }
const Fwk::TypeInfo* HashEntryStatus::fwkType() const noexcept { return types.status; }
const Fwk::TypeInfo* MultiHashTableBase::fwkType() const noexcept { return types.tableBase; }
const Fwk::TypeInfo* Bank::fwkType() const noexcept { return types.bank; }
const Fwk::TypeInfo* MultiEntryTypeBank::fwkType() const noexcept { return types.multiEntryTypeBank; }
const Fwk::TypeInfo* MultiHashTable::fwkType() const noexcept { return types.singleWideTable; }
const Fwk::TypeInfo* MultiEntryTypeHashTable::fwkType() const noexcept { return types.multiWidthTable; }
const Fwk::TypeInfo* EntryIdHelper::fwkType() const noexcept { return types.entryIdHelper; }

}  // namespace TesselCentral
