# Installs the built library into a fresh prefix, builds the consumer project in examples/
# against it (through find_package or pkg-config), and runs the consumer on a tuning file.
#   cmake -DBUILD_DIR=... -DPREFIX=... -DSOURCE_DIR=<examples> -DMETHOD=cmake|pkg-config
#         -DSAMPLE=file.bin -DEXPECT_OUTPUT=regex [-DCONSUMER_FLAGS=...] -P ConsumerTest.cmake
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX}/root
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
# Only the include directory itself may be on a consumer's path: no generic folder names.
foreach(folder platform stats paramgen)
    if(EXISTS ${PREFIX}/root/include/${folder})
        message(FATAL_ERROR "the installed tree has include/${folder}")
    endif()
endforeach()

set(environment)
if(METHOD STREQUAL "pkg-config")
    file(GLOB_RECURSE pcFiles ${PREFIX}/root/*/parameterparser.pc)
    list(GET pcFiles 0 pcFile)
    get_filename_component(pcDir ${pcFile} DIRECTORY)
    set(environment ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pcDir})
    execute_process(COMMAND ${environment} pkg-config --cflags parameterparser
        OUTPUT_VARIABLE cflags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    if(NOT cflags MATCHES "^-I[^ ]*/include$")
        message(FATAL_ERROR "pkg-config gives '${cflags}': the include directory alone is wanted")
    endif()
endif()
execute_process(COMMAND ${environment} ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${PREFIX}/build -G Ninja
        -DPARAMETERPARSER_FIND=${METHOD} -DCMAKE_PREFIX_PATH=${PREFIX}/root
        "-DCMAKE_CXX_FLAGS=${CONSUMER_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${CONSUMER_FLAGS}"
    RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT code EQUAL 0)
    message(FATAL_ERROR "configuring the consumer failed:\n${out}\n${err}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${PREFIX}/build
    RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT code EQUAL 0)
    message(FATAL_ERROR "building the consumer failed:\n${out}\n${err}")
endif()
execute_process(COMMAND ${PREFIX}/build/example_host ${SAMPLE}
    RESULT_VARIABLE code OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT code EQUAL 0 OR NOT out MATCHES "${EXPECT_OUTPUT}")
    message(FATAL_ERROR "the consumer ran with exit code ${code}:\n${out}\n${err}")
endif()
