# Install rules: the shared library with its SONAME, the public headers under
# include/parameterparser/, a CMake package config and a pkg-config file. Consumers put the
# include directory alone on their path and include <parameterparser/...>.
include(CMakePackageConfigHelpers)

# The public API: every header a client may include. Headers not listed here are internal.
set(PARAM_PUBLIC_HEADER_DIRS parameterparser)
set(PARAM_PLATFORM_HEADERS platform/vornalloc.h platform/vornlog.h platform/vornosutils.h
    platform/vornhashmap.h platform/vornplatformconstants.h)

install(TARGETS parameterparser EXPORT ParameterParserTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/parameterparser/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/parameterparser
    FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_BINARY_DIR}/gen/parameterparser/parameterparserversion.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/parameterparser)
install(FILES ${PARAM_PLATFORM_HEADERS}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/parameterparser/platform)
install(FILES ${PROJECT_SOURCE_DIR}/parametermodules/concretesetmanager.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/parameterparser/parametermodules)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/stats/statsalgo/common/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/parameterparser/stats/statsalgo/common
    FILES_MATCHING PATTERN "*.h")
# The generated modules and set managers; their writer descriptions serve tests and tools only.
install(DIRECTORY ${PARAMGEN_OUTPUT_DIR}/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/parameterparser/paramgen
    FILES_MATCHING PATTERN "*.h" PATTERN "*.writer.h" EXCLUDE PATTERN "moduletest.h" EXCLUDE)

# Inside the installed tree, headers reach each other under <parameterparser/...> too.
install(CODE "execute_process(COMMAND \${CMAKE_COMMAND}
    -DHEADER_DIR=\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_INCLUDEDIR}/parameterparser
    -P ${PROJECT_SOURCE_DIR}/cmake/RewriteIncludes.cmake COMMAND_ERROR_IS_FATAL ANY)")

install(EXPORT ParameterParserTargets NAMESPACE ParameterParser::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ParameterParser)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ParameterParserConfig.cmake.in
    ${PROJECT_BINARY_DIR}/ParameterParserConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ParameterParser)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ParameterParserConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ParameterParserConfig.cmake
    ${PROJECT_BINARY_DIR}/ParameterParserConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ParameterParser)

configure_file(${PROJECT_SOURCE_DIR}/cmake/parameterparser.pc.in
    ${PROJECT_BINARY_DIR}/parameterparser.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/parameterparser.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
