// A multi-width table as an agent sets it up, drives it and tears it down: entries one,
// two and four slots wide, one insertion that has to move an occupant, and the hardware
// position of every entry.
#include <iomanip>
#include <iostream>

#include "MultiHashTable/MultiHashTable.h"

using namespace TesselCentral;

class StatusPrinter : public Fwk::Reactor {
 public:
  explicit StatusPrinter(const HashEntryStatus& status) : status_(status) { status.publisher().subscriberIs(*this); }

  void onNotification(const Fwk::Notification& n) override {
    const auto& key = *static_cast<const HashEntryKey*>(n.key);
    std::cout << "  status of " << key.entryType() << " crc16=" << key.crc16() << " crc32=" << key.crc32() << ": ";
    if (n.previous != nullptr) std::cout << *static_cast<const EntryId*>(n.previous) << " -> ";
    const EntryId* now = status_.statusFind(key);
    std::cout << (now == nullptr ? "removed" : now->isValid() ? std::to_string(now->value()) : "no room") << '\n';
  }

 private:
  const HashEntryStatus& status_;
};

int main() {
  // Set-up: requests and results, the table, every bank, then the table's EntryIdHelper.
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = multiEntryTypeHashTableFactory(2, 4, 4, config, status, /*maxRecursiveSteps=*/1);
  // Banks of 4 buckets x 4 single-wide slots; bank 0 hashes crc32, bank 1 crc16. Physical
  // bank numbers differ from the logical ones, as on a chip whose banks are wired apart.
  table->bankIs(HashEntryType::singleWide, 0, 4, 4, HashFunc::hashCrc32Lower, 0, 0, 0x3, /*phyBankId=*/2, false);
  table->bankIs(HashEntryType::singleWide, 1, 4, 4, HashFunc::hashCrc16Lower, 0, 0, 0x3, /*phyBankId=*/5, false);
  table->entryIdHelperIs(entryIdHelperFactory(table));

  StatusPrinter printer(*status);

  const HashEntryKey k1(1, 1, 0, HashEntryType::doubleWide);   // bank 0 bucket 1, bank 1 bucket 1
  const HashEntryKey k2(0, 0, 0, HashEntryType::singleWide);   // bank 0 bucket 0, bank 1 bucket 0
  const HashEntryKey k3(0, 5, 0, HashEntryType::quadWide);     // bank 0 bucket 1, bank 1 bucket 0
  const HashEntryKey k4(0, 9, 0, HashEntryType::doubleWide);   // bank 0 bucket 1, bank 1 bucket 0
  const HashEntryKey k5(0, 13, 0, HashEntryType::singleWide);  // bank 0 bucket 1, bank 1 bucket 0

  std::cout << "double-wide k1, single-wide k2, quad-wide k3, double-wide k4\n";
  for (const auto& k : {k1, k2, k3, k4}) config->configIs(k, EntryId());
  std::cout << "single-wide k5: both its buckets are full, so k1 moves to bank 1\n";
  config->configIs(k5, EntryId());

  std::cout << "hardware positions (physical bank, bucket, slot):\n";
  EntryIdHelper& ids = *table->entryIdHelper();
  for (const auto& k : {k1, k2, k3, k4, k5}) {
    const EntryId id = status->status(k);
    const U32 hw = ids.getHwPosition(id);
    std::cout << "  " << std::setw(10) << k.entryType() << " crc32=" << std::setw(2) << k.crc32() << " id "
              << std::setw(2) << id << " -> bank " << positionBank(hw) << " bucket " << positionBucket(hw) << " slot "
              << positionSlot(hw) << '\n';
  }

  // Tear-down: the table and its helper hold each other; break the cycle first.
  table->entryIdHelperIs(nullptr);
  return 0;
}
