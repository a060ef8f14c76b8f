# Fails when a library source includes a header of a layer above its own (the layers are listed in
# ParameterLayers.cmake). A file may include its own layer and those below it.
#   cmake -DROOT=<source dir> -P CheckLayers.cmake

cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/ParameterLayers.cmake)

file(GLOB_RECURSE sources RELATIVE ${ROOT}
    ${ROOT}/platform/*.h ${ROOT}/platform/*.cpp
    ${ROOT}/parameterparser/*.h ${ROOT}/parameterparser/*.cpp
    ${ROOT}/stats/*.h ${ROOT}/stats/*.cpp
    ${ROOT}/parametermodules/*.h ${ROOT}/parametermodules/*.cpp)
set(faults "")
foreach(source ${sources})
    param_layer_of(${source} own_name own)
    file(STRINGS ${ROOT}/${source} includes REGEX "^#include \"")
    foreach(line ${includes})
        string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" header "${line}")
        param_layer_of(${header} name rank)
        if(rank GREATER own)
            string(APPEND faults "  ${source} (${own_name}) includes ${header} (${name})\n")
        endif()
    endforeach()
endforeach()
if(faults)
    message(FATAL_ERROR "Includes that point to a higher layer:\n${faults}")
endif()
list(LENGTH sources count)
message(STATUS "${count} library sources include only their own layer and those below")
