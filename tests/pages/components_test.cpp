#include "pages/components.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace rastrel::pages {
namespace {

BitPlane Drawn(const std::vector<std::string>& rows) {
  BitPlane plane(static_cast<int>(rows[0].size()), static_cast<int>(rows.size()));
  for (int y = 0; y < plane.height(); ++y) {
    for (int x = 0; x < plane.width(); ++x) {
      if (rows[static_cast<size_t>(y)][static_cast<size_t>(x)] != '.') plane.Set(x, y);
    }
  }
  return plane;
}

// Spreads each component over its neighbours until nothing changes.
std::vector<uint32_t> LabelsByFlooding(const BitPlane& plane) {
  const int width = plane.width(), height = plane.height();
  std::vector<uint32_t> labels(static_cast<size_t>(width) * static_cast<size_t>(height), Components::kNone);
  const auto at = [&](int x, int y) -> uint32_t& { return labels[static_cast<size_t>(y * width + x)]; };
  uint32_t next = 0;
  for (int startY = 0; startY < height; ++startY) {
    for (int startX = 0; startX < width; ++startX) {
      if (!plane.Get(startX, startY) || at(startX, startY) != Components::kNone) continue;
      std::vector<std::pair<int, int>> reached = {{startX, startY}};
      at(startX, startY) = next;
      while (!reached.empty()) {
        const auto [x, y] = reached.back();
        reached.pop_back();
        for (int i = 0; i < 9; ++i) {
          const int nx = x + i % 3 - 1, ny = y + i / 3 - 1;
          if (nx < 0 || ny < 0 || nx >= width || ny >= height || !plane.Get(nx, ny)) continue;
          if (at(nx, ny) != Components::kNone) continue;
          at(nx, ny) = next;
          reached.push_back({nx, ny});
        }
      }
      ++next;
    }
  }
  return labels;
}

TEST(Components, TellWhatTouchesAtACornerFromWhatDoesNot) {
  const BitPlane plane = Drawn({
      "a......c.",
      "a.b...c..",
      "a.b..c...",
      "a.......d",
      "aaaa...d.",
  });
  const Components components(plane);
  ASSERT_EQ(4u, components.size());
  const Component& first = components[0];
  EXPECT_EQ(8, first.pixelCount);
  EXPECT_EQ(0, first.box.left);
  EXPECT_EQ(0, first.box.top);
  EXPECT_EQ(4, first.box.right);
  EXPECT_EQ(5, first.box.bottom);
  EXPECT_EQ(5u, first.runCount);
  EXPECT_EQ(1u, components.At(6, 1));
  EXPECT_EQ(2u, components.At(2, 2));
  EXPECT_EQ(3u, components.At(8, 3));
  EXPECT_EQ(Components::kNone, components.At(1, 0));
}

TEST(Components, AreThoseOfFloodingOnSoiledPagesOfAnyWidth) {
  uint32_t random = 1;
  const auto isSet = [&random](uint32_t ofTen) {
    random = random * 1664525 + 1013904223;
    return (random >> 16) % 10 < ofTen;
  };
  for (const int width : {1, 2, 63, 64, 65, 127, 128, 200}) {
    for (const uint32_t ofTen : {1u, 3u, 5u, 8u, 10u}) {
      SCOPED_TRACE(testing::Message() << width << " columns, " << ofTen << " of 10 set");
      BitPlane plane(width, 40);
      for (int y = 0; y < plane.height(); ++y) {
        for (int x = 0; x < width; ++x) {
          if (isSet(ofTen)) plane.Set(x, y);
        }
      }
      const Components components(plane);
      const std::vector<uint32_t> labels = LabelsByFlooding(plane);
      for (int y = 0; y < plane.height(); ++y) {
        for (int x = 0; x < width; ++x)
          ASSERT_EQ(labels[static_cast<size_t>(y * width + x)], components.At(x, y)) << x << ' ' << y;
      }
      // Each piece drawn once gives the page, and erased once leaves nothing.
      BitPlane again(width, plane.height());
      for (const Component& component : components.all()) DrawComponent(components, component, &again);
      EXPECT_TRUE(std::equal(plane.words().begin(), plane.words().end(), again.words().begin()));
      for (const Component& component : components.all()) EraseComponent(components, component, &again);
      EXPECT_EQ(0u, Components(again).size());
    }
  }
}

}  // namespace
}  // namespace rastrel::pages
