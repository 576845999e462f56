// The hash-table placement library.
//
// A switch chip's hash table is split into banks; a bank is an array of buckets; a bucket
// holds a few slots. A key may only stand in the bucket that each bank's hash function
// selects for it:
//
//            bucket 0      bucket 1      ...   bucket numBuckets-1
//   bank 0 [s0 s1 s2 s3] [s0 s1 s2 s3]   ...   [s0 s1 s2 s3]
//   bank 1 [s0 s1 s2 s3] [s0 s1 s2 s3]   ...   [s0 s1 s2 s3]
//
// When every candidate slot is taken, an occupant is moved to its own bucket in another
// bank, recursively, within a step budget.
//
// The client and the library meet in two collections:
//
//   client --configIs(key, id)--> HashEntryConfig --publish(130)--> table reaction
//        <--status(key)---------- HashEntryStatus <--statusIs------ placement, moves
//
// The client writes a request (key -> wanted EntryId, or the invalid one for "anywhere");
// inside that very write the table places, moves or removes entries and publishes every
// result in HashEntryStatus (key -> EntryId, or the invalid one when there was no room).
//
// Two tables share MultiHashTableBase:
//  - MultiHashTable, single width: each entry takes one slot; EntryId =
//      bank-major   (bankId * numBuckets + bucketId) * numBucketEntries + slot, or
//      bucket-major (bucketId * numBanks + bankId) * numBucketEntries + slot.
//  - MultiEntryTypeHashTable, multi width: entries take 1, 2 or 4 aligned slots. Inside
//    the table an entry is addressed by a packed position
//
//      bits 31..24 bank | bits 23..4 bucket | bits 3..0 first slot     (0xFFFFFFFF: none)
//
//    and its EntryIdHelper translates positions to the client's EntryIds (a flat slot
//    number over all banks) and back.
//
// Expected failures (no room) are results: the invalid EntryId in the status. Broken
// invariants and client errors that the rules forbid (a requested id that is not one of
// the key's candidates, a removal of a key the table never saw) are fatal assertions.
#pragma once

#if __cplusplus < 202002L
#error "MultiHashTable needs C++20: compile the agent with -std=c++20 or later"
#endif

// The one header a client includes: one header per concept behind it.
// The shared core: value types, requests and results, the abstract table, banks.
#include "MultiHashTable/Bank.h"                 // a bank and its bucket selection
#include "MultiHashTable/Candidates.h"           // the places a key may take
#include "MultiHashTable/CheckedWrites.h"        // writes that refuse rather than stop the agent
#include "MultiHashTable/ConfigurationCheck.h"   // what keeps a table from serving its requests
#include "MultiHashTable/MultiHashTableTypes.h"  // keys, ids, enumerations
#include "MultiHashTable/RequestCheck.h"         // what a write would do, told before it is made
#include "MultiHashTable/RequestsAndResults.h"   // HashEntryConfig and HashEntryStatus
#include "MultiHashTable/TableBase.h"            // the abstract table and its config reaction
#include "MultiHashTable/TableStatistics.h"      // what a table has done: placements, failures, moves, effort

// One folder per table kind.
#include "MultiHashTable/multiwidth/BucketState.h"              // a multi-width bucket's state word
#include "MultiHashTable/multiwidth/EntryIdHelper.h"            // positions <-> EntryIds for the multi-width table
#include "MultiHashTable/multiwidth/MultiEntryTypeBank.h"       // a bank of entries of several widths
#include "MultiHashTable/multiwidth/MultiEntryTypeHashTable.h"  // the multi-width table
#include "MultiHashTable/multiwidth/Position.h"                 // a multi-width position
#include "MultiHashTable/singlewidth/SingleWidthTable.h"        // the single-width table
