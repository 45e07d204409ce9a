# Libraries that come installed. Each is linked by the one folder that uses it.

find_package(CURL REQUIRED)
find_package(fmt 9 REQUIRED)
find_package(hwy 1.0 REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(OpenSSL 3 REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(ICU REQUIRED IMPORTED_TARGET icu-uc)
pkg_check_modules(libdeflate REQUIRED IMPORTED_TARGET libdeflate)

# miniaudio: an installed header that is new enough, else the copy of scripts/fetch-miniaudio.
find_path(MINIAUDIO_INCLUDE_DIR miniaudio.h)
if(MINIAUDIO_INCLUDE_DIR)
  file(STRINGS ${MINIAUDIO_INCLUDE_DIR}/miniaudio.h ZEPHO_MINIAUDIO_LINES
       REGEX "^#define MA_VERSION_(MAJOR|MINOR|REVISION) +[0-9]+")
  string(REGEX REPLACE "[^0-9;]" "" ZEPHO_MINIAUDIO_VERSION "${ZEPHO_MINIAUDIO_LINES}")
  string(REPLACE ";" "." ZEPHO_MINIAUDIO_VERSION "${ZEPHO_MINIAUDIO_VERSION}")
endif()
if(NOT MINIAUDIO_INCLUDE_DIR OR ZEPHO_MINIAUDIO_VERSION VERSION_LESS 0.11.25)
  set(ZEPHO_MINIAUDIO_DIR ${CMAKE_SOURCE_DIR}/third_party/miniaudio)
  if(NOT EXISTS ${ZEPHO_MINIAUDIO_DIR}/miniaudio.h)
    message(FATAL_ERROR "miniaudio.h is missing: run scripts/setup")
  endif()
else()
  set(ZEPHO_MINIAUDIO_DIR ${MINIAUDIO_INCLUDE_DIR})
endif()
add_library(zepho-miniaudio INTERFACE)
target_include_directories(zepho-miniaudio SYSTEM INTERFACE ${ZEPHO_MINIAUDIO_DIR})

find_path(STB_INCLUDE_DIR stb/stb_vorbis.h REQUIRED)
add_library(zepho-stb INTERFACE)
target_include_directories(zepho-stb SYSTEM INTERFACE ${STB_INCLUDE_DIR})

# The window is built where Qt is installed; everything else does without.
find_package(Qt6 6.4 QUIET COMPONENTS Widgets Network Svg DBus Test)
if(NOT Qt6_FOUND)
  message(STATUS "The window is left out: Qt is not installed (scripts/setup --window)")
endif()
