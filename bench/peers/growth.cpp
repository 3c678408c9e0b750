// How time and memory grow with the area of a page: rastrel_growth FILE writes JSON.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

using testing::TestDib;

constexpr int kMegapixels[] = {1, 2, 5, 10, 20, 50, 100, 200};
constexpr int kLeastTimes = 4;
constexpr double kLeastMilliseconds = 150;  // of all times together

struct Operation {
  const char* name;
  int bits;
  std::function<HGLOBAL(HGLOBAL)> run;  // null where there is no page to return
};

HGLOBAL HalfSize(HGLOBAL dib) {
  const auto* header = static_cast<const BITMAPINFOHEADER*>(GlobalLock(dib));
  const int width = header->biWidth / 2, height = header->biHeight / 2;
  GlobalUnlock(dib);
  return ScaleDIB(dib, 0, width, height);
}

HGLOBAL Grey(HGLOBAL dib) {
  HGLOBAL grey = ConvColorDIBtoGrayscale(dib, 1, 0);
  GlobalUnlock(dib);
  return grey;
}

std::vector<Operation> Operations() {
  std::vector<Operation> operations;
  for (const int bits : {1, 8, 24}) {
    operations.push_back({"mirror", bits, FlipDIBHorizontal});
    operations.push_back({"quarter turn", bits, [](HGLOBAL dib) { return TurnDIB(dib, 1); }});
    operations.push_back({"turn by 3.7°", bits, [](HGLOBAL dib) { return RotateDIB(dib, 3.7); }});
    operations.push_back({"find the skew", bits, [](HGLOBAL dib) {
                            DetectSkewAngle(dib, 1, 0, nullptr);
                            return HGLOBAL{};
                          }});
    operations.push_back(
        {"remove punch holes", bits, [](HGLOBAL dib) { return AutoPunchHoleRemover(dib, 0, nullptr); }});
    operations.push_back({"scale to half", bits, HalfSize});
    if (bits <= 8) {
      operations.push_back({"remove specks", bits, [](HGLOBAL dib) { return CleanImage(dib, 50, 0); }});
    }
  }
  operations.push_back({"smooth 3 × 3", 1, [](HGLOBAL dib) { return ConvertMonoDIBtoGrayscale(dib, 1); }});
  operations.push_back({"Floyd-Steinberg", 8, [](HGLOBAL dib) { return DitherFS4(dib, 1); }});
  operations.push_back({"turn to grey", 24, Grey});
  return operations;
}

// The bench page, laid side by side and over one another. Its rows are whole bytes at every depth.
TestDib PageOfArea(int bits, int megapixels) {
  const double side = std::sqrt(megapixels * 1e6 / (static_cast<double>(kPageWidth) * kPageHeight));
  const int width = static_cast<int>(kPageWidth * side) / 8 * 8;  // all sizes can be halved
  const int height = static_cast<int>(kPageHeight * side) / 8 * 8;
  const TestDib tile = BenchPage(bits);
  TestDib page(testing::MakeHeader(bits, width, height));
  const auto head = 40 + static_cast<size_t>(tile.header().biClrUsed) * 4;
  const size_t tileStride = tile.pixelBytes() / kPageHeight;
  const size_t tileBytes = static_cast<size_t>(kPageWidth) * static_cast<size_t>(bits) / 8;
  const size_t stride = page.pixelBytes() / static_cast<size_t>(height);
  const auto* from = static_cast<const uint8_t*>(GlobalLock(tile.handle())) + head;
  auto* to = static_cast<uint8_t*>(GlobalLock(page.handle())) + head;
  for (size_t y = 0; y < static_cast<size_t>(height); ++y) {
    for (size_t x = 0; x < stride; x += tileBytes) {
      std::memcpy(to + y * stride + x, from + y % kPageHeight * tileStride, std::min(tileBytes, stride - x));
    }
  }
  GlobalUnlock(page.handle());
  GlobalUnlock(tile.handle());
  return page;
}

double CpuMilliseconds() {
  timespec time;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

double Milliseconds(const Operation& operation, const TestDib& page) {
  double least = HUGE_VAL, sum = 0;
  for (int i = 0; i < kLeastTimes || sum < kLeastMilliseconds; ++i) {
    const double start = CpuMilliseconds();
    GlobalFree(operation.run(page.handle()));
    const double time = CpuMilliseconds() - start;
    least = std::min(least, time);
    sum += time;
  }
  return least;
}

// The value in bytes of a line of /proc/self/status.
double Status(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string word;
  double kilobytes = 0;
  while (status >> word) {
    if (word == name + ":") status >> kilobytes;
  }
  return kilobytes * 1024;
}

// What an operation needs besides the page: its result, and all at its peak, as multiples of the page.
struct Memory {
  double result, peak;
};

Memory MemoryOf(const Operation& operation, const TestDib& page) {
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << 5 << std::flush;  // the peak begins anew
  const double before = Status("VmRSS");
  HGLOBAL result = operation.run(page.handle());
  const double peak = Status("VmHWM") - before;
  const auto resultBytes = static_cast<double>(result == nullptr ? 0 : GlobalSize(result));
  GlobalFree(result);
  const auto pageBytes = static_cast<double>(page.pixelBytes());
  return {resultBytes / pageBytes, peak / pageBytes};
}

struct Measured {
  double milliseconds = 0;
  Memory memory = {};
};

// Measures the operations on pages of one size in a process of its own, in which no earlier page has left its
// traces. Empty when that fails.
std::vector<Measured> Measure(const std::vector<Operation>& operations, int bits, int megapixels) {
  std::vector<Measured> all(operations.size());
  int ends[2];
  if (pipe(ends) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    const TestDib page = PageOfArea(bits, megapixels);
    for (size_t i = 0; i < operations.size(); ++i) {
      if (operations[i].bits == bits) all[i].milliseconds = Milliseconds(operations[i], page);
    }
    for (size_t i = 0; i < operations.size(); ++i) {
      if (operations[i].bits == bits) all[i].memory = MemoryOf(operations[i], page);
    }
    const size_t bytes = all.size() * sizeof(Measured);
    _exit(write(ends[1], all.data(), bytes) == static_cast<ssize_t>(bytes) ? 0 : 1);
  }
  close(ends[1]);
  const ssize_t received = read(ends[0], all.data(), all.size() * sizeof(Measured));
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (received != static_cast<ssize_t>(all.size() * sizeof(Measured))) return {};
  return all;
}

}  // namespace
}  // namespace rastrel::bench

int main(int argc, char** argv) {
  using namespace rastrel::bench;
  if (argc != 2) return 2;
  // Memory once had is used again whatever its size, so that times are the operations' own and not those of
  // fresh pages, which the system hands out for every large result otherwise.
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, -1);
  const std::vector<Operation> operations = Operations();
  std::vector<nlohmann::json> records(operations.size());
  for (size_t i = 0; i < operations.size(); ++i) {
    records[i] = {{"name", operations[i].name}, {"bits", operations[i].bits}};
  }
  for (const int bits : {1, 8, 24}) {
    for (const int megapixels : kMegapixels) {
      const std::vector<Measured> all = Measure(operations, bits, megapixels);
      if (all.empty()) return 1;
      for (size_t i = 0; i < operations.size(); ++i) {
        if (operations[i].bits != bits) continue;
        records[i]["milliseconds"].push_back(all[i].milliseconds);
        records[i]["result"] = all[i].memory.result;  // the largest page's stay
        records[i]["peak"] = all[i].memory.peak;
      }
    }
  }
  for (const nlohmann::json& record : records) std::printf("%s\n", record.dump().c_str());
  std::ofstream(argv[1]) << nlohmann::json({{"megapixels", kMegapixels}, {"operations", records}}).dump(1)
                         << '\n';
  return 0;
}
