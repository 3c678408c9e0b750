// Straightens and despeckles the pages of a TIFF file, and nothing else, with the leanest means that
// Leptonica has: rastrel_lean_clean IN OUT
#include <leptonica/allheaders.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  setMsgSeverity(L_SEVERITY_NONE);
  std::remove(argv[2]);
  size_t offset = 0;
  const char* mode = "w";
  do {
    PIX* page = pixReadFromMultipageTiff(argv[1], &offset);
    if (page == nullptr) return 1;
    PIX* straight = pixDeskew(page, 0);
    PIX* clean = pixOpenBrickDwa(nullptr, straight, 2, 2);
    if (clean == nullptr || pixWriteTiff(argv[2], clean, IFF_TIFF_G4, mode) != 0) return 1;
    pixDestroy(&page);
    pixDestroy(&straight);
    pixDestroy(&clean);
    mode = "a";
  } while (offset != 0);
  return 0;
}
