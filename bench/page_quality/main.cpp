// Draws soiled pages whose truth is known, to measure cleaning on:
//
//   rastrel_quality_pages FOLDER [--only TEXT] [--set NUMBER] [--list]
//
// For each page FOLDER gets NAME.png (or .jpg), NAME-truth.png with a byte a pixel (Truth in soil.h), and a
// line of pages.json. The same set has the same bytes everywhere; another number draws other words, marks and
// dirt. --only takes the pages whose names contain TEXT.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "bench/page_quality/cases.h"
#include "bench/page_quality/picture_files.h"

namespace rastrel::quality {
namespace {

using nlohmann::json;

struct Options {
  std::string folder;
  std::string only;
  uint64_t set = 1;
  bool isListed = false;
};

std::string NameOf(const Case& c) {
  std::string name =
      std::string(c.condition) + "-" + c.content + "-" + std::to_string(c.dpi) + "-" + std::to_string(c.bits);
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

uint64_t SeedOf(const std::string& name, uint64_t set) {
  uint64_t seed = 1469598103934665603u + set * 0x9E3779B97F4A7C15u;  // FNV-1a
  for (const char letter : name) seed = (seed ^ static_cast<unsigned char>(letter)) * 1099511628211u;
  return seed;
}

json Describe(const Case& c, const Content& content, const Page& page, const std::string& name) {
  json about = {{"name", name},
                {"file", name + (page.jpegQuality > 0 ? ".jpg" : ".png")},
                {"truth", name + "-truth.png"},
                {"condition", c.condition},
                {"content", c.content},
                {"dpi", c.dpi},
                {"bits", c.bits},
                {"angle", c.degrees},
                {"hasSkew", content.hasSkew},
                {"isReadable", content.isReadable},
                {"isBlank", std::strcmp(c.content, "blank") == 0},
                {"width", page.width},
                {"height", page.height},
                {"specks", page.specks},
                {"largeSpecks", page.largeSpecks}};
  for (const drawing::Point& corner : page.sheet) about["sheet"].push_back({corner.x, corner.y});
  constexpr const char* kSides[] = {"left", "top", "right", "bottom"};
  about["holes"] = json::array();
  for (const Hole& hole : page.holes)
    about["holes"].push_back(
        {{"x", hole.x}, {"y", hole.y}, {"diameter", hole.diameter}, {"side", kSides[hole.side]}});
  std::string text;
  for (const std::string& words : page.words) text += (text.empty() ? "" : " ") + words;
  about["text"] = text;
  return about;
}

Options ReadArguments(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const auto is = [&](const char* name) { return std::strcmp(argv[i], name) == 0; };
    if (is("--list")) {
      options.isListed = true;
    } else if (is("--only") && i + 1 < argc) {
      options.only = argv[++i];
    } else if (is("--set") && i + 1 < argc) {
      options.set = std::strtoull(argv[++i], nullptr, 10);
    } else if (options.folder.empty() && argv[i][0] != '-') {
      options.folder = argv[i];
    } else {
      std::fprintf(stderr, "%s: unknown, or without its value\n", argv[i]);
      std::exit(2);
    }
  }
  if (options.folder.empty() && !options.isListed) {
    std::fprintf(stderr, "rastrel_quality_pages FOLDER [--only TEXT] [--set NUMBER] [--list]\n");
    std::exit(2);
  }
  return options;
}

void DrawAll(const Options& options) {
  const drawing::Fonts fonts(kFaces);
  std::ofstream records(options.folder + "/pages.json");
  for (const Case& c : kCases) {
    const std::string name = NameOf(c);
    if (name.find(options.only) == std::string::npos) continue;
    Soil soil;
    soil.bits = c.bits;
    FindCondition(c.condition).apply(soil);
    const Content& content = FindContent(c.content);
    // Half a sheet of A4; binders with three and four holes need a whole one.
    const bool isWhole = soil.holes == Holes::kThree || soil.holes == Holes::kFour;
    const Page page = DrawPage(fonts, content, soil, isWhole ? 210 : 148, isWhole ? 297 : 210, c.dpi,
                               c.degrees, SeedOf(name, options.set));
    const json about = Describe(c, content, page, name);
    WritePage(page, options.folder + "/" + about["file"].get<std::string>());
    WriteTruth(page, options.folder + "/" + about["truth"].get<std::string>());
    records << about.dump() << "\n";
  }
}

}  // namespace
}  // namespace rastrel::quality

int main(int argc, char** argv) {
  using namespace rastrel::quality;
  const Options options = ReadArguments(argc, argv);
  if (options.isListed) {
    for (const Case& c : kCases) std::puts(NameOf(c).c_str());
    return 0;
  }
  DrawAll(options);
  return 0;
}
