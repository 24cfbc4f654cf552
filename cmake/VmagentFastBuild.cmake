# With VMAGENT_FAST_BUILD, less processor time of a build: the C++ library's headers are compiled once
# for all libraries. It hides a forgotten include, which is found by the presets that are without:
# release, and tidy, by which clang-tidy reads each file. Tests are not compiled in batches, which
# would take as much off again: what two of a batch call alike is an error, and a new file changes
# which are in one.

# The library's headers, for every library of this folder and those below. To be called last.
function(vmagent_share_headers folder)
  if(NOT VMAGENT_FAST_BUILD)
    return()
  endif()
  if(NOT TARGET vmagent_library_headers)
    set(nothing ${PROJECT_BINARY_DIR}/LibraryHeaders.cpp)
    file(CONFIGURE OUTPUT ${nothing} CONTENT "")
    add_library(vmagent_library_headers OBJECT EXCLUDE_FROM_ALL ${nothing})
    target_precompile_headers(vmagent_library_headers PRIVATE
      <algorithm> <array> <chrono> <cstring> <deque> <filesystem> <fstream> <functional> <map>
      <memory> <mutex> <optional> <set> <span> <sstream> <stdexcept> <string> <string_view>
      <thread> <utility> <vector>)
  endif()
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(STATIC|SHARED|OBJECT|MODULE)_LIBRARY$" AND
        NOT target STREQUAL vmagent_library_headers)
      target_precompile_headers(${target} REUSE_FROM vmagent_library_headers)
    endif()
  endforeach()
  get_property(below DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(each IN LISTS below)
    vmagent_share_headers(${each})
  endforeach()
endfunction()
