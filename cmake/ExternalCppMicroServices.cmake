# Building against an installed CppMicroServices (-DLSP_CPPMICROSERVICES_DIR=<prefix>).
#
# The installation's CMake package supplies the targets CppMicroServices and usServiceComponent,
# its resource compiler and its bundle conventions;
# platform/microservices and its tests are then not built. Bundles are made by
# add_external_bundle_library (called from add_bundle): US_BUNDLE_NAME, the generated bundle
# initialisation, and the manifest embedded as the bundle resource <bsn>/manifest.json.
#
# Executables and tests find the installation's libraries through their rpath. The
# installation's DeclarativeServices and ConfigurationAdmin bundles are linked into
# the hosted bundle folder (LSP_HOSTED_BUNDLE_DIR) beside our bundles, where a host installs them from.

set(LSP_CPPMICROSERVICES_CMAKE_DIR "${LSP_CPPMICROSERVICES_DIR}/share/cppmicroservices3/cmake")
if(NOT EXISTS "${LSP_CPPMICROSERVICES_CMAKE_DIR}/CppMicroServicesConfig.cmake")
  message(FATAL_ERROR "LSP_CPPMICROSERVICES_DIR=${LSP_CPPMICROSERVICES_DIR}: no CppMicroServices CMake "
                      "package in share/cppmicroservices3/cmake")
endif()
find_package(CppMicroServices 3.8 REQUIRED CONFIG PATHS "${LSP_CPPMICROSERVICES_CMAKE_DIR}" NO_DEFAULT_PATH)
find_package(usServiceComponent REQUIRED CONFIG PATHS "${LSP_CPPMICROSERVICES_CMAKE_DIR}" NO_DEFAULT_PATH)
message(STATUS "Building against CppMicroServices ${CppMicroServices_VERSION} in ${LSP_CPPMICROSERVICES_DIR}")

get_target_property(LSP_CPPMICROSERVICES_LIBRARY CppMicroServices IMPORTED_LOCATION_RELEASE)
get_filename_component(LSP_CPPMICROSERVICES_LIB_DIR "${LSP_CPPMICROSERVICES_LIBRARY}" DIRECTORY)
list(APPEND CMAKE_BUILD_RPATH "${LSP_CPPMICROSERVICES_LIB_DIR}")
list(APPEND CMAKE_INSTALL_RPATH "${LSP_CPPMICROSERVICES_LIB_DIR}")
# The installation's bundles carry no search path for their own libraries (usServiceComponent,
# usAsyncWorkService): an RPATH, unlike a RUNPATH, also serves what the program loads later.
add_link_options("LINKER:--disable-new-dtags")

# Our runtime brings the foundation library with it; code written against it may lean on that.
set_property(TARGET CppMicroServices APPEND PROPERTY INTERFACE_LINK_LIBRARIES foundation)

file(MAKE_DIRECTORY "${LSP_HOSTED_BUNDLE_DIR}")
# Nothing links these two; their package files also want targets the installation does not export.
# The versioned file is linked: the unversioned name may be a copy of a symbolic link that only
# holds the versioned file's name.
foreach(bundle DeclarativeServices ConfigurationAdmin)
  file(GLOB versioned "${LSP_CPPMICROSERVICES_LIB_DIR}/lib${bundle}.so.*")
  if(NOT versioned)
    message(FATAL_ERROR "LSP_CPPMICROSERVICES_DIR=${LSP_CPPMICROSERVICES_DIR}: no lib/lib${bundle}.so.<version>")
  endif()
  list(GET versioned 0 location)
  file(CREATE_LINK "${location}" "${LSP_HOSTED_BUNDLE_DIR}/lib${bundle}.so" SYMBOLIC)
endforeach()

# add_external_bundle_library(<target> <bsn> <manifest> SOURCES <files...> LIBS <targets...>)
function(add_external_bundle_library target bsn manifest)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  # The resource compiler stores files under their path relative to the working folder, and
  # the framework reads <bsn>/manifest.json, whatever the manifest's own file is called.
  set(resources "${CMAKE_CURRENT_BINARY_DIR}/${target}_resources")
  configure_file("${manifest}" "${resources}/manifest.json" COPYONLY)

  set(sources ${ARG_SOURCES})
  usFunctionGenerateBundleInit(TARGET ${target} OUT sources)
  usFunctionGetResourceSource(TARGET ${target} OUT sources)
  add_library(${target} SHARED ${sources})
  target_compile_definitions(${target} PRIVATE US_BUNDLE_NAME=${bsn})
  set_target_properties(${target} PROPERTIES US_BUNDLE_NAME ${bsn})
  target_link_libraries(${target} PRIVATE CppMicroServices usServiceComponent ${ARG_LIBS})
  usFunctionAddResources(TARGET ${target} BUNDLE_NAME ${bsn} WORKING_DIRECTORY "${resources}"
                         FILES manifest.json)
  usFunctionEmbedResources(TARGET ${target})
endfunction()
