# param_generate_schemas: runs the module generator over every schema table of a folder.
#
#   param_generate_schemas(DIRECTORY <folder>
#                          LIBRARY_SOURCES <variable>
#                          [WRITER_SOURCES <variable>]
#                          [SEARCH <folder>...])
#
# One custom command per schema writes <build>/gen/paramgen/<namespace>.{h,cpp} and
# <namespace>.writer.{h,cpp}. Each command depends on the generator's sources and its schema, and
# through a depfile on the schemas of the namespaces it uses. The schema's file name must be its
# namespace. LIBRARY_SOURCES receives the library sources, WRITER_SOURCES the writer-side
# descriptions; SEARCH adds folders where used namespaces are looked up.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(PARAMGEN_DIR ${PROJECT_SOURCE_DIR}/tools/generator)
set(PARAMGEN_OUTPUT_DIR ${PROJECT_BINARY_DIR}/gen/paramgen)
file(GLOB PARAMGEN_GENERATOR_SOURCES CONFIGURE_DEPENDS
    ${PARAMGEN_DIR}/paramgen.py ${PARAMGEN_DIR}/paramgen/*.py)

function(param_generate_schemas)
    cmake_parse_arguments(ARG "" "DIRECTORY;LIBRARY_SOURCES;WRITER_SOURCES" "SEARCH" ${ARGN})
    file(GLOB schemas CONFIGURE_DEPENDS ${ARG_DIRECTORY}/*.schema)
    list(SORT schemas)
    set(search_options)
    foreach(folder IN LISTS ARG_SEARCH)
        list(APPEND search_options --schema-dir ${folder})
    endforeach()
    set(library_sources)
    set(writer_sources)
    foreach(schema IN LISTS schemas)
        get_filename_component(namespace ${schema} NAME_WE)
        set(base ${PARAMGEN_OUTPUT_DIR}/${namespace})
        add_custom_command(
            OUTPUT ${base}.h ${base}.cpp ${base}.writer.h ${base}.writer.cpp
            COMMAND Python3::Interpreter ${PARAMGEN_DIR}/paramgen.py ${schema}
                --out-dir ${PARAMGEN_OUTPUT_DIR} --source-root ${PROJECT_SOURCE_DIR}
                ${search_options} --depfile ${base}.d
            # The generator leaves files with unchanged text alone; touching them marks the rule
            # done for generators that compare times only.
            COMMAND ${CMAKE_COMMAND} -E touch_nocreate ${base}.h ${base}.cpp ${base}.writer.h
                ${base}.writer.cpp
            DEPENDS ${schema} ${PARAMGEN_GENERATOR_SOURCES}
            DEPFILE ${base}.d
            COMMENT "Generating module namespace ${namespace}"
            VERBATIM)
        list(APPEND library_sources ${base}.cpp)
        list(APPEND writer_sources ${base}.writer.cpp)
    endforeach()
    set(${ARG_LIBRARY_SOURCES} ${library_sources} PARENT_SCOPE)
    if(ARG_WRITER_SOURCES)
        set(${ARG_WRITER_SOURCES} ${writer_sources} PARENT_SCOPE)
    endif()
endfunction()
