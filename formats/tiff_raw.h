// TIFF pages with the samples that they have.
#ifndef RASTREL_FORMATS_TIFF_RAW_H
#define RASTREL_FORMATS_TIFF_RAW_H

#include <tiffio.h>

#include "formats/format.h"

namespace rastrel::formats {

// Whether the open page's samples can be had one by one: not those of subsampled colours and the like.
bool HasRawSamples(TIFF* file);
// Throws PageError where the size or a limit forbids it. Returns false when libtiff reports an error.
bool ReadRawSamples(TIFF* file, const Reading& reading, Raw* page);
// The fields that say what samples are, for a page that is written.
void SetRawFields(TIFF* file, const Raw& page);
// A row as the file has it.
std::vector<uint8_t> PackedRow(const Raw& page, int32_t y);

}  // namespace rastrel::formats

#endif
