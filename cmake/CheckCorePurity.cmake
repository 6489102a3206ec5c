# Fails when a file of the portable core includes anything but the C++ standard library,
# nlohmann/json or other core headers. Run as: cmake -DCORE_DIR=... -P CheckCorePurity.cmake
file(GLOB_RECURSE files "${CORE_DIR}/*.h" "${CORE_DIR}/*.cpp")
set(standard
  algorithm any array atomic bit bitset cassert cctype cerrno cfloat charconv chrono cinttypes climits
  cmath compare concepts condition_variable cstddef cstdint cstdio cstdlib cstring ctime deque
  exception filesystem fstream functional initializer_list iomanip ios iosfwd iostream istream
  iterator limits list map memory mutex new numeric optional ostream queue random ranges ratio
  regex set shared_mutex source_location span sstream stdexcept stop_token string string_view
  system_error thread tuple type_traits typeinfo unordered_map unordered_set utility variant vector
  version)
set(bad "")
foreach(f IN LISTS files)
  file(STRINGS "${f}" lines REGEX "^[ \t]*#[ \t]*include")
  foreach(line IN LISTS lines)
    if(line MATCHES "#[ \t]*include[ \t]*[<\"]([^>\"]+)[>\"]")
      set(h "${CMAKE_MATCH_1}")
      if(h MATCHES "^core/" OR h MATCHES "^nlohmann/")
        continue()
      endif()
      list(FIND standard "${h}" found)
      if(found EQUAL -1)
        list(APPEND bad "${f}: ${h}")
      endif()
    endif()
  endforeach()
endforeach()
if(bad)
  list(JOIN bad "\n  " text)
  message(FATAL_ERROR "the core includes headers outside the standard library:\n  ${text}")
endif()
list(LENGTH files count)
message(STATUS "core purity: ${count} files include only standard and core headers")
