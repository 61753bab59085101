# Debian packages of the kit, made by CPack from the install rules (`cpack -G DEB` in a build
# directory whose default targets are built):
#   libzelnora-core-dev   headers, libraries (archives, or the shared objects' link names), the
#                         CMake package and zelnora_core.pc; depends on the -dev packages a
#                         consumer's link needs
#   libzelnora-core1      the shared objects (shared builds only)
#   zelnora-tools         zelnora-host and zelnora-service (when the tools are built)
# The packages install under /usr.
include_guard(GLOBAL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zelnora-core)
set(CPACK_PACKAGE_VENDOR "Zelnora")
set(CPACK_PACKAGE_CONTACT "Zelnora kit maintainers <kit@zelnora.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Core library of the Zelnora advertising and push-engagement kit")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${ZELNORA_BUILD_NUMBER})
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
# Depends of the packages holding binaries come from the ELF files (dpkg-shlibdeps): libcurl4,
# libplist3, libsqlite3-0, libstdc++6, libc6 and, for the tools, libzelnora-core1 when shared.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzelnora-core-dev)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "Headers, libraries, CMake package and pkg-config file of zelnora_core")
# The CMake package finds libcurl, SQLite and libplist (through pkg-config) when the libraries are
# archives.
set(zelnora_dev_depends "")
if(ZELNORA_PACKAGE_STATIC)
  string(APPEND zelnora_dev_depends "libcurl4-openssl-dev | libcurl-dev, libsqlite3-dev, "
    "libplist-dev, pkg-config")
  set(CPACK_COMPONENTS_ALL development)
else()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzelnora-core${PROJECT_VERSION_MAJOR})
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
  set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Shared libraries of zelnora_core")
  set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
  set(CPACK_COMPONENTS_ALL runtime development)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
  # The tools' own shared objects are in this build, not yet installed: show dpkg-shlibdeps where.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/platform ${PROJECT_BINARY_DIR}/DeviceCatalog
    ${PROJECT_BINARY_DIR}/zelnora_core)
endif()
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${zelnora_dev_depends}")

if(TARGET zelnora-host AND TARGET zelnora-service)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zelnora-tools)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
  set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "zelnora-host, a host stand-in with a guided demo, and zelnora-service, a reference service")
  list(APPEND CPACK_COMPONENTS_ALL tools)
  if(NOT ZELNORA_PACKAGE_STATIC)
    set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
  endif()
endif()

include(CPack)
