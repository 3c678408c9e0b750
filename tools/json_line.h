// Records as lines of JSON.
#ifndef RASTREL_TOOLS_JSON_LINE_H
#define RASTREL_TOOLS_JSON_LINE_H

#include <string>

#include <nlohmann/json.hpp>

namespace rastrel::tool {

// A file name may be any bytes; JSON wants UTF-8.
inline std::string JsonLine(const nlohmann::ordered_json& json) {
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace rastrel::tool

#endif
