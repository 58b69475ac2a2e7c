# Writes a source file that holds other files: cmake -DOUTPUT=... -DFILES=... -P embed_files.cmake
# FILES is a list of triples: path of the request, media type, name of the file.
set(text "// Made by embed_files.cmake.\n#include <array>\n\n#include \"host/http/static_files.h\"\n\nnamespace host {\n\nnamespace {\n\n")
set(table "")
set(number 0)
while(FILES)
  list(POP_FRONT FILES path type name)
  file(READ "${name}" bytes HEX)
  file(SHA256 "${name}" hash)
  string(SUBSTRING "${hash}" 0 16 tag)
  string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
  string(APPEND text "constexpr char kFile${number}[] = {${bytes}'\\0'};\n")
  string(APPEND table
    "    StaticFile{\"${path}\", \"${type}\", \"\\\"${tag}\\\"\", {kFile${number}, sizeof kFile${number} - 1}},\n")
  math(EXPR number "${number} + 1")
endwhile()
string(APPEND text "\nconstexpr std::array kFiles = {\n${table}};\n\n}  // namespace\n\n"
  "std::span<const StaticFile> StaticFiles() { return kFiles; }\n\n}  // namespace host\n")
file(WRITE "${OUTPUT}" "${text}")
