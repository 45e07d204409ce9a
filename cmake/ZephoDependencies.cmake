# Libraries that come installed. Each is linked by the one folder that uses it.

find_package(fmt 9 REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(OpenSSL 3 REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(ICU REQUIRED IMPORTED_TARGET icu-uc)
pkg_check_modules(libdeflate REQUIRED IMPORTED_TARGET libdeflate)

# Asio without Boost is headers only and ships no CMake file.
find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(zepho-asio INTERFACE)
target_include_directories(zepho-asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
target_compile_definitions(zepho-asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)
target_link_libraries(zepho-asio INTERFACE Threads::Threads)
