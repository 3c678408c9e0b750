// Runs the targets on files that are there, without a fuzzer:
//
//   rastrel_fuzz_replay FOLDER...
//
// The folders in a FOLDER are called as the targets are. Says how many files there were.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/target.h"

int main(int count, char** words) {
  namespace fs = std::filesystem;
  ::setenv("PATH", "/nonexistent", 1);  // no other programs
  int files = 0;
  for (int i = 1; i < count; ++i) {
    for (const rastrel::fuzz::Target& target : rastrel::fuzz::Targets()) {
      std::error_code none;
      for (const auto& entry : fs::directory_iterator(fs::path(words[i]) / target.name, none)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        std::fprintf(stderr, "%s\n", entry.path().c_str());
        target.Run({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
        ++files;
      }
    }
  }
  std::printf("%d files\n", files);
  return files > 0 ? 0 : 1;
}
