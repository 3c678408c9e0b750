// The files of a report's site that are the same for every batch. cmake/RastrelEmbed.cmake makes them part of
// the command.
#ifndef RASTREL_TOOLS_REPORT_SITE_FILES_H
#define RASTREL_TOOLS_REPORT_SITE_FILES_H

#include <span>
#include <string_view>

namespace rastrel::tool {

struct SiteFile {
  const char* name;
  std::string_view bytes;
};
std::span<const SiteFile> SiteFiles();

}  // namespace rastrel::tool

#endif
