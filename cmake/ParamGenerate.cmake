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

# _param_generate_one(<input> <base> <comment> <generator arguments>...): the custom command that
# writes <base>.{h,cpp} and <base>.writer.{h,cpp} from one input of the generator.
function(_param_generate_one input base comment)
    add_custom_command(
        OUTPUT ${base}.h ${base}.cpp ${base}.writer.h ${base}.writer.cpp
        COMMAND Python3::Interpreter ${PARAMGEN_DIR}/paramgen.py ${ARGN}
            --out-dir ${PARAMGEN_OUTPUT_DIR} --source-root ${PROJECT_SOURCE_DIR}
            --depfile ${base}.d
        # The generator leaves files with unchanged text alone; touching them marks the rule
        # done for generators that compare times only.
        COMMAND ${CMAKE_COMMAND} -E touch_nocreate ${base}.h ${base}.cpp ${base}.writer.h
            ${base}.writer.cpp
        DEPENDS ${input} ${PARAMGEN_GENERATOR_SOURCES}
        DEPFILE ${base}.d
        COMMENT "${comment}"
        VERBATIM)
endfunction()

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
        _param_generate_one(${schema} ${base} "Generating module namespace ${namespace}"
            ${schema} ${search_options})
        list(APPEND library_sources ${base}.cpp)
        list(APPEND writer_sources ${base}.writer.cpp)
    endforeach()
    set(${ARG_LIBRARY_SOURCES} ${library_sources} PARENT_SCOPE)
    if(ARG_WRITER_SOURCES)
        set(${ARG_WRITER_SOURCES} ${writer_sources} PARENT_SCOPE)
    endif()
endfunction()

# param_generate_managers: runs the module generator over every module list of a folder.
#
#   param_generate_managers(DIRECTORY <folder>
#                           SCHEMAS <folder>
#                           LIBRARY_SOURCES <variable>
#                           [WRITER_SOURCES <variable>])
#
# One custom command per list <Manager>.list writes <build>/gen/paramgen/<Manager>.{h,cpp} (the
# concrete set manager) and <Manager>.writer.{h,cpp} (its instances with their writer
# descriptions). The schemas of the listed namespaces are looked up in SCHEMAS; the command
# depends on the generator's sources, the list and, through a depfile, those schemas.
function(param_generate_managers)
    cmake_parse_arguments(ARG "" "DIRECTORY;SCHEMAS;LIBRARY_SOURCES;WRITER_SOURCES" "" ${ARGN})
    file(GLOB lists CONFIGURE_DEPENDS ${ARG_DIRECTORY}/*.list)
    list(SORT lists)
    set(library_sources)
    set(writer_sources)
    foreach(list_file IN LISTS lists)
        get_filename_component(manager ${list_file} NAME_WE)
        set(base ${PARAMGEN_OUTPUT_DIR}/${manager})
        _param_generate_one(${list_file} ${base} "Generating set manager ${manager}"
            --manager ${list_file} --schema-dir ${ARG_SCHEMAS})
        list(APPEND library_sources ${base}.cpp)
        list(APPEND writer_sources ${base}.writer.cpp)
    endforeach()
    set(${ARG_LIBRARY_SOURCES} ${library_sources} PARENT_SCOPE)
    if(ARG_WRITER_SOURCES)
        set(${ARG_WRITER_SOURCES} ${writer_sources} PARENT_SCOPE)
    endif()
endfunction()
