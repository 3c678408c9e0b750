#include "pages/speck_removal.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "pages/judgement.h"

namespace rastrel::pages {
namespace {

void Fill(BitPlane* plane, int left, int top, int width, int height) {
  for (int y = top; y < top + height; ++y) {
    for (int x = left; x < left + width; ++x) plane->Set(x, y);
  }
}

// A page of 300 dpi: lines of letters with strokes `stroke` pixels thick, every third an i with a dot, every
// sixth followed by a full stop. Dots are a pixel thicker than the strokes.
struct Page {
  Page(int stroke, int lines) : ink(1600, 1600) {
    const int tall = 6 * stroke, dot = stroke + 1;
    for (int line = 0; line < lines; ++line) {
      const int foot = 200 + line * 3 * tall;
      for (int letter = 0; letter < 40; ++letter) {
        const int x = 150 + letter * 5 * stroke;
        Fill(&ink, x, foot - tall, stroke, tall);
        if (letter % 3 == 0) {
          Fill(&ink, x, foot - tall - 2 * dot, dot, dot);
        } else {
          Fill(&ink, x, foot - stroke, 3 * stroke, stroke);
        }
        if (letter % 6 == 5) Fill(&ink, x + 4 * stroke, foot - dot, dot, dot);
      }
    }
  }
  // Dust: marks of one to three pixels either way, at places that a simple sequence gives, clear of all else.
  void Soil(int count) {
    uint32_t state = 7;
    const auto next = [&state](uint32_t below) {
      state = state * 1664525u + 1013904223u;
      return static_cast<int>((state >> 8) % below);
    };
    while (count > 0) {
      const int width = 1 + next(3), height = 1 + next(3), left = 4 + next(1590), top = 4 + next(1590);
      bool isClear = true;
      for (int y = top - 2; y < top + height + 2; ++y) {
        for (int x = left - 2; x < left + width + 2; ++x) isClear = isClear && !ink.Get(x, y);
      }
      if (!isClear) continue;
      Fill(&ink, left, top, width, height);
      dust.emplace_back(left, top);
      --count;
    }
  }
  // How much of the dust goes, in percent, and how much else.
  std::pair<int, int> PercentTakenAndLost() const {
    const Components components(ink);
    const Pictures pictures = FindPictures(ink, components, nullptr, nullptr, 1);
    const SpeckPlan plan = PlanSpecks(components, ink, {}, pictures, 1, speck::kLargest);
    BitPlane taken(ink.width(), ink.height());
    for (const uint32_t index : plan.components) DrawComponent(components, components[index], &taken);
    int gone = 0;
    for (const auto& [x, y] : dust) gone += taken.Get(x, y);
    return {dust.empty() ? 100 : gone * 100 / static_cast<int>(dust.size()),
            static_cast<int>(plan.components.size()) - gone};
  }

  BitPlane ink;
  std::vector<std::pair<int, int>> dust;
};

TEST(PlanSpecks, TakesDustAndNoDot) {
  struct Case {
    int stroke, lines, dust, leastPercent;
  };
  for (const Case& c : {Case{4, 15, 0, 100}, Case{4, 15, 40, 85}, Case{4, 15, 600, 90}, Case{2, 20, 0, 100},
                        Case{2, 20, 300, 55}, Case{4, 0, 200, 100}}) {
    SCOPED_TRACE(testing::Message() << "strokes " << c.stroke << ", dust " << c.dust);
    Page page(c.stroke, c.lines);
    page.Soil(c.dust);
    const auto [percent, lost] = page.PercentTakenAndLost();
    EXPECT_GE(percent, c.leastPercent);
    EXPECT_EQ(0, lost);
  }
}

TEST(PlanSpecks, LeavesLeadersScreensAndFaintPrint) {
  struct Case {
    const char* name;
    void (*draw)(BitPlane*);
  };
  for (const Case& c : {
           Case{"a dotted rule",
                [](BitPlane* ink) {
                  for (int x = 100; x < 1500; x += 12) Fill(ink, x, 1500 + x / 100, 2, 2);
                }},
           Case{"a dotted rule downwards",
                [](BitPlane* ink) {
                  for (int y = 100; y < 1500; y += 40) Fill(ink, 1500, y, 3, 3);
                }},
           Case{"a screen that grows pale",
                [](BitPlane* ink) {
                  for (int y = 1200; y < 1500; y += 6) {
                    for (int x = 200; x < 1400; x += 6) {
                      if (x < 1000 || (x / 6 + y / 6) % 3 == 0)
                        Fill(ink, x + y / 6 % 2 * 3, y, 2, x < 600 ? 3 : 1);
                    }
                  }
                }},
           Case{"a screen dark enough for its dots to touch",
                [](BitPlane* ink) {
                  for (int y = 1200; y < 1500; ++y) {
                    for (int x = 200; x < 1400; ++x) {
                      if ((x + y) % 6 < 4 || (x - y + 6000) % 6 < 4) ink->Set(x, y);
                    }
                  }
                }},
       }) {
    SCOPED_TRACE(c.name);
    Page page(4, 6);
    c.draw(&page.ink);
    EXPECT_EQ(0, page.PercentTakenAndLost().second);
  }
}

// Grey noise is no dust, nor is the grain of a picture, however the mask of ink takes them up.
TEST(PlanSpecks, TakesOnlyWhatIsMuchDarkerThanEvenGround) {
  struct Case {
    int ground, grain, mark;
    bool isSpeck;
  };
  for (const Case& c : {Case{240, 0, 60, true}, Case{240, 0, 200, false}, Case{120, 0, 40, true},
                        Case{200, 20, 60, true}, Case{150, 60, 60, false}}) {
    SCOPED_TRACE(testing::Message() << "ground " << c.ground << ", mark " << c.mark);
    BytePlane grey(300, 300, static_cast<uint8_t>(c.ground));
    for (int y = 0; y < 300; ++y) {
      for (int x = 0; x < 300; ++x)
        grey.Row(y)[x] = static_cast<uint8_t>(c.ground - (x * 7 + y * 13) % 5 * c.grain / 4);
    }
    BitPlane ink(300, 300);
    Fill(&ink, 150, 150, 2, 2);
    for (int i = 0; i < 4; ++i) grey.Row(150 + i / 2)[150 + i % 2] = static_cast<uint8_t>(c.mark);
    const Components components(ink);
    EXPECT_EQ(c.isSpeck,
              PlanSpecks(components, ink, grey, Pictures(), 1, speck::kLargest).components.size() == 1);
  }
}

}  // namespace
}  // namespace rastrel::pages
