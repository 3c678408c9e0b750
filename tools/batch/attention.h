// How much a person should look at a page: a score from 0 to 100, and why. docs/batch.md says what it is made
// of.
#ifndef RASTREL_TOOLS_BATCH_ATTENTION_H
#define RASTREL_TOOLS_BATCH_ATTENTION_H

#include <string>
#include <vector>

namespace rastrel::tool {

// What of a page's record counts for it.
struct PageFacts {
  bool isFailed = false, isWaiting = false;
  bool isBlank = false, isDropped = false;
  bool isTurned = false;
  double skew = 0, skewConfidence = -1;  // -1: not measured
  double removedShare = 0;               // of the page painted over or cut away as border, 0 to 1
  double speckShare = 0;                 // of its pixels in specks
  double leastConfidence = 1;            // of what was removed
  int takenBack = 0, sidesLeft = 0, losses = 0, holes = 0;
  double width = 0, height = 0;  // inches as it came in, or pixels where it has no resolution
  double seconds = 0;            // that its steps took
  std::string folder;            // pages of one folder are each other's neighbours
};

// From a record as `rastrel clean --json` prints it. Nothing of what is no such record.
PageFacts FactsFrom(const std::string& record);

struct Attention {
  int score = 0;
  std::vector<std::string> reasons;  // the weightiest first
};

// One for each page; pages are in their order.
std::vector<Attention> AttentionOf(const std::vector<PageFacts>& pages);

}  // namespace rastrel::tool

#endif
