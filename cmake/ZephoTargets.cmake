# What every target of the project shares, and the functions that declare targets.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

find_program(ZEPHO_CCACHE ccache)
if(ZEPHO_CCACHE)
  # Results depend neither on where the tree lies nor on the language of messages, so that a fresh clone
  # finds those of another.
  set(ZEPHO_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1
                     CCACHE_SLOPPINESS=locale ${ZEPHO_CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${ZEPHO_LAUNCHER})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${ZEPHO_LAUNCHER})
endif()

find_package(Threads REQUIRED)

# Flags of our own code, carried by one interface target.
add_library(zepho-flags INTERFACE)
target_include_directories(zepho-flags INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(zepho-flags INTERFACE -Wall -Wextra -Wpedantic
                                             $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>
                                             -Wnon-virtual-dtor -Woverloaded-virtual -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(zepho-flags INTERFACE -Wthread-safety)
endif()
target_link_libraries(zepho-flags INTERFACE Threads::Threads)
if(ZEPHO_SANITIZE)
  add_compile_options(-fsanitize=${ZEPHO_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZEPHO_SANITIZE})
  if(ZEPHO_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
  if(ZEPHO_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # gcc warns that it does not model stand-alone fences, which Asio uses.
    add_compile_options(-Wno-tsan)
  endif()
endif()

# zepho_module(NAME SOURCES a.cpp … [USES other modules] [LIBS libraries of its own .cpp files])
# One folder of core/ as the static library zepho-NAME. USES are the lower floors it may include.
function(zepho_module name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES;LIBS" ${ARGN})
  add_library(zepho-${name} STATIC ${ARG_SOURCES})
  target_link_libraries(zepho-${name} PUBLIC zepho-flags)
  foreach(used IN LISTS ARG_USES)
    target_link_libraries(zepho-${name} PUBLIC zepho-${used})
  endforeach()
  target_link_libraries(zepho-${name} PRIVATE ${ARG_LIBS})
endfunction()

# zepho_test(NAME SOURCES a.cpp … [LIBS …]): one test program, each of its cases a CTest of its own.
function(zepho_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(test-${name} ${ARG_SOURCES})
  target_link_libraries(test-${name} PRIVATE zepho-test-support ${ARG_LIBS})
  gtest_discover_tests(test-${name} TEST_PREFIX "${name}." DISCOVERY_TIMEOUT 60
                       PROPERTIES TIMEOUT 120)
endfunction()
