# add_bundle(<target> SYMBOLIC_NAME <bsn> MANIFEST <manifest.json>
#            SOURCES <files...> [LIBS <targets...>] [HOSTED])
#
# Builds a bundle: a shared library compiled with US_BUNDLE_NAME=<bsn>, with a
# generated source holding CPPMICROSERVICES_INITIALIZE_BUNDLE, and with its
# manifest appended to the linked file so that the framework can read it
# without loading the library. The manifest must be a JSON object whose
# bundle.symbolic_name equals <bsn>; configuring fails otherwise, and a changed
# manifest configures again. Against an installed CppMicroServices the bundle is
# built by its conventions instead (ExternalCppMicroServices.cmake). Every bundle
# target is recorded in the global property CPPMICROSERVICES_BUNDLE_TARGETS.
# HOSTED bundles are what a host runs: each is also linked from LSP_HOSTED_BUNDLE_DIR
# (<build>/bundles unless set), the folder to hand to spf-host (test bundles stay out of it).
#
# The same file serves this repository's build and, installed with the platform's CMake
# package, projects that build bundles against it (find_package(LegacyServicePublisher)).
#
# Appended layout (read by platform/microservices/src/bundle/EmbeddedManifest.cpp):
#   <manifest bytes><manifest length, 16 decimal digits>#US-MANIFEST-V1#
#
# Run as a script (cmake -P), this file performs the append:
#   cmake -DUS_BUNDLE_FILE=<lib> -DUS_MANIFEST=<json> -P Bundles.cmake

if(CMAKE_SCRIPT_MODE_FILE)
  foreach(var US_BUNDLE_FILE US_MANIFEST)
    if(NOT DEFINED ${var})
      message(FATAL_ERROR "Bundles.cmake: ${var} is not set")
    endif()
  endforeach()
  file(READ "${US_MANIFEST}" manifest)
  string(LENGTH "${manifest}" length) # in bytes
  string(LENGTH "${length}" digits)
  if(digits GREATER 16)
    message(FATAL_ERROR "${US_MANIFEST}: the manifest is too large")
  endif()
  set(padded "${length}")
  while(digits LESS 16)
    string(PREPEND padded "0")
    math(EXPR digits "${digits} + 1")
  endwhile()
  file(APPEND "${US_BUNDLE_FILE}" "${manifest}${padded}#US-MANIFEST-V1#")
  return()
endif()

function(add_bundle target)
  cmake_parse_arguments(ARG "HOSTED" "SYMBOLIC_NAME;MANIFEST" "SOURCES;LIBS" ${ARGN})
  if(NOT ARG_SYMBOLIC_NAME OR NOT ARG_MANIFEST OR NOT ARG_SOURCES)
    message(FATAL_ERROR "add_bundle(${target}): SYMBOLIC_NAME, MANIFEST and SOURCES are required")
  endif()
  if(NOT ARG_SYMBOLIC_NAME MATCHES "^[A-Za-z_][A-Za-z0-9_]*$")
    message(FATAL_ERROR "add_bundle(${target}): SYMBOLIC_NAME '${ARG_SYMBOLIC_NAME}' is not a C identifier")
  endif()
  get_filename_component(manifest "${ARG_MANIFEST}" ABSOLUTE)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${manifest}")
  file(READ "${manifest}" json)
  string(JSON type ERROR_VARIABLE json_error TYPE "${json}")
  if(json_error)
    message(FATAL_ERROR "${manifest}: not valid JSON: ${json_error}")
  endif()
  if(NOT type STREQUAL "OBJECT")
    message(FATAL_ERROR "${manifest}: the manifest must be a JSON object")
  endif()
  string(JSON bsn ERROR_VARIABLE json_error GET "${json}" "bundle.symbolic_name")
  if(json_error OR NOT bsn STREQUAL ARG_SYMBOLIC_NAME)
    message(FATAL_ERROR "${manifest}: bundle.symbolic_name must be \"${ARG_SYMBOLIC_NAME}\"")
  endif()

  if(LSP_CPPMICROSERVICES_DIR)
    # An installed CppMicroServices: its own bundle conventions (ExternalCppMicroServices.cmake).
    add_external_bundle_library(${target} ${ARG_SYMBOLIC_NAME} "${manifest}" SOURCES ${ARG_SOURCES} LIBS ${ARG_LIBS})
  else()
    set(init_source "${CMAKE_CURRENT_BINARY_DIR}/${target}_cppmicroservices_init.cpp")
    file(CONFIGURE OUTPUT "${init_source}"
         CONTENT "#include <cppmicroservices/BundleInitialization.h>\n\nCPPMICROSERVICES_INITIALIZE_BUNDLE\n")

    add_library(${target} SHARED ${ARG_SOURCES} "${init_source}")
    target_compile_definitions(${target} PRIVATE US_BUNDLE_NAME=${ARG_SYMBOLIC_NAME})
    if(TARGET LegacyServicePublisher::CppMicroServices)
      target_link_libraries(${target} PRIVATE LegacyServicePublisher::CppMicroServices ${ARG_LIBS})
      # Installed anywhere, the bundle still finds the platform's libraries on its own.
      set_target_properties(${target} PROPERTIES INSTALL_RPATH "${LegacyServicePublisher_LIBRARY_DIR}")
    else()
      target_link_libraries(${target} PRIVATE CppMicroServices ${ARG_LIBS})
    endif()
    # Relink, and so re-embed, when the manifest changes.
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${manifest}")
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_COMMAND} -DUS_BUNDLE_FILE=$<TARGET_FILE:${target}> -DUS_MANIFEST=${manifest}
              -P ${CMAKE_CURRENT_FUNCTION_LIST_FILE}
      COMMENT "Embedding the manifest of bundle ${ARG_SYMBOLIC_NAME}"
      VERBATIM)
  endif()
  if(ARG_HOSTED)
    set(hosted_dir "${LSP_HOSTED_BUNDLE_DIR}")
    if(NOT hosted_dir)
      set(hosted_dir "${CMAKE_BINARY_DIR}/bundles")
    endif()
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E make_directory ${hosted_dir}
      COMMAND ${CMAKE_COMMAND} -E create_symlink $<TARGET_FILE:${target}> ${hosted_dir}/$<TARGET_FILE_NAME:${target}>
      VERBATIM)
  endif()
  set_property(GLOBAL APPEND PROPERTY CPPMICROSERVICES_BUNDLE_TARGETS ${target})
endfunction()
