# Writes OUTPUT, the source of SiteFiles() of tools/report_site/files.h, from FILES:
# cmake -DFOLDER=... -DFILES="a|b" -DOUTPUT=... -P cmake/RastrelEmbed.cmake
string(REPLACE "|" ";" FILES "${FILES}")
set(arrays "")
set(entries "")
foreach(name ${FILES})
  file(READ ${FOLDER}/${name} bytes HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
  string(MAKE_C_IDENTIFIER ${name} identifier)
  string(APPEND arrays "constexpr char ${identifier}[] = {${bytes}};\n")
  string(APPEND entries "      {\"${name}\", {${identifier}, sizeof(${identifier})}},\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"tools/report_site/files.h\"

namespace rastrel::tool {
namespace {

${arrays}
}  // namespace

std::span<const SiteFile> SiteFiles() {
  static constexpr SiteFile kFiles[] = {
${entries}  };
  return kFiles;
}

}  // namespace rastrel::tool
")
