#include "pages/painted.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace rastrel::pages {
namespace {

struct Bytes {
  size_t from, count;
};
Bytes BytesOf(const PageView& page, int first, int end) {
  const auto bits = static_cast<size_t>(page.bits());
  const size_t from = static_cast<size_t>(first) * bits / 8;
  return {from, (static_cast<size_t>(end) * bits + 7) / 8 - from};
}

}  // namespace

void Painted::Row::PutBack(const PageView& page, uint8_t* to) const {
  size_t end = bytes.size();
  for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
    const Bytes place = BytesOf(page, part->first, part->end);
    end -= place.count;
    std::memcpy(to + place.from, bytes.data() + end, place.count);
  }
}

void Painted::Keep(const PageView& page, int y, int first, int end) {
  if (static_cast<size_t>(y) >= rows_.size()) rows_.resize(static_cast<size_t>(y) + 1);
  Row& row = rows_[static_cast<size_t>(y)];
  const Bytes all = BytesOf(page, 0, page.width()), bytes = BytesOf(page, first, end);
  if (row.bytes.size() == all.count) return;  // there is nothing that it lacks
  const uint8_t* const from = page.PageRow(y);
  // As vectors grow they take up to twice the room of what is in them.
  const size_t size = row.bytes.size() + bytes.count + (row.parts.size() + 1) * sizeof(Part);
  if (size * 2 > all.count) {
    std::vector<uint8_t> whole(from, from + all.count);
    row.PutBack(page, whole.data());
    row.bytes = std::move(whole);
    row.parts = {{0, page.width()}};
    return;
  }
  row.parts.push_back({first, end});
  row.bytes.insert(row.bytes.end(), from + bytes.from, from + bytes.from + bytes.count);
}

Missing Painted::PaintedOver(const PageView& page, const BitPlane& ink, const BitPlane& named) const {
  Missing missing;
  const size_t bytesOfWord = 8 * static_cast<size_t>(page.bits());  // of 64 pixels
  std::vector<uint8_t> before(page.stride());
  std::vector<uint64_t> asked(ink.wordsPerRow());
  for (size_t r = 0; r < rows_.size(); ++r) {
    if (rows_[r].parts.empty()) continue;
    const auto y = static_cast<int>(r);
    std::fill(asked.begin(), asked.end(), 0);
    for (const Part& part : rows_[r].parts) {
      for (int word = part.first / 64; word * 64 < part.end; ++word) {
        const int left = std::max(part.first - word * 64, 0), right = std::min(part.end - word * 64, 64);
        asked[static_cast<size_t>(word)] |= ~uint64_t{0} >> left & ~uint64_t{0} << (64 - right);
      }
    }
    uint64_t any = 0;
    for (size_t i = 0; i < asked.size(); ++i)
      any |= asked[i] &= ink.Row(y)[i] & ~(named.isEmpty() ? 0 : named.Row(y)[i]);
    if (any == 0) continue;
    rows_[r].PutBack(page, before.data());
    const uint8_t* const now = page.PageRow(y);
    for (size_t i = 0; i < asked.size(); ++i) {
      const size_t from = i * bytesOfWord, to = std::min(from + bytesOfWord, page.stride());
      if (asked[i] == 0 || std::memcmp(before.data() + from, now + from, to - from) == 0) continue;
      for (uint64_t bits = asked[i]; bits != 0; bits &= bits - 1) {
        const int x = static_cast<int>(i) * 64 + 63 - std::countr_zero(bits);
        if (!SamePixel(page, before.data(), now, x)) missing.Add(x, y, x + 1, y + 1, 1);
      }
    }
  }
  return missing;
}

void Painted::TakeBack(const PageView& page) {
  for (size_t y = 0; y < rows_.size(); ++y) rows_[y].PutBack(page, page.PageRow(static_cast<int>(y)));
  *this = Painted();
}

}  // namespace rastrel::pages
