// Places one key through the installed library and checks the published result.
#include <Bank.h>  // the agent's own
#include <MultiHashTable/MultiHashTable.h>

#include <iostream>

int main() {
  using namespace TesselCentral;
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = multiHashTableFactory(1, 4, 2, config, status, 0, false);
  table->bankIs(HashEntryType::singleWide, 0, 4, 2, HashFunc::hashCrc32Lower, 0, 0, 0x3);

  const HashEntryKey key(7, 2, 0, HashEntryType::singleWide);
  config->configIs(key, EntryId());
  // Bucket 2 of bank 0, slot 0: (0 * 4 + 2) * 2 + 0.
  if (status->status(key) != EntryId(4)) {
    std::cerr << "client: expected EntryId 4, got " << status->status(key) << '\n';
    return 1;
  }
  static_assert(agent::bankCount == 4);
  std::cout << "client: key placed at EntryId " << status->status(key) << '\n';
  return 0;
}
