// What TIFF pages say beside their pixels.
#ifndef RASTREL_FORMATS_TIFF_METADATA_H
#define RASTREL_FORMATS_TIFF_METADATA_H

#include <tiffio.h>

#include "pages/metadata.h"

namespace rastrel::formats {

// The items that libtiff's open page has.
void ReadMetadata(TIFF* file, pages::Metadata* metadata);
// Gives them to a page that is being written. Returns false where libtiff has no memory for them.
bool WriteMetadata(TIFF* file, const pages::Metadata& metadata);

}  // namespace rastrel::formats

#endif
