// Pictures of pages for a report.
#ifndef RASTREL_TOOLS_BATCH_PICTURES_H
#define RASTREL_TOOLS_BATCH_PICTURES_H

#include <string>

namespace rastrel::tool {

// Writes a page of a file as a JPEG picture for a screen, and a small one where `smallPath` is not empty.
// Throws PageError.
void WritePicture(const std::string& file, int page, const std::string& path, const std::string& smallPath);

}  // namespace rastrel::tool

#endif
