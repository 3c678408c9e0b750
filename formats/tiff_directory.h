// Directories of TIFF files as they stand there, for what libtiff does not do: files that become BigTIFF
// while they grow, and EXIF blocks, which are small TIFF files.
#ifndef RASTREL_FORMATS_TIFF_DIRECTORY_H
#define RASTREL_FORMATS_TIFF_DIRECTORY_H

#include <cstdint>
#include <vector>

#include "formats/bytes.h"

namespace rastrel::formats {

enum TiffType : uint16_t {
  kTiffAscii = 2,
  kTiffShort = 3,
  kTiffLong = 4,
  kTiffFraction = 5,
  kTiffLong8 = 16
};
enum TiffTag : uint16_t {
  kTiffStripOffsets = 273,
  kTiffStripByteCounts = 279,
  kTiffExif = 34665,
  kTiffGps = 34853,
  kTiffHistory = 37395,  // of TIFF/EP: what was done to the picture, a line each time
  kTiffInterop = 40965
};

// Texts of a page that TIFF files and EXIF blocks have a place for, and the items that they are.
struct TiffText {
  uint16_t tag;
  const char* item;
  bool isInExif;
};
inline constexpr TiffText kTiffTexts[] = {
    {269, "document", false}, {270, "description", true}, {271, "make", true},
    {272, "model", true},     {285, "page-name", false},  {305, "software", true},
    {306, "date", true},      {315, "artist", true},      {33432, "copyright", true}};

// An entry with its value, in little-endian order whatever the file has.
struct TiffField {
  uint16_t tag = 0, type = 0;
  uint64_t count = 0;
  std::vector<uint8_t> value = {};
};
TiffField TiffNumber(uint16_t tag, uint64_t number);  // of 32 bits where that is enough
TiffField TiffNumbers(uint16_t tag, const std::vector<uint64_t>& numbers);

// Entries of any file. Whatever lies behind its end is an error, PageError.
class TiffReader {
 public:
  struct Entry {
    uint16_t tag, type;
    uint64_t count, at;  // where its value is
  };

  explicit TiffReader(Bytes* bytes);
  uint64_t first() const { return first_; }
  bool isBigEndian() const { return isBigEndian_; }
  bool isBig() const { return isBig_; }
  std::vector<Entry> Directory(uint64_t at) const;
  // Where the directory after that one is; 0 for none.
  uint64_t Next(uint64_t at) const;
  TiffField Load(const Entry& entry) const;
  // Whole numbers; none for other types.
  std::vector<uint64_t> Numbers(const Entry& entry) const;
  // The directory with its values, and those that it points to: EXIF and what belongs to it.
  struct Tree {
    std::vector<TiffField> fields;
    std::vector<std::pair<uint16_t, Tree>> below;
  };
  Tree LoadTree(uint64_t at, int depth = 0) const;

 private:
  uint64_t Number(uint64_t at, size_t bytes) const;
  uint64_t EntriesOf(uint64_t at) const;
  // Bytes of an offset, of the number of entries, and of an entry.
  size_t word() const { return isBig_ ? 8 : 4; }
  size_t countBytes() const { return isBig_ ? 8 : 2; }
  size_t entryBytes() const { return 4 + 2 * word(); }

  Bytes* bytes_;
  bool isBigEndian_ = false, isBig_ = false;
  uint64_t first_ = 0;
};

// Writes directories to the end of a file, values first, and remembers where that is.
class TiffWriter {
 public:
  TiffWriter(Bytes* bytes, uint64_t end, bool isBig) : bytes_(bytes), end_(end), isBig_(isBig) {}
  uint64_t end() const { return end_; }
  bool isBig() const { return isBig_; }
  void UseBig() { isBig_ = true; }

  // Throw PageError.
  uint64_t Add(std::span<const uint8_t> bytes);
  struct Place {
    uint64_t at, nextAt;  // of the directory, and of its pointer to the next one, which is 0
  };
  Place Add(const TiffReader::Tree& tree);
  // Writes a pointer over the one that is there.
  void Point(uint64_t at, uint64_t to);

 private:
  void WriteAt(uint64_t at, std::span<const uint8_t> bytes);

  Bytes* bytes_;
  uint64_t end_;
  bool isBig_;
};

}  // namespace rastrel::formats

#endif
