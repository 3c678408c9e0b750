#include "tools/batch/pictures.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "tools/handles.h"

namespace rastrel::tool {
namespace {

constexpr int kMostPixels = 1100;  // across or down: enough to read a page on a screen
constexpr int kMostSmallPixels = 220;

void Write(HGLOBAL page, const std::string& path) {
  Writer writer(Checked(CreatePages(path.c_str(), "jpg", "quality=75")));
  auto rules = Sized<PageFileRules>();
  rules.skipSync = 1;  // a report is made again at any time
  Checked(SetPageFileRules(writer.get(), &rules));
  Checked(AppendPage(writer.get(), page, nullptr));
  Checked(FinishPages(writer.release()));
}

// In grey or colour, no wider or higher than that.
Page Reduced(HGLOBAL page, int most) {
  const PageInfo info = InfoOf(page);
  constexpr int kSmoothed3 = 1;
  Page tones(Checked(info.bits == 1     ? GreyPage(page, GreyWeighted, kSmoothed3)
                     : info.isGrey != 0 ? GreyPage(page, GreyWeighted, 0)
                                        : ColourPage(page)));
  const int longest = std::max(info.width, info.height);
  if (longest <= most) return tones;
  const int width = std::max(1, static_cast<int>(int64_t{info.width} * most / longest));
  const int height = std::max(1, static_cast<int>(int64_t{info.height} * most / longest));
  return Page(Checked(ScalePage(tones.get(), width, height, 0, 0, InterpolateBilinear)));
}

}  // namespace

void WritePicture(const std::string& file, int page, const std::string& path, const std::string& smallPath) {
  const Input input(Checked(OpenPages(file.c_str())));
  const Page whole(Checked(ReadPage(input.get(), page - 1, nullptr)));
  const Page picture = Reduced(whole.get(), kMostPixels);
  Write(picture.get(), path);
  if (!smallPath.empty()) Write(Reduced(picture.get(), kMostSmallPixels).get(), smallPath);
}

double DarkShare(const std::string& path) {
  const Input input(Checked(OpenPages(path.c_str())));
  const Page picture(Checked(ReadPage(input.get(), 0, nullptr)));
  const PageInfo info = InfoOf(picture.get());
  std::vector<uint8_t> greys(static_cast<size_t>(info.width) * static_cast<size_t>(info.height));
  Checked(PixelsFromPage(picture.get(), greys.data(), info.width, PixelsGrey8));
  std::array<int64_t, 256> counts = {};
  for (const uint8_t grey : greys) ++counts[grey];
  const auto firstLight = counts.begin() + counts.size() / 2;
  const int64_t paper = std::max_element(firstLight, counts.end()) - counts.begin();
  int64_t dark = 0;
  for (int64_t grey = 0; grey < paper; ++grey) dark += (paper - grey) * counts[static_cast<size_t>(grey)];
  return static_cast<double>(dark) / static_cast<double>(paper) / static_cast<double>(greys.size());
}

}  // namespace rastrel::tool
