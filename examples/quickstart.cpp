// A switch agent's use of the library, in miniature: a two-bank single-width table, a few
// requests, and the results as the library publishes them.
#include <iostream>

#include "MultiHashTable/MultiHashTable.h"

using namespace TesselCentral;

// Prints every result the moment the table publishes it, inside the agent's own write.
class StatusPrinter : public Fwk::Reactor {
 public:
  explicit StatusPrinter(const HashEntryStatus& status) : status_(status) { status.publisher().subscriberIs(*this); }

  void onNotification(const Fwk::Notification& n) override {
    const auto& key = *static_cast<const HashEntryKey*>(n.key);
    std::cout << "  status of crc16=0x" << std::hex << key.crc16() << " crc32=0x" << key.crc32() << std::dec << ": ";
    if (n.previous != nullptr) std::cout << *static_cast<const EntryId*>(n.previous) << " -> ";
    if (const EntryId* now = status_.statusFind(key)) {
      std::cout << (now->isValid() ? std::to_string(now->value()) : "no room") << '\n';
    } else {
      std::cout << "removed\n";
    }
  }

 private:
  const HashEntryStatus& status_;
};

int main() {
  // Requests and results, then a table of 2 banks x 8 buckets x 1 slot that may move one
  // entry deep to make room. Bank 0 hashes the low bits of crc32, bank 1 those of crc16.
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = multiHashTableFactory(2, 8, 1, config, status, /*maxRecursiveSteps=*/1, /*bucketSpanBanks=*/false);
  table->bankIs(HashEntryType::singleWide, 0, 8, 1, HashFunc::hashCrc32Lower, 0, 0, 0x7);
  table->bankIs(HashEntryType::singleWide, 1, 8, 1, HashFunc::hashCrc16Lower, 0, 0, 0x7);

  StatusPrinter printer(*status);

  const HashEntryKey a(0x0001, 0x00000003, 0, HashEntryType::singleWide);  // bank 0 bucket 3, bank 1 bucket 1
  const HashEntryKey b(0x0005, 0x0000000B, 0, HashEntryType::singleWide);  // bank 0 bucket 3, bank 1 bucket 5
  const HashEntryKey c(0x0005, 0x00000013, 0, HashEntryType::singleWide);  // bank 0 bucket 3, bank 1 bucket 5
  const HashEntryKey d(0x0002, 0x00000006, 0, HashEntryType::singleWide);  // bank 0 bucket 6, bank 1 bucket 2

  std::cout << "place a anywhere\n";
  config->configIs(a, EntryId());
  std::cout << "place b anywhere (its bank-0 bucket is taken by a)\n";
  config->configIs(b, EntryId());
  std::cout << "place c anywhere (both its buckets are taken: a moves to bank 1)\n";
  config->configIs(c, EntryId());
  std::cout << "place d at its bank-1 slot, id " << table->calcEntryId(1, 2, 0) << "\n";
  config->configIs(d, table->calcEntryId(1, 2, 0));
  std::cout << "delete b\n";
  config->configDel(b);

  std::cout << "final status (insertions " << table->numInsertions() << ", deletions " << table->numDeletions()
            << ", moves " << table->numMoves() << "):\n";
  for (const auto& [key, id] : status->statusCollection()) {
    std::cout << "  " << key << " -> " << id << '\n';
  }
  return 0;
}
