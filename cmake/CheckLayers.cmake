# Fails when a library source includes a header of a layer above its own. The layers, lowest
# first: the platform (and the export macro every layer uses), the core (file format, store and
# module runtime), the generated module types, live tuning, statistics, the concrete set managers,
# and the umbrella header that includes them all. A file may include its own layer and those
# below it.
#   cmake -DROOT=<source dir> -P CheckLayers.cmake

# The layer rank of a path relative to the source root (an included name or a source file).
function(layer_rank path out)
    if(path MATCHES "^platform/" OR path STREQUAL "parameterparser/parameterexport.h")
        set(rank 0)
    elseif(path STREQUAL "parameterparser/parameterparser.h")
        set(rank 60)
    elseif(path MATCHES "^parameterparser/livetuning/")
        set(rank 30)
    elseif(path MATCHES "^parameterparser/")
        set(rank 10)
    elseif(path MATCHES "^paramgen/.*SetManager\\.h$" OR path MATCHES "^parametermodules/")
        set(rank 50)
    elseif(path MATCHES "^paramgen/")
        set(rank 20)
    elseif(path MATCHES "^stats/")
        set(rank 40)
    else()
        set(rank -1)
    endif()
    set(${out} ${rank} PARENT_SCOPE)
endfunction()

file(GLOB_RECURSE sources RELATIVE ${ROOT}
    ${ROOT}/platform/*.h ${ROOT}/platform/*.cpp
    ${ROOT}/parameterparser/*.h ${ROOT}/parameterparser/*.cpp
    ${ROOT}/stats/*.h ${ROOT}/stats/*.cpp
    ${ROOT}/parametermodules/*.h ${ROOT}/parametermodules/*.cpp)
set(faults "")
foreach(source ${sources})
    layer_rank(${source} own)
    file(STRINGS ${ROOT}/${source} includes REGEX "^#include \"")
    foreach(line ${includes})
        string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" header "${line}")
        layer_rank(${header} rank)
        if(rank GREATER own)
            string(APPEND faults "  ${source} includes ${header}\n")
        endif()
    endforeach()
endforeach()
if(faults)
    message(FATAL_ERROR "Includes that point to a higher layer:\n${faults}")
endif()
list(LENGTH sources count)
message(STATUS "${count} library sources include only their own layer and those below")
