# Install rules and the consumer package of the kit: the three libraries with their public and
# generated headers, the CMake package `zelnora_core` (targets zelnora::platform,
# zelnora::DeviceCatalog, zelnora::core) and the pkg-config file zelnora_core.pc.
# The tools zelnora-host and zelnora-service install as the component "tools"; the test kit
# (zelnora_platform_testing), the tests and the benchmarks are not installed.
include_guard(GLOBAL)
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZELNORA_PACKAGE_NAME zelnora_core)
set(ZELNORA_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/${ZELNORA_PACKAGE_NAME})

get_property(zelnora_packaged_targets GLOBAL PROPERTY ZELNORA_PACKAGED_TARGETS)
get_property(zelnora_packaged_header_dirs GLOBAL PROPERTY ZELNORA_PACKAGED_HEADER_DIRS)

install(TARGETS ${zelnora_packaged_targets}
  EXPORT ${ZELNORA_PACKAGE_NAME}Targets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
    NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(DIRECTORY ${zelnora_packaged_header_dirs} ${ZELNORA_GENERATED_INCLUDE_DIR}/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")

# --- CMake package -------------------------------------------------------------------------------
get_target_property(zelnora_library_type zelnora_platform TYPE)
if(zelnora_library_type STREQUAL "STATIC_LIBRARY")
  set(ZELNORA_PACKAGE_STATIC ON)
else()
  set(ZELNORA_PACKAGE_STATIC OFF)
endif()

install(EXPORT ${ZELNORA_PACKAGE_NAME}Targets
  NAMESPACE zelnora::
  DESTINATION ${ZELNORA_CMAKE_PACKAGE_DIR} COMPONENT development)

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/zelnora_coreConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/${ZELNORA_PACKAGE_NAME}Config.cmake
  INSTALL_DESTINATION ${ZELNORA_CMAKE_PACKAGE_DIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/package/${ZELNORA_PACKAGE_NAME}ConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/package/${ZELNORA_PACKAGE_NAME}Config.cmake
  ${PROJECT_BINARY_DIR}/package/${ZELNORA_PACKAGE_NAME}ConfigVersion.cmake
  DESTINATION ${ZELNORA_CMAKE_PACKAGE_DIR} COMPONENT development)

# --- pkg-config ----------------------------------------------------------------------------------
# The prefix is found from the .pc file's own place, so an installed tree can be moved.
file(RELATIVE_PATH ZELNORA_PC_PREFIX_FROM_PCFILEDIR
  /zelnora_prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /zelnora_prefix)
string(REGEX REPLACE "/$" "" ZELNORA_PC_PREFIX_FROM_PCFILEDIR "${ZELNORA_PC_PREFIX_FROM_PCFILEDIR}")
if(ZELNORA_PACKAGE_STATIC)
  # A static archive needs the private dependencies at the consumer's link.
  set(ZELNORA_PC_REQUIRES_PRIVATE "libcurl sqlite3 libplist-2.0")
  set(ZELNORA_PC_STATIC_CFLAGS
    " -DZELNORA_PLATFORM_STATIC_DEFINE -DZELNORA_DEVICECATALOG_STATIC_DEFINE -DZELNORA_CORE_STATIC_DEFINE")
else()
  set(ZELNORA_PC_REQUIRES_PRIVATE "")
  set(ZELNORA_PC_STATIC_CFLAGS "")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/zelnora_core.pc.in
  ${PROJECT_BINARY_DIR}/package/${ZELNORA_PACKAGE_NAME}.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/${ZELNORA_PACKAGE_NAME}.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# --- tools and Debian packages -------------------------------------------------------------------
if(TARGET zelnora-host AND TARGET zelnora-service)
  install(TARGETS zelnora-host zelnora-service
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()
include(ZelnoraPackaging)
