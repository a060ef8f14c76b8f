# The layers of the library, lowest first. A layer may use its own headers and those of the layers
# below it, never one above: the build compiles each layer as a library of its own, and
# CheckLayers.cmake fails on an include that points upwards.
#
#   platform     0  the camera platform's utility layer (and the export macro every layer uses)
#   format      10  the bytes of a tuning file: header, layout, sections, byte reader, text and
#                   number helpers, checksums, the embedded schema, the file on disk
#   store       15  the symbol and data tables, the mode tree, module records and instances, the
#                   entry reader, value paths and the set manager
#   moduletypes 20  the generated module types
#   livetuning  30  the live tuning server and worker
#   stats       40  the statistics helpers
#   managers    50  the concrete set managers (hand-written and generated)
#   umbrella    60  parameterparser/parameterparser.h, which includes them all

# Sources of parameterparser/ that belong to the format layer, by name without extension; every
# other file of that folder (livetuning/ apart) belongs to the store.
set(PARAM_FORMAT_LAYER_NAMES
    parameterbinaryfile
    parameterbytereader
    parameterclocale
    parameterdefinitions
    parameterfileheader
    parameterfilelayout
    parameterfilesection
    parameterlogging
    parameterparserinfo
    parameterparserversion
    parameterutils
    parameterutilsread
    parsercrc
    parsercrcfold
    plist
    versionunion)

# param_layer_of(<path> <name> <rank>): the layer of a path relative to the source root, which may
# also be an included name ("parameterparser/plist.h") or a generated one ("paramgen/x.cpp").
# Paths outside the library give the name "none" and rank -1.
function(param_layer_of path name_out rank_out)
    get_filename_component(stem ${path} NAME_WE)
    if(path MATCHES "^platform/" OR path STREQUAL "parameterparser/parameterexport.h")
        set(layer platform 0)
    elseif(path STREQUAL "parameterparser/parameterparser.h")
        set(layer umbrella 60)
    elseif(path MATCHES "^parameterparser/livetuning/")
        set(layer livetuning 30)
    elseif(path MATCHES "^parameterparser/[^/]+$" AND stem IN_LIST PARAM_FORMAT_LAYER_NAMES)
        set(layer format 10)
    elseif(path MATCHES "^parameterparser/")
        set(layer store 15)
    elseif(path MATCHES "^paramgen/.*SetManager\\.(h|cpp)$" OR path MATCHES "^parametermodules/")
        set(layer managers 50)
    elseif(path MATCHES "^paramgen/")
        set(layer moduletypes 20)
    elseif(path MATCHES "^stats/")
        set(layer stats 40)
    else()
        set(layer none -1)
    endif()
    list(GET layer 0 name)
    list(GET layer 1 rank)
    set(${name_out} ${name} PARENT_SCOPE)
    set(${rank_out} ${rank} PARENT_SCOPE)
endfunction()
