// Writes drawn pages as PNG and JPEG files.
#ifndef RASTREL_BENCH_PAGE_QUALITY_PICTURE_FILES_H
#define RASTREL_BENCH_PAGE_QUALITY_PICTURE_FILES_H

#include <string>

#include "bench/page_quality/soil.h"

namespace rastrel::quality {

// JPEG where the page has a quality, otherwise PNG of the page's depth; with its resolution. Ends the program
// where the file cannot be written.
void WritePage(const Page& page, const std::string& path);
void WriteTruth(const Page& page, const std::string& path);

}  // namespace rastrel::quality

#endif
