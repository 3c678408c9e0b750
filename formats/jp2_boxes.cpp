#include "formats/jp2_boxes.h"

#include <array>
#include <cmath>
#include <string_view>

namespace rastrel::formats {
namespace {

using namespace std::string_view_literals;
using Bytes8 = std::vector<uint8_t>;

constexpr std::string_view kXmpId = "\xBE\x7A\xCF\xCB\x97\xA9\x42\xE8\x9C\x71\x99\x94\x91\xE3\xAF\xAC"sv;

uint64_t Number(std::span<const uint8_t> bytes, size_t at, size_t count) {
  uint64_t number = 0;
  for (size_t i = 0; i < count; ++i) number = number << 8 | (at + i < bytes.size() ? bytes[at + i] : 0u);
  return number;
}

void Put(Bytes8* bytes, uint64_t number, size_t count) {
  for (size_t i = count; i-- > 0;) bytes->push_back(static_cast<uint8_t>(number >> (8 * i)));
}

struct Box {
  std::string_view name;
  std::span<const uint8_t> all, body;  // with and without its head
};

std::vector<Box> BoxesOf(std::span<const uint8_t> bytes) {
  std::vector<Box> boxes;
  constexpr size_t kHeadBytes = 8, kLongHeadBytes = 16;
  while (bytes.size() >= kHeadBytes) {
    uint64_t size = Number(bytes, 0, 4);
    size_t head = kHeadBytes;
    if (size == 1 && bytes.size() >= kLongHeadBytes) {
      size = Number(bytes, 8, 8);
      head = kLongHeadBytes;
    }
    if (size == 0) size = bytes.size();  // up to the end
    if (size < head || size > bytes.size()) break;
    const auto count = static_cast<size_t>(size);
    boxes.push_back({{reinterpret_cast<const char*>(bytes.data()) + 4, 4},
                     bytes.first(count),
                     bytes.subspan(head, count - head)});
    bytes = bytes.subspan(count);
  }
  return boxes;
}

void PutBox(Bytes8* file, std::string_view name, std::span<const uint8_t> body) {
  Put(file, body.size() + 8, 4);
  file->insert(file->end(), name.begin(), name.end());
  file->insert(file->end(), body.begin(), body.end());
}

// Pixels per metre: a fraction of 16-bit numbers and a power of ten, down before across.
Resolution ResolutionOf(std::span<const uint8_t> body) {
  const auto value = [&](size_t fraction, size_t power) {
    const double below = static_cast<double>(Number(body, fraction + 2, 2));
    if (below == 0) return int32_t{0};
    double dots = static_cast<double>(Number(body, fraction, 2)) / below;
    auto exponent = static_cast<int8_t>(Number(body, power, 1));
    for (; exponent > 0 && dots < 1e9; --exponent) dots *= 10;
    for (; exponent < 0 && dots > 1e-9; ++exponent) dots /= 10;
    return dots < 1e8 ? static_cast<int32_t>(std::floor(dots + 0.5)) : 0;
  };
  return {value(4, 9), value(0, 8)};
}

Bytes8 ResolutionBox(Resolution resolution) {
  Bytes8 body, box;
  for (const int32_t dots : {resolution.y, resolution.x}) {
    // 16 bits hold what scanners have; from there on tens are counted.
    Put(&body, static_cast<uint64_t>(dots <= 0xFFFF ? dots : dots / 1000), 2);
    Put(&body, 1, 2);
  }
  for (const int32_t dots : {resolution.y, resolution.x}) Put(&body, dots <= 0xFFFF ? 0 : 3, 1);
  PutBox(&box, "resc", body);
  return box;
}

Bytes8 HeaderWith(std::span<const uint8_t> header, const Jp2Extras& extras) {
  Bytes8 made;
  for (const Box& box : BoxesOf(header)) {
    if (box.name == "res ") continue;
    if (box.name == "colr" && !extras.profile.empty()) {
      Bytes8 body = {2, 0, 0};  // a profile follows
      body.insert(body.end(), extras.profile.begin(), extras.profile.end());
      PutBox(&made, "colr", body);
    } else {
      made.insert(made.end(), box.all.begin(), box.all.end());
    }
  }
  if (extras.resolution.x > 0 && extras.resolution.y > 0)
    PutBox(&made, "res ", ResolutionBox(extras.resolution));
  return made;
}

// Bits of the first samples as the codestream tells them; 0 where it does not.
int DepthOf(std::span<const uint8_t> codestream) {
  constexpr uint64_t kStartAndSize = 0xFF4FFF51;
  constexpr size_t kDepthAt = 42;  // after the sizes of picture and tiles, and the number of components
  if (Number(codestream, 0, 4) != kStartAndSize || codestream.size() <= kDepthAt) return 0;
  return (codestream[kDepthAt] & 0x7F) + 1;
}

// Bits of a palette's colours.
int PaletteDepthOf(std::span<const uint8_t> body) {
  constexpr size_t kDepthAt = 3;  // after the numbers of entries and columns
  return body.size() > kDepthAt ? (body[kDepthAt] & 0x7F) + 1 : 0;
}

}  // namespace

Jp2Extras ReadJp2Extras(std::span<const uint8_t> file) {
  Jp2Extras extras;
  extras.depth = DepthOf(file);
  int paletteDepth = 0;
  for (const Box& box : BoxesOf(file)) {
    const std::string_view body(reinterpret_cast<const char*>(box.body.data()), box.body.size());
    if (box.name == "uuid" && body.starts_with(kXmpId))
      extras.xmp.assign(box.body.begin() + static_cast<ptrdiff_t>(kXmpId.size()), box.body.end());
    if (box.name == "jp2c") extras.depth = DepthOf(box.body);
    if (box.name != "jp2h") continue;
    for (const Box& part : BoxesOf(box.body)) {
      if (part.name == "pclr") paletteDepth = PaletteDepthOf(part.body);
      if (part.name != "res ") continue;
      for (const Box& kind : BoxesOf(part.body)) {
        // That of the capture goes before that of a display.
        const bool isCapture = kind.name == "resc";
        if (isCapture || (kind.name == "resd" && extras.resolution.x == 0))
          extras.resolution = ResolutionOf(kind.body);
      }
    }
  }
  if (paletteDepth != 0) extras.depth = paletteDepth;
  return extras;
}

std::vector<uint8_t> WithJp2Extras(std::span<const uint8_t> file, const Jp2Extras& extras) {
  Bytes8 made;
  made.reserve(file.size() + extras.xmp.size() + extras.profile.size() + 100);
  for (const Box& box : BoxesOf(file)) {
    if (box.name == "jp2h") {
      PutBox(&made, "jp2h", HeaderWith(box.body, extras));
      continue;
    }
    if (box.name == "jp2c" && !extras.xmp.empty()) {
      Bytes8 body(kXmpId.begin(), kXmpId.end());
      body.insert(body.end(), extras.xmp.begin(), extras.xmp.end());
      PutBox(&made, "uuid", body);
    }
    made.insert(made.end(), box.all.begin(), box.all.end());
  }
  return made;
}

}  // namespace rastrel::formats
