#include "pages/painted.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <tuple>

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

struct Change {
  int y, x;
  bool isOther;  // than before
};

}  // namespace

void Painted::Keep(const PageView& page, int y, int first, int end) {
  const Bytes bytes = BytesOf(page, first, end);
  parts_.push_back({y, first, end, bytes_.size()});
  const uint8_t* const from = page.PageRow(y) + bytes.from;
  bytes_.insert(bytes_.end(), from, from + bytes.count);
}

Missing Painted::PaintedOver(const PageView& page, const BitPlane& ink, const BitPlane& named) const {
  std::vector<Change> changes;
  std::vector<uint8_t> row(page.stride());
  for (const Part& part : parts_) {
    bool isRowKnown = false;
    for (int word = part.first / 64; word * 64 < part.end; ++word) {
      const int left = std::max(part.first - word * 64, 0), right = std::min(part.end - word * 64, 64);
      uint64_t bits = ink.Row(part.row)[word] & ~uint64_t{0} >> left & ~uint64_t{0} << (64 - right);
      if (!named.isEmpty()) bits &= ~named.Row(part.row)[word];
      if (bits != 0 && !isRowKnown) {
        const Bytes bytes = BytesOf(page, part.first, part.end);
        std::memcpy(row.data() + bytes.from, bytes_.data() + part.at, bytes.count);
        isRowKnown = true;
      }
      for (; bits != 0; bits &= bits - 1) {
        const int x = word * 64 + 63 - std::countr_zero(bits);
        changes.push_back({part.row, x, !SamePixel(page, row.data(), page.PageRow(part.row), x)});
      }
    }
  }
  // Of what was painted more than once the first part has what was there before.
  std::stable_sort(changes.begin(), changes.end(),
                   [](const Change& a, const Change& b) { return std::tie(a.y, a.x) < std::tie(b.y, b.x); });
  Missing missing;
  const Change* last = nullptr;
  for (const Change& change : changes) {
    const bool isKnown = last != nullptr && last->y == change.y && last->x == change.x;
    if (!isKnown && change.isOther) missing.Add(change.x, change.y, change.x + 1, change.y + 1, 1);
    last = &change;
  }
  return missing;
}

void Painted::TakeBack(const PageView& page) {
  for (auto part = parts_.rbegin(); part != parts_.rend(); ++part) {
    const Bytes bytes = BytesOf(page, part->first, part->end);
    std::memcpy(page.PageRow(part->row) + bytes.from, bytes_.data() + part->at, bytes.count);
  }
  *this = Painted();
}

}  // namespace rastrel::pages
