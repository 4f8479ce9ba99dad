# What a host needs to find qarvo once it is installed: the CMake package (targets qarvo::qarvo
# and qarvo::rulestore) and a pkg-config file for each library.
include(CMakePackageConfigHelpers)

set(QARVO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qarvo)
set(QARVO_QT_MIN_VERSION 6.4)
install(EXPORT qarvoTargets NAMESPACE qarvo:: DESTINATION ${QARVO_CMAKE_DIR}
  COMPONENT development)
configure_package_config_file(cmake/qarvoConfig.cmake.in
  ${PROJECT_BINARY_DIR}/qarvoConfig.cmake INSTALL_DESTINATION ${QARVO_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qarvoConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qarvoConfig.cmake ${PROJECT_BINARY_DIR}/qarvoConfigVersion.cmake
  DESTINATION ${QARVO_CMAKE_DIR} COMPONENT development)

function(qarvo_pkgconfig name library requires description)
  set(QARVO_PC_NAME ${name})
  set(QARVO_PC_LIBRARY ${library})
  set(QARVO_PC_REQUIRES ${requires})
  set(QARVO_PC_DESCRIPTION ${description})
  configure_file(cmake/qarvo.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
endfunction()
qarvo_pkgconfig(qarvo qarvo "Qt6Core Qt6Gui Qt6Widgets"
  "Embeddable rule-management control of a network access protection console")
qarvo_pkgconfig(qarvo-rulestore qarvo_rulestore "qarvo Qt6Core"
  "Reference rule store of the qarvo control, over SQLite or PostgreSQL")
