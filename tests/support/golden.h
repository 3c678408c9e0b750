// Checksums of results, compared with a stored file: a line "operation group count checksum" for all results
// of an operation on pages of one group. A program of it is called so:
//
//     NAME FILE             says which lines differ
//     NAME --write FILE     writes the file anew: only where results are meant to change
//     NAME --details FILE   writes a line "operation case checksum size error" for each result
#ifndef RASTREL_TESTS_SUPPORT_GOLDEN_H
#define RASTREL_TESTS_SUPPORT_GOLDEN_H

#include <rastrel.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace rastrel::testing {

inline std::string currentCase, currentGroup;
inline std::string details;

inline uint64_t Hash(uint64_t before, const void* bytes, size_t count) {  // FNV-1a
  for (size_t i = 0; i < count; ++i)
    before = (before ^ static_cast<const uint8_t*>(bytes)[i]) * 0x100000001B3u;
  return before;
}
constexpr uint64_t kHashOfNothing = 0xCBF29CE484222325u;

struct Group {
  int count = 0;
  uint64_t hash = kHashOfNothing;
};
inline std::map<std::string, Group> groups;

class Checksum {
 public:
  Checksum& Add(const void* bytes, size_t count) {
    value_ = Hash(value_, bytes, count);
    size_ += count;
    return *this;
  }
  Checksum& Add(int32_t number) { return Add(&number, sizeof(number)); }
  // A whole block; a system may round its size or not, and what that adds counts as 0.
  Checksum& AddBlock(HGLOBAL block) {
    const uint8_t zeros[8] = {};
    const size_t size = GlobalSize(block);
    if (const void* bytes = size == 0 ? nullptr : GlobalLock(block)) {
      Add(bytes, size).Add(zeros, (8 - size % 8) % 8);
      GlobalUnlock(block);
    }
    return *this;
  }
  Checksum& AddBitmap(HBITMAP bitmap) {
    std::vector<uint8_t> bits(static_cast<size_t>(GetBitmapBits(bitmap, 0, nullptr)));
    if (!bits.empty()) GetBitmapBits(bitmap, static_cast<int32_t>(bits.size()), bits.data());
    return Add(bits.data(), bits.size());
  }
  void Write(const std::string& operation) const {
    char result[80];
    std::snprintf(result, sizeof(result), " %016llx %zu %d\n", static_cast<unsigned long long>(value_), size_,
                  RastrelError());
    const std::string line = operation + " " + currentCase + result;
    details += line;
    Group& group = groups[operation.substr(0, operation.find(':')) + " " + currentGroup];
    ++group.count;
    group.hash = Hash(group.hash, line.data(), line.size());
  }

 private:
  uint64_t value_ = kHashOfNothing;
  size_t size_ = 0;
};

// Runs an operation with the thread's error at a code that none sets.
inline void Record(const std::string& operation, const std::function<void(Checksum&)>& run) {
  Checksum sum;
  SetRastrelError(ErrPrintCancelled);
  run(sum);
  sum.Write(operation);
}
inline void RecordPage(const std::string& operation, const std::function<HGLOBAL()>& run) {
  Record(operation, [&](Checksum& sum) {
    HGLOBAL result = run();
    sum.AddBlock(result);
    if (result != nullptr) GlobalFree(result);
  });
}
inline void RecordNumber(const std::string& operation, const std::function<int()>& run) {
  Record(operation, [&](Checksum& sum) { sum.Add(run()); });
}

inline std::string With(const char* operation, std::initializer_list<int> arguments) {
  std::string name = operation;
  for (const int argument : arguments) name += ":" + std::to_string(argument);
  return name;
}

inline std::string GroupLines() {
  std::string lines;
  for (const auto& [name, group] : groups) {
    char result[40];
    std::snprintf(result, sizeof(result), " %d %016llx\n", group.count,
                  static_cast<unsigned long long>(group.hash));
    lines += name + result;
  }
  return lines;
}

// Says what differs from the stored lines. Names of groups are the first two words.
inline int Compare(std::istream& stored) {
  std::map<std::string, std::string> expected;
  for (std::string operation, group, rest; stored >> operation >> group && std::getline(stored, rest);)
    expected[operation + " " + group] = rest;
  std::istringstream lines(GroupLines());
  int differences = 0;
  for (std::string operation, group, rest; lines >> operation >> group && std::getline(lines, rest);) {
    const auto at = expected.find(operation + " " + group);
    const std::string before = at == expected.end() ? " not stored" : at->second;
    if (at != expected.end()) expected.erase(at);
    if (before == rest) continue;
    std::cout << operation << ", " << group << ":" << before << " is now" << rest << "\n";
    ++differences;
  }
  for (const auto& [name, rest] : expected) std::cout << name << ":" << rest << " is not there any more\n";
  return differences + static_cast<int>(expected.size());
}

// Runs `record` and does with the results what the arguments say.
inline int RunGolden(int argc, char** argv, void (*record)()) {
  record();
  const std::string option = argc == 3 ? argv[1] : "";
  if (option == "--write" || option == "--details") {
    std::ofstream file(argv[2], std::ios::binary);
    file << (option == "--write" ? GroupLines() : details);
    return file.flush() ? 0 : 1;
  }
  std::ifstream stored(argc == 2 ? argv[1] : "", std::ios::binary);
  if (!stored) {
    std::cout << "usage: " << argv[0] << " [--write | --details] FILE\n";
    return 1;
  }
  return Compare(stored) == 0 ? 0 : 1;
}

}  // namespace rastrel::testing

#endif
