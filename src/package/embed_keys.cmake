# Writes a source file that defines package::FUNCTION(), which gives the PEM texts of the *.pem files of
# a folder; none when the folder is "".
function(qv_embed_keys folder function output)
  set(texts "")
  set(count 0)
  if(folder)
    get_filename_component(folder "${folder}" ABSOLUTE BASE_DIR ${CMAKE_SOURCE_DIR})
    file(GLOB files CONFIGURE_DEPENDS "${folder}/*.pem")
    if(NOT files)
      message(FATAL_ERROR "There is no *.pem in ${folder}: no key would be compiled in.")
    endif()
    foreach(file IN LISTS files)
      set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${file}")
      file(READ "${file}" text)
      if(NOT text MATCHES "^-----BEGIN PUBLIC KEY-----[A-Za-z0-9+/=\r\n]+-----END PUBLIC KEY-----[\r\n]*$")
        message(FATAL_ERROR "${file} is no public key in PEM, or holds more than that.")
      endif()
      string(APPEND texts "      R\"PEM(${text})PEM\",\n")
      math(EXPR count "${count} + 1")
    endforeach()
  endif()
  file(CONFIGURE OUTPUT "${output}" @ONLY CONTENT [[
// Made by the build from the folder of update keys.
#include <span>

namespace package {

std::span<const char* const> @function@() {
  static constexpr const char* kKeys[] = {
@texts@      nullptr};
  return {kKeys, @count@};
}

}  // namespace package
]])
endfunction()
