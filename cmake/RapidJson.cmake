# RapidJSON, which is headers only and so serves every machine. Its folder alone goes on the include path, below a
# directory of the build: /usr/include itself would put this machine's headers before those of a foreign one.
find_path(RAPIDJSON_INCLUDE rapidjson/document.h PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/header-only)
file(CREATE_LINK ${RAPIDJSON_INCLUDE}/rapidjson ${CMAKE_BINARY_DIR}/header-only/rapidjson SYMBOLIC)
add_library(rapidjson INTERFACE)
target_include_directories(rapidjson SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/header-only)
if(KORVANDIS_SANITIZE)
  # It adds to a null pointer before its first allocation, which clang tells of.
  target_compile_options(rapidjson INTERFACE -fno-sanitize=pointer-overflow)
endif()
