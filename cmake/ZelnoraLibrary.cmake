# What every one of the kit's three libraries shares as a packaged target: the name consumers see
# (zelnora::<name>), the shared-object version, the generated export header and its visibility.
include_guard(GLOBAL)
include(GenerateExportHeader)

# Directory holding the generated export headers (<folder>/export.h) in the build tree.
set(ZELNORA_GENERATED_INCLUDE_DIR ${PROJECT_BINARY_DIR}/generated/include)

if(ZELNORA_HIDDEN_VISIBILITY AND BUILD_SHARED_LIBS AND ZELNORA_BUILD_TESTS)
  message(WARNING "Some tests call internal functions (declared under <folder>/src/), which a "
    "shared build with ZELNORA_HIDDEN_VISIBILITY does not export: build the tests static "
    "(BUILD_SHARED_LIBS=OFF) or set ZELNORA_BUILD_TESTS=OFF for this build.")
endif()

# zelnora_library_properties(<target> EXPORT_NAME <name> HEADER_FOLDER <folder> MACRO_BASE <BASE>)
#
# Makes <folder>/export.h with <BASE>_EXPORT / <BASE>_NO_EXPORT / <BASE>_DEPRECATED. A static build
# defines <BASE>_STATIC_DEFINE for the library and its consumers, so the macros expand to nothing.
function(zelnora_library_properties target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "EXPORT_NAME;HEADER_FOLDER;MACRO_BASE" "")
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${arg_EXPORT_NAME}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    # Installed shared objects find each other beside themselves, wherever the prefix is.
    INSTALL_RPATH "$ORIGIN"
    # scripts/lint runs clang-tidy over the combined file of a unity build, whose including of
    # .cpp files is the point.
    UNITY_BUILD_CODE_BEFORE_INCLUDE "// NOLINTNEXTLINE(bugprone-suspicious-include)")

  generate_export_header(${target}
    BASE_NAME ${arg_MACRO_BASE}
    EXPORT_FILE_NAME ${ZELNORA_GENERATED_INCLUDE_DIR}/${arg_HEADER_FOLDER}/export.h)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${ZELNORA_GENERATED_INCLUDE_DIR}>)

  get_target_property(type ${target} TYPE)
  if(type STREQUAL "STATIC_LIBRARY")
    target_compile_definitions(${target} PUBLIC ${arg_MACRO_BASE}_STATIC_DEFINE)
  endif()

  # The public declarations carry the export macros, so a shared build can hide everything else;
  # with the option off every symbol stays visible.
  if(ZELNORA_HIDDEN_VISIBILITY)
    set_target_properties(${target} PROPERTIES
      CXX_VISIBILITY_PRESET hidden
      C_VISIBILITY_PRESET hidden
      VISIBILITY_INLINES_HIDDEN ON)
  endif()

  set_property(GLOBAL APPEND PROPERTY ZELNORA_PACKAGED_TARGETS ${target})
  set_property(GLOBAL APPEND PROPERTY ZELNORA_PACKAGED_HEADER_DIRS
    ${CMAKE_CURRENT_SOURCE_DIR}/include/${arg_HEADER_FOLDER})
endfunction()
