// The condition texts of the assertions that a client's request can reach. The assertion
// reports one when it stops the agent, and the request check names the same one when it
// predicts the stop: a text is written here once, for both.
#pragma once

namespace TesselCentral::condition {

// The config reaction.
inline constexpr const char* removedKeyWasHandled = "hashEntryStatus()->statusHas( key )";
inline constexpr const char* derivedTableNeeded = "0 && \"Derived class needs to implement this\"";
// A bank whose hash function selects no bucket.
inline constexpr const char* bankSelectsNoBucket = "0";

// The single-width table's placement at a requested id.
inline constexpr const char* requestedIdIsCandidate = "checkEntryIdValidity( key, eId )";
inline constexpr const char* requestedIdHeldByAnother = "false";

// The multi-width table.
inline constexpr const char* tableHasHelper = "entryIdHelper()";
inline constexpr const char* bankExists = "b";
inline constexpr const char* keyNotNarrowerThanBank = "( U32 )entryType >= ( U32 )baseEntryType()";
inline constexpr const char* keyNotNarrowerThanBankSigned = "( int )entryType >= ( int )baseEntryType()";
inline constexpr const char* typeHasWidth = "width";
inline constexpr const char* runEndsInsideBucket = "slotId < b->bucketSize()";
// The forms with a message report the condition quoted, followed by " == nullptr".
inline constexpr const char* runSlotsFree = "\"!( bktState & mask )\" == nullptr";
inline constexpr const char* entryStartsAtSlot = "\"posToKeyHas( entryPos )\" == nullptr";

// A free position that the free-run search hands out is claimed by no key.
inline constexpr const char* foundPositionUnclaimed = "!posToKeyHas( pos )";

// The multi-width table's placement at a requested id.
inline constexpr const char* requestedIdInCandidateBucket = "entryIdHelper()->checkEntryIdValidity( key, eId )";
inline constexpr const char* requestedPositionFree = "!hashTable()->posToKeyHas( pos )";
inline constexpr const char* requestingKeyNotPlaced = "!hashTable()->keyToPosHas( key )";

}  // namespace TesselCentral::condition
