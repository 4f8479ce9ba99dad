# The Debian packages that CPack builds from the install rules, one per install component:
#   runtime      libqarvo0        the two shared libraries
#   development  libqarvo-dev     headers, CMake package, pkg-config files
#   console      qarvo-console    the console, the other programs and the shipped catalogue
# Install rules that name no component belong to the console package.

# Debian wants a copyright file and a changelog in every package's documentation folder, and
# manual pages compressed. They are installed only for packaging, so that a plain install does not
# carry Debian's file names.
option(QARVO_DEBIAN_DOCS "Install the copyright, changelog and manual files that Debian packages carry" OFF)
set(QARVO_DEB_RUNTIME libqarvo0)
set(QARVO_DEB_DEVELOPMENT libqarvo-dev)
set(QARVO_DEB_CONSOLE qarvo-console)
if(QARVO_DEBIAN_DOCS)
  # gzip -9n: Debian's compression for documentation, with no time stamp to keep builds repeatable.
  function(qarvo_gzip source target)
    execute_process(COMMAND gzip -9nc ${source} OUTPUT_FILE ${target} COMMAND_ERROR_IS_FATAL ANY)
  endfunction()
  string(TIMESTAMP QARVO_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
  set(docs ${PROJECT_BINARY_DIR}/debian-doc)
  configure_file(packaging/changelog.in ${docs}/changelog @ONLY)
  qarvo_gzip(${docs}/changelog ${docs}/changelog.gz)
  qarvo_gzip(${PROJECT_SOURCE_DIR}/packaging/qarvo-console.1 ${docs}/qarvo-console.1.gz)
  foreach(component runtime development console)
    string(TOUPPER ${component} upper)
    install(FILES packaging/copyright ${docs}/changelog.gz
      DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${QARVO_DEB_${upper}} COMPONENT ${component})
  endforeach()
  install(FILES ${docs}/qarvo-console.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT console)
endif()

set(CPACK_PACKAGE_NAME qarvo)
set(CPACK_PACKAGE_VENDOR Velmsystem)
set(CPACK_PACKAGE_CONTACT "qarvo maintainers <qarvo@velmsystem.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development console)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${QARVO_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# Libraries in the loader's path activate libc's ldconfig trigger. (CPack also calls ldconfig
# from maintainer scripts of its own; that is redundant but harmless.)
set(runtime_control ${PROJECT_BINARY_DIR}/debian-control/runtime)
file(CONFIGURE OUTPUT ${runtime_control}/triggers CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${runtime_control}/triggers)
# Plug-ins are not seen by dpkg-shlibdeps: the store opens SQLite by default.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS libqt6sql6-sqlite)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS libqt6sql6-psql)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "qarvo rule-management control (shared libraries)
The embeddable control with which administrators of a network access protection
manager list, inspect, create, rename and delete health rules: WMI conditions,
WQL queries and NAQC script selections. This package holds the control's
library and the reference rule store over SQLite or PostgreSQL.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${QARVO_DEB_DEVELOPMENT})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "qt6-base-dev (>= ${QARVO_QT_MIN_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "qarvo rule-management control (development files)
Headers, CMake package (find_package(qarvo)) and pkg-config files for hosts
that embed the qarvo control or use its reference rule store.")

set(CPACK_DEBIAN_CONSOLE_PACKAGE_NAME ${QARVO_DEB_CONSOLE})
set(CPACK_DEBIAN_CONSOLE_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_CONSOLE_PACKAGE_DEPENDS libqt6sql6-sqlite)
set(CPACK_DEBIAN_CONSOLE_PACKAGE_SUGGESTS libqt6sql6-psql)
set(CPACK_COMPONENT_CONSOLE_DESCRIPTION "qarvo console for health rules
A small management console that hosts the qarvo control on a rule store kept in
a SQLite file or a shared PostgreSQL database, with the WMI class catalogue
that the condition editor offers.")

include(CPack)
