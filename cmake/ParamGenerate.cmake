# param_generate: runs the module generator once over schema tables, block families and module
# lists.
#
#   param_generate(INPUTS <folder>...
#                  LIBRARY_SOURCES <variable>
#                  [WRITER_SOURCES <variable>]
#                  [SEARCH <folder>...]
#                  [OUTPUT_DIR <folder>])
#
# Every *.schema (one namespace), *.family (one namespace per block and version) and *.list (a
# concrete set manager) of the INPUTS folders goes to one generator run, which writes
# <build>/gen/paramgen/<namespace>.{h,cpp} per namespace and <manager>.{h,cpp} and
# <manager>.writer.{h,cpp} per manager (OUTPUT_DIR in place of <build>/gen/paramgen keeps test
# modules out of the library's headers). The namespaces' sources are compiled in units of about
# 16 (paramgen_unit_<n>.cpp), so that the framework headers are parsed once per unit. The names
# of the outputs and their roles are asked of the generator when CMake configures; a family file
# is a configure dependency, since its versions name the outputs.
# The run depends on the generator's sources, the inputs and, through a depfile, the schemas of
# the SEARCH folders that the inputs use. The generator rewrites only files whose text changes,
# and Ninja's restat then rebuilds only what includes those. LIBRARY_SOURCES receives the library
# sources, WRITER_SOURCES the writer-side descriptions.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(PARAMGEN_DIR ${PROJECT_SOURCE_DIR}/tools/generator)
set(PARAMGEN_OUTPUT_DIR ${PROJECT_BINARY_DIR}/gen/paramgen)
# A program names a generated namespace as <parameterparser/paramgen/<namespace>.h>, as in the
# installed tree; this folder gives the build tree that path.
set(PARAMGEN_INCLUDE_DIR ${PROJECT_BINARY_DIR}/gen/include)
file(MAKE_DIRECTORY ${PARAMGEN_OUTPUT_DIR} ${PARAMGEN_INCLUDE_DIR}/parameterparser)
file(CREATE_LINK ${PARAMGEN_OUTPUT_DIR} ${PARAMGEN_INCLUDE_DIR}/parameterparser/paramgen SYMBOLIC)
file(GLOB PARAMGEN_GENERATOR_SOURCES CONFIGURE_DEPENDS
    ${PARAMGEN_DIR}/paramgen.py ${PARAMGEN_DIR}/paramgen/*.py)

function(param_generate)
    cmake_parse_arguments(ARG "" "LIBRARY_SOURCES;WRITER_SOURCES;NAME;OUTPUT_DIR" "INPUTS;SEARCH"
        ${ARGN})
    if(NOT ARG_OUTPUT_DIR)
        set(ARG_OUTPUT_DIR ${PARAMGEN_OUTPUT_DIR})
    endif()
    set(inputs)
    set(families)
    set(tables)
    foreach(folder IN LISTS ARG_INPUTS)
        file(GLOB found CONFIGURE_DEPENDS ${folder}/*.schema ${folder}/*.family ${folder}/*.list)
        file(GLOB family_files CONFIGURE_DEPENDS ${folder}/*.family)
        file(GLOB table_files CONFIGURE_DEPENDS ${folder}/*.table)
        list(SORT found)
        list(APPEND inputs ${found})
        list(APPEND families ${family_files})
        list(APPEND tables ${table_files})
    endforeach()
    set(search_options)
    foreach(folder IN LISTS ARG_SEARCH)
        list(APPEND search_options --schema-dir ${folder})
    endforeach()

    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${families}
        ${PARAMGEN_GENERATOR_SOURCES})
    execute_process(
        COMMAND ${Python3_EXECUTABLE} ${PARAMGEN_DIR}/paramgen.py outputs ${inputs}
            ${search_options}
        OUTPUT_VARIABLE names
        RESULT_VARIABLE result
        ERROR_VARIABLE message)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "The module generator cannot name its outputs:\n${message}")
    endif()
    string(REGEX REPLACE "\n$" "" lines "${names}")
    string(REPLACE "\n" ";" lines "${lines}")

    # Each line is ROLE NAME: a library or writer translation unit, or a file that units include.
    set(outputs)
    set(library_sources)
    set(writer_sources)
    foreach(line IN LISTS lines)
        string(REPLACE " " ";" line "${line}")
        list(GET line 0 role)
        list(GET line 1 name)
        set(output ${ARG_OUTPUT_DIR}/${name})
        list(APPEND outputs ${output})
        if(role STREQUAL "writer")
            list(APPEND writer_sources ${output})
        elseif(role STREQUAL "library")
            list(APPEND library_sources ${output})
        endif()
    endforeach()
    list(GET outputs 0 first)
    set(touch)
    if(NOT CMAKE_GENERATOR MATCHES "Ninja")
        # Generators without restat compare times only: mark every output done.
        set(touch COMMAND ${CMAKE_COMMAND} -E touch_nocreate ${outputs})
    endif()
    add_custom_command(
        OUTPUT ${outputs}
        COMMAND Python3::Interpreter ${PARAMGEN_DIR}/paramgen.py ${inputs} ${search_options}
            --out-dir ${ARG_OUTPUT_DIR} --source-root ${PROJECT_SOURCE_DIR}
            --depfile ${first}.d
        ${touch}
        DEPENDS ${inputs} ${tables} ${PARAMGEN_GENERATOR_SOURCES}
        DEPFILE ${first}.d
        COMMENT "Generating ${ARG_NAME}"
        VERBATIM)
    set(${ARG_LIBRARY_SOURCES} ${library_sources} PARENT_SCOPE)
    if(ARG_WRITER_SOURCES)
        set(${ARG_WRITER_SOURCES} ${writer_sources} PARENT_SCOPE)
    endif()
endfunction()

# param_generate_report(<target> <folder>...): a target that prints the catalogue report of the
# schema tables and families of the folders, one line per namespace.
function(param_generate_report target)
    add_custom_target(${target}
        COMMAND Python3::Interpreter ${PARAMGEN_DIR}/paramgen.py report ${ARGN}
        COMMENT "The catalogue report"
        VERBATIM
        USES_TERMINAL)
endfunction()
