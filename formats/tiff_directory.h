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
  kTiffSubfileType = 254,
  kTiffWidth = 256,
  kTiffHeight = 257,
  kTiffBitsPerSample = 258,
  kTiffCompression = 259,
  kTiffPhotometric = 262,
  kTiffStripOffsets = 273,
  kTiffOrientation = 274,
  kTiffSamplesPerPixel = 277,
  kTiffStripByteCounts = 279,
  kTiffXResolution = 282,
  kTiffYResolution = 283,
  kTiffPlanar = 284,
  kTiffResolutionUnit = 296,
  kTiffPageNumber = 297,
  kTiffColourMap = 320,
  kTiffTileWidth = 322,
  kTiffTileHeight = 323,
  kTiffTileOffsets = 324,
  kTiffTileByteCounts = 325,
  kTiffExtraSamples = 338,
  kTiffSampleFormat = 339,
  kTiffXmp = 700,
  kTiffIptc = 33723,
  kTiffPhotoshop = 34377,
  kTiffExif = 34665,
  kTiffIccProfile = 34675,
  kTiffGps = 34853,
  kTiffHistory = 37395,  // of TIFF/EP: what was done to the picture, a line each time
  kTiffInterop = 40965
};

enum TiffCompression : uint16_t {
  kTiffNone = 1,
  kTiffFax3 = 3,
  kTiffFax4 = 4,
  kTiffLzw = 5,
  kTiffOldJpeg = 6,
  kTiffJpeg = 7,
  kTiffDeflate = 8,
  kTiffPackBits = 32773,
  kTiffOldDeflate = 32946,
  kTiffLzma = 34925,
  kTiffZstd = 50000
};

// Blocks that TIFF pages have, and the items that they are.
struct TiffBlock {
  uint16_t tag;
  const char* item;
};
inline constexpr TiffBlock kTiffBlocks[] = {
    {kTiffIccProfile, "icc"}, {kTiffXmp, "xmp"}, {kTiffPhotoshop, "photoshop"}, {kTiffIptc, "iptc"}};
inline constexpr const char* kTiffMetadata =
    "icc,xmp,photoshop,iptc,description,artist,copyright,date,page-name,page-number,document,make,model,"
    "software,exif,history,tiff";

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
  // Where the directory after that one is, 0 for none; and where that is told.
  uint64_t Next(uint64_t at) const { return Number(NextAt(at), word()); }
  uint64_t NextAt(uint64_t at) const;
  uint64_t FirstAt() const { return isBig_ ? 8 : 4; }
  // Bytes of an offset.
  size_t word() const { return isBig_ ? 8 : 4; }
  TiffField Load(const Entry& entry) const;
  // Whole numbers; none for other types.
  std::vector<uint64_t> Numbers(const Entry& entry) const;
  // The directory with its values, and those that it points to: EXIF and what belongs to it.
  struct Branch;
  struct Tree {
    std::vector<TiffField> fields;
    std::vector<Branch> below;
  };
  Tree LoadTree(uint64_t at, int depth = 0) const;

 private:
  uint64_t Number(uint64_t at, size_t bytes) const;
  uint64_t EntriesOf(uint64_t at) const;
  // Bytes of the number of entries, and of an entry.
  size_t countBytes() const { return isBig_ ? 8 : 2; }
  size_t entryBytes() const { return 4 + 2 * word(); }

  Bytes* bytes_;
  bool isBigEndian_ = false, isBig_ = false;
  uint64_t first_ = 0;
};
struct TiffReader::Branch {
  uint16_t tag;
  Tree tree;
};

// A file with one of its pages shown as the only one. Its pages are a chain, which codecs follow from the
// first page on to get to any other: for a file of thousands of pages that takes minutes. Here two pointers
// are shown differently from how they stand in the file, so that the way is short.
class TiffPageBytes : public Bytes {
 public:
  TiffPageBytes(Bytes* bytes, uint64_t directory);
  size_t ReadAt(uint64_t position, std::span<uint8_t> bytes) noexcept override;
  bool WriteAt(uint64_t, std::span<const uint8_t>) noexcept override { return Fail("cannot be changed"); }
  uint64_t size() noexcept override { return bytes_->size(); }

 private:
  struct Shown {
    uint64_t at = 0;
    uint8_t bytes[8] = {};
  };

  Bytes* bytes_;
  size_t word_;
  Shown first_, next_;
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
