# How the product's libraries are built. Each is compiled once, into an object library with
# hidden visibility: <name>_internal. The shared library <name> is made of those objects and
# exports only what carries its export macro, the API a host compiles against. Tests, benchmarks
# and the console link the internal objects to reach the rest. An executable links the internal
# objects or the shared library, never both, so that it holds the product's code once.
#
# CMake links an object library's objects only into the targets that name it directly. Helpers
# that need the internal declarations but are not executables (test support, the console's parts)
# are object libraries as well, so that no archive takes a copy of the control and the executable
# that links them gets its Qt resources and static initialisers intact.
include(GenerateExportHeader)

# The build tree's view of what gets installed under include/: the generated export headers and
# a forwarding header for each public header.
set(QARVO_INCLUDE_DIR ${PROJECT_BINARY_DIR}/include)

# qarvo_add_library(<name> EXPORT_NAME <n> EXPORT_MACRO <macro> EXPORT_HEADER <path>)
#
# Creates <name>_internal, to which the folders add their sources, and the shared library <name>
# (qarvo::<n> in the build tree and once installed). The export header is generated as
# include/qarvo/<path>.
function(qarvo_add_library name)
  cmake_parse_arguments(ARG "" "EXPORT_NAME;EXPORT_MACRO;EXPORT_HEADER" "" ${ARGN})
  set(objects ${name}_internal)
  add_library(${objects} OBJECT)
  set_target_properties(${objects} PROPERTIES POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_definitions(${objects} PRIVATE ${name}_EXPORTS)
  target_link_libraries(${objects} PUBLIC qarvo_headers)

  add_library(${name} SHARED)
  add_library(qarvo::${ARG_EXPORT_NAME} ALIAS ${name})
  target_link_libraries(${name} PRIVATE ${objects})
  target_include_directories(${name} INTERFACE
    $<BUILD_INTERFACE:${QARVO_INCLUDE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0
    EXPORT_NAME ${ARG_EXPORT_NAME})
  # A symbol that only the hidden parts define fails the link here rather than in a host.
  if(NOT QARVO_SANITIZE AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
    target_link_options(${name} PRIVATE LINKER:--no-undefined)
  endif()

  set(header ${QARVO_INCLUDE_DIR}/qarvo/${ARG_EXPORT_HEADER})
  generate_export_header(${name} EXPORT_MACRO_NAME ${ARG_EXPORT_MACRO} EXPORT_FILE_NAME ${header})
  get_filename_component(header_dir ${ARG_EXPORT_HEADER} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qarvo/${header_dir}
    COMPONENT development)
  # The library goes into the runtime package, its link-time name into the development package.
  install(TARGETS ${name} EXPORT qarvoTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
endfunction()

# qarvo_public_headers(header...): headers of the calling folder that a host compiles against.
# They are installed as include/qarvo/<folder>/<header>, and the build tree reaches them the same
# way through a forwarding header, so that they include one another as <qarvo/...> in both.
function(qarvo_public_headers)
  get_filename_component(part ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  foreach(header IN LISTS ARGN)
    file(CONFIGURE OUTPUT ${QARVO_INCLUDE_DIR}/qarvo/${part}/${header}
      CONTENT "#include \"${CMAKE_CURRENT_SOURCE_DIR}/${header}\"\n")
  endforeach()
  install(FILES ${ARGN} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qarvo/${part} COMPONENT development)
endfunction()
