// TIFF files of many pages under way.
#ifndef RASTREL_FORMATS_TIFF_DOCUMENT_H
#define RASTREL_FORMATS_TIFF_DOCUMENT_H

#include <vector>

#include "formats/format.h"
#include "formats/tiff_directory.h"

namespace rastrel::formats {

// Pages, each made as a file of its own, follow each other. The file begins as plain TIFF with room for the
// longer header of BigTIFF. When it would outgrow 4 GiB, the directories, which are short, are written once
// more in their larger form; nothing else moves.
class TiffDocument : public Document {
 public:
  // `mostBytes`: of a plain file.
  explicit TiffDocument(Bytes* bytes, uint64_t mostBytes = UINT32_MAX);
  void Append(std::span<const uint8_t> encoded) override;
  void Close() override {}

 private:
  void WriteHeader();
  void BecomeBig();
  void Chain(TiffWriter::Place place);

  Bytes* bytes_;
  uint64_t mostBytes_;
  TiffWriter writer_;
  std::vector<uint64_t> directories_;
  uint64_t nextAt_ = 0;  // where the pointer to the next directory is
};

}  // namespace rastrel::formats

#endif
