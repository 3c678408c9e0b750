// File names as paths and back. They are UTF-8 where the system's own are not bytes.
#ifndef RASTREL_TOOLS_PATHS_H
#define RASTREL_TOOLS_PATHS_H

#include <filesystem>
#include <string>

namespace rastrel::tool {

inline std::filesystem::path PathOf(const std::string& name) {
  return std::filesystem::path(std::u8string(name.begin(), name.end()));
}

inline std::string NameOf(const std::filesystem::path& path) {
  const std::u8string name = path.u8string();
  return {name.begin(), name.end()};
}

}  // namespace rastrel::tool

#endif
