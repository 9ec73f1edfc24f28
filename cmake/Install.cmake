# The platform SDK: `cmake --install <build> --prefix <prefix>` puts under <prefix>
#   bin/                                  agent-exchange, legacy-agent, spf-host
#   include/                              the platform's headers
#   lib/                                  the platform's libraries
#   lib/legacyservicepublisher/bundles/   the bundles spf-host runs by default
#   lib/cmake/LegacyServicePublisher/     the CMake package: targets LegacyServicePublisher::<library>
#                                         and add_bundle
# Installed programs and libraries find each other through RPATHs relative to themselves, so the
# prefix can be moved as a whole. The demo bundle and the test bundles are not installed.

include(CMakePackageConfigHelpers)

set(LSP_SDK_LIBRARIES foundation CppMicroServices agent spfcore spfserialisation spfservicepublisher
    spfthreadpoolprovider spfinprocessdiscovery spfexternalprocessdiscovery spflegacyservicewrapper
    spfstreambuf spfbundlesupport)
set(LSP_SDK_BUNDLES DeclarativeServices ConfigurationAdmin spf_invokablepublisher spf_serialisationcatalogue
    spf_threadpoolprovider spf_inprocessdiscovery agentspflegacyservicepublisher)
set(LSP_SDK_PROGRAMS agent-exchange legacy-agent spf-host)
set(LSP_SDK_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/LegacyServicePublisher)

file(RELATIVE_PATH lib_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH lib_from_bundles ${CMAKE_INSTALL_PREFIX}/${LSP_INSTALL_BUNDLEDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(${LSP_SDK_PROGRAMS} PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_from_bin}")
set_target_properties(${LSP_SDK_BUNDLES} PROPERTIES INSTALL_RPATH "$ORIGIN/${lib_from_bundles}")
set_target_properties(${LSP_SDK_LIBRARIES} PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS ${LSP_SDK_LIBRARIES} EXPORT LegacyServicePublisherTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS ${LSP_SDK_BUNDLES} LIBRARY DESTINATION ${LSP_INSTALL_BUNDLEDIR})
install(TARGETS ${LSP_SDK_PROGRAMS} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

foreach(library IN LISTS LSP_SDK_LIBRARIES)
  get_target_property(source_dir ${library} SOURCE_DIR)
  install(DIRECTORY ${source_dir}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endforeach()

install(EXPORT LegacyServicePublisherTargets NAMESPACE LegacyServicePublisher::
        DESTINATION ${LSP_SDK_CMAKEDIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/LegacyServicePublisherConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/LegacyServicePublisherConfig.cmake
                              INSTALL_DESTINATION ${LSP_SDK_CMAKEDIR}
                              PATH_VARS LSP_INSTALL_BUNDLEDIR CMAKE_INSTALL_BINDIR CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/LegacyServicePublisherConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/LegacyServicePublisherConfig.cmake
              ${CMAKE_BINARY_DIR}/LegacyServicePublisherConfigVersion.cmake
              ${CMAKE_CURRENT_LIST_DIR}/Bundles.cmake
        DESTINATION ${LSP_SDK_CMAKEDIR})
