#include "formats/tiff_document.h"

#include <algorithm>

namespace rastrel::formats {
namespace {

constexpr uint64_t kHeaderBytes = 16;  // of BigTIFF, the longer one
constexpr uint64_t kFirstAt = 4, kBigFirstAt = 8;

const TiffReader::Entry& EntryOf(const std::vector<TiffReader::Entry>& entries, uint16_t tag) {
  for (const TiffReader::Entry& entry : entries) {
    if (entry.tag == tag) return entry;
  }
  Damaged("a page has no rows");
}

}  // namespace

TiffDocument::TiffDocument(Bytes* bytes, uint64_t mostBytes)
    : bytes_(bytes), mostBytes_(mostBytes), writer_(bytes, kHeaderBytes, /*isBig=*/false) {
  WriteHeader();
}

void TiffDocument::WriteHeader() {
  constexpr uint8_t kPlain[kHeaderBytes] = {'I', 'I', 42}, kBig[kHeaderBytes] = {'I', 'I', 43, 0, 8};
  if (!bytes_->WriteAt(0, writer_.isBig() ? kBig : kPlain)) NotWritten(bytes_->problem());
  nextAt_ = writer_.isBig() ? kBigFirstAt : kFirstAt;
}

void TiffDocument::Chain(TiffWriter::Place place) {
  writer_.Point(nextAt_, place.at);
  nextAt_ = place.nextAt;
}

void TiffDocument::BecomeBig() {
  const TiffReader before(bytes_);
  writer_.UseBig();
  std::vector<TiffWriter::Place> places;
  for (uint64_t& directory : directories_) {
    places.push_back(writer_.Add(before.LoadTree(directory)));
    directory = places.back().at;
  }
  WriteHeader();
  for (const TiffWriter::Place& place : places) Chain(place);
}

void TiffDocument::Append(std::span<const uint8_t> encoded) {
  // Its directory may grow by as much when its numbers become longer.
  if (!writer_.isBig() &&
      writer_.end() + 2 * kHeaderBytes + encoded.size() + encoded.size() / 16 > mostBytes_) {
    BecomeBig();
  }
  BorrowedBytes bytes(encoded);
  const TiffReader page(&bytes);
  const std::vector<TiffReader::Entry> entries = page.Directory(page.first());
  const std::vector<uint64_t> from = page.Numbers(EntryOf(entries, kTiffStripOffsets));
  const std::vector<uint64_t> sizes = page.Numbers(EntryOf(entries, kTiffStripByteCounts));
  std::vector<uint64_t> to;
  for (size_t i = 0; i < from.size() && i < sizes.size(); ++i) {
    if (from[i] > encoded.size() || sizes[i] > encoded.size() - from[i])
      Damaged("a page's rows are cut short");
    to.push_back(writer_.Add(encoded.subspan(static_cast<size_t>(from[i]), static_cast<size_t>(sizes[i]))));
  }
  TiffReader::Tree tree = page.LoadTree(page.first());
  for (TiffField& field : tree.fields) {
    if (field.tag == kTiffStripOffsets) field = TiffNumbers(kTiffStripOffsets, to);
  }
  const TiffWriter::Place place = writer_.Add(tree);
  Chain(place);
  directories_.push_back(place.at);
}

}  // namespace rastrel::formats
