#include "formats/tiff_directory.h"

#include <algorithm>

#include "formats/format.h"

namespace rastrel::formats {
namespace {

constexpr uint64_t kMostEntries = 4096;
constexpr int kMostDepth = 3;  // EXIF in a page, and one more in that

// Bytes of one value; 0 for types that nobody knows.
size_t SizeOf(uint16_t type) {
  constexpr uint8_t kSizes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 0, 0, 8, 8, 8};
  return type < std::size(kSizes) ? kSizes[type] : 0;
}

// Bytes that change places between the two orders: fractions are two numbers.
size_t UnitOf(uint16_t type) {
  constexpr uint16_t kSignedFraction = 10;
  return type == kTiffFraction || type == kSignedFraction ? 4 : SizeOf(type);
}

bool IsDirectory(uint16_t tag) { return tag == kTiffExif || tag == kTiffGps || tag == kTiffInterop; }

}  // namespace

TiffField TiffNumbers(uint16_t tag, const std::vector<uint64_t>& numbers) {
  const bool isWide = std::any_of(numbers.begin(), numbers.end(), [](uint64_t n) { return n > UINT32_MAX; });
  TiffField field = {tag, isWide ? kTiffLong8 : kTiffLong, numbers.size()};
  for (const uint64_t number : numbers) AppendLittleEndian(&field.value, number, SizeOf(field.type));
  return field;
}

TiffField TiffNumber(uint16_t tag, uint64_t number) { return TiffNumbers(tag, {number}); }

// ---- reading ----------------------------------------------------------------------------------------------

TiffReader::TiffReader(Bytes* bytes) : bytes_(bytes) {
  uint8_t head[4] = {};
  bytes_->ReadAt(0, head);
  isBigEndian_ = head[0] == 'M';
  constexpr uint64_t kBigTiff = 43;
  isBig_ = Number(2, 2) == kBigTiff;
  first_ = isBig_ ? Number(8, 8) : Number(4, 4);
}

uint64_t TiffReader::Number(uint64_t at, size_t size) const {
  uint8_t bytes[8] = {};
  if (bytes_->ReadAt(at, {bytes, size}) < size) Damaged("a directory is cut short");
  uint64_t number = 0;
  for (size_t i = 0; i < size; ++i) number = number << 8 | bytes[isBigEndian_ ? i : size - 1 - i];
  return number;
}

uint64_t TiffReader::EntriesOf(uint64_t at) const {
  const uint64_t count = Number(at, countBytes());
  if (count > kMostEntries) Damaged("a directory is too long");
  return count;
}

uint64_t TiffReader::NextAt(uint64_t at) const { return at + countBytes() + EntriesOf(at) * entryBytes(); }

std::vector<TiffReader::Entry> TiffReader::Directory(uint64_t at) const {
  const uint64_t count = EntriesOf(at);
  std::vector<Entry> entries;
  uint64_t entry = at + countBytes();
  for (uint64_t i = 0; i < count; ++i, entry += entryBytes()) {
    Entry found = {static_cast<uint16_t>(Number(entry, 2)), static_cast<uint16_t>(Number(entry + 2, 2)),
                   Number(entry + 4, word()), entry + 4 + word()};
    const uint64_t size = SizeOf(found.type);
    if (size != 0 && found.count > word() / size) found.at = Number(found.at, word());
    entries.push_back(found);
  }
  return entries;
}

TiffField TiffReader::Load(const Entry& entry) const {
  const size_t size = SizeOf(entry.type);
  if (size == 0) return {};
  if (entry.count > bytes_->size() / size) Damaged("a directory's value is cut short");
  TiffField field = {entry.tag, entry.type, entry.count};
  field.value.resize(static_cast<size_t>(entry.count) * size);
  if (bytes_->ReadAt(entry.at, field.value) < field.value.size()) Damaged("a directory's value is cut short");
  const auto unit = static_cast<std::ptrdiff_t>(UnitOf(entry.type));
  for (auto at = field.value.begin(); isBigEndian_ && at != field.value.end(); at += unit) {
    std::reverse(at, at + unit);
  }
  return field;
}

std::vector<uint64_t> TiffReader::Numbers(const Entry& entry) const {
  constexpr uint16_t kIfd = 13, kIfd8 = 18;
  std::vector<uint64_t> numbers;
  const uint16_t type = entry.type;
  if (type != kTiffShort && type != kTiffLong && type != kIfd && type != kTiffLong8 && type != kIfd8)
    return {};
  const TiffField field = Load(entry);
  const size_t size = SizeOf(type);
  for (size_t at = 0; at < field.value.size(); at += size) {
    numbers.push_back(LittleEndian(std::span(field.value).subspan(at, size)));
  }
  return numbers;
}

TiffReader::Tree TiffReader::LoadTree(uint64_t at, int depth) const {
  Tree tree;
  for (const Entry& entry : Directory(at)) {
    if (!IsDirectory(entry.tag)) {
      tree.fields.push_back(Load(entry));
      if (tree.fields.back().type == 0) tree.fields.pop_back();
      continue;
    }
    const std::vector<uint64_t> to = Numbers(entry);
    if (to.size() == 1 && depth < kMostDepth) tree.below.push_back({entry.tag, LoadTree(to[0], depth + 1)});
  }
  return tree;
}

TiffPageBytes::TiffPageBytes(Bytes* bytes, uint64_t directory) : bytes_(bytes) {
  const TiffReader reader(bytes);
  word_ = reader.word();
  first_.at = reader.FirstAt();
  next_.at = reader.NextAt(directory);
  for (size_t i = 0; i < word_; ++i)
    first_.bytes[reader.isBigEndian() ? word_ - 1 - i : i] = static_cast<uint8_t>(directory >> 8 * i);
}

size_t TiffPageBytes::ReadAt(uint64_t position, std::span<uint8_t> bytes) noexcept {
  const size_t got = bytes_->ReadAt(position, bytes);
  for (const Shown* shown : {&first_, &next_}) {
    for (size_t i = 0; i < word_; ++i) {
      const uint64_t at = shown->at + i - position;  // huge in front of what is read
      if (at < got) bytes[static_cast<size_t>(at)] = shown->bytes[i];
    }
  }
  return got;
}

// ---- writing ----------------------------------------------------------------------------------------------

void TiffWriter::WriteAt(uint64_t at, std::span<const uint8_t> bytes) {
  if (!bytes_->WriteAt(at, bytes)) NotWritten(bytes_->problem());
}

uint64_t TiffWriter::Add(std::span<const uint8_t> bytes) {
  const uint64_t at = end_ + end_ % 2;  // as TIFF wants it
  if (at != end_) WriteAt(end_, std::vector<uint8_t>(1));
  WriteAt(at, bytes);
  end_ = at + bytes.size();
  return at;
}

TiffWriter::Place TiffWriter::Add(const TiffReader::Tree& tree) {
  std::vector<TiffField> fields = tree.fields;
  for (const auto& [tag, below] : tree.below) fields.push_back(TiffNumber(tag, Add(below).at));
  std::sort(fields.begin(), fields.end(),
            [](const TiffField& a, const TiffField& b) { return a.tag < b.tag; });
  const size_t word = isBig_ ? 8 : 4;
  std::vector<uint8_t> bytes;
  AppendLittleEndian(&bytes, fields.size(), isBig_ ? 8 : 2);
  for (TiffField& field : fields) {
    AppendLittleEndian(&bytes, field.tag, 2);
    AppendLittleEndian(&bytes, field.type, 2);
    AppendLittleEndian(&bytes, field.count, word);
    if (field.value.size() > word) {
      AppendLittleEndian(&bytes, Add(field.value), word);
    } else {
      field.value.resize(word);
      bytes.insert(bytes.end(), field.value.begin(), field.value.end());
    }
  }
  const uint64_t pointer = bytes.size();
  AppendLittleEndian(&bytes, 0, word);
  const uint64_t at = Add(bytes);
  return {at, at + pointer};
}

void TiffWriter::Point(uint64_t at, uint64_t to) {
  std::vector<uint8_t> bytes;
  AppendLittleEndian(&bytes, to, isBig_ ? 8 : 4);
  WriteAt(at, bytes);
}

}  // namespace rastrel::formats
