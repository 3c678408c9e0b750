// Pictures of pages for a report.
#ifndef RASTREL_TOOLS_BATCH_PICTURES_H
#define RASTREL_TOOLS_BATCH_PICTURES_H

#include <string>

namespace rastrel::tool {

// Writes a page of a file as a JPEG picture for a screen, and a small one where `smallPath` is not empty.
// Throws PageError.
void WritePicture(const std::string& file, int page, const std::string& path, const std::string& smallPath);

// How dark a picture is beside its paper, which is its usual light: 0 to 1; of a black-and-white page it is
// about the share that is black. Throws PageError.
double DarkShare(const std::string& path);

}  // namespace rastrel::tool

#endif
