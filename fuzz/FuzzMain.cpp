// The entry point of a harness built without libFuzzer: runs every input named on the
// command line (a file, or every file of a directory, in name order) through the harness
// once. This is how the ordinary builds replay the corpus and the regressions as tests.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> inputsOf(const std::filesystem::path& arg) {
  std::vector<std::filesystem::path> files;
  if (std::filesystem::is_directory(arg)) {
    for (const auto& entry : std::filesystem::directory_iterator(arg)) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
  } else {
    files.push_back(arg);
  }
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: " << argv[0] << " FILE|DIRECTORY...\n";
    return 2;
  }
  std::size_t runs = 0;
  for (int i = 1; i < argc; ++i) {
    for (const std::filesystem::path& file : inputsOf(argv[i])) {
      std::ifstream in(file, std::ios::binary);
      if (!in) {
        std::cerr << file.string() << ": cannot be read\n";
        return 2;
      }
      const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      std::cout << "running " << file.string() << " (" << bytes.size() << " bytes)" << std::endl;
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
      ++runs;
    }
  }
  std::cout << "ran " << runs << " inputs" << std::endl;
  return runs == 0 ? 2 : 0;
}
