// Writes 1-bit text pages as numbered bitmap files: rastrel_page_files FOLDER COUNT
#include <cstdio>
#include <cstdlib>

#include "bench/support/bench_page.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  for (int i = 1; i <= std::atoi(argv[2]); ++i) {
    char path[4096];
    std::snprintf(path, sizeof(path), "%s/page-%04d.bmp", argv[1], i);
    const rastrel::testing::TestDib page = rastrel::bench::BenchPage(1, static_cast<unsigned>(i));
    if (SaveDIB(path, page.handle()) == 0) return 1;
  }
  return 0;
}
