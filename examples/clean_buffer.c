/* Cleans a page that a program has in memory: here a skewed one that is drawn first. */
#include <rastrel_pages.h>

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kWidth = 1240, kHeight = 1754, kDpi = 150, kWhite = 255, kBlack = 0 };

/* Lines of words that rise to the right by one pixel in 25, which is 2.29 degrees. */
static void DrawPage(uint8_t* pixels) {
  memset(pixels, kWhite, (size_t)kWidth * kHeight);
  for (int y = 200; y < kHeight - 200; ++y) {
    for (int x = 150; x < kWidth - 150; ++x) {
      const int line = y + x / 25;
      if (line % 36 < 14 && x % 90 < 70 && x * 7 % 11 < 6) pixels[(size_t)y * kWidth + (size_t)x] = kBlack;
    }
  }
}

int main(void) {
  uint8_t* pixels = malloc((size_t)kWidth * kHeight);
  if (pixels == NULL) return 1;
  DrawPage(pixels);

  CleanOptions options;
  DefaultCleanOptions(&options, sizeof(options));
  options.specks = 0;

  HGLOBAL page = PageFromPixels(pixels, kWidth, kHeight, kWidth, PixelsGrey8, kDpi, kDpi);
  CleanRecord* record = NULL;
  HGLOBAL clean = page != NULL ? CleanPage(page, &options, &record, NULL) : NULL;
  if (page != NULL) GlobalFree(page);
  free(pixels);
  if (clean == NULL) {
    fprintf(stderr, "The page %s.\n", PagesErrorText());
    return 1;
  }

  CleanSummary summary;
  summary.size = sizeof(summary);
  GetCleanSummary(record, &summary);
  printf("%d x %d pixels, turned by %.2f degrees\n", summary.width, summary.height, -summary.skew);
  FreeCleanRecord(record);

  pixels = malloc((size_t)summary.width * (size_t)summary.height);
  const int isDone = pixels != NULL && PixelsFromPage(clean, pixels, summary.width, PixelsGrey8);
  /* ... and here the pixels are the program's again. */
  free(pixels);
  GlobalFree(clean);
  return isDone ? 0 : 1;
}
