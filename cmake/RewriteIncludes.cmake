# Run at install time: the installed headers name each other the way a consumer does, under
# <parameterparser/...>, so consumers need the include directory alone on their path and see no
# generic folder names (platform/, stats/) of their own.
#   cmake -DHEADER_DIR=<prefix>/include/parameterparser -P RewriteIncludes.cmake
file(GLOB_RECURSE headers "${HEADER_DIR}/*.h")
foreach(header IN LISTS headers)
    file(READ "${header}" text)
    string(REGEX REPLACE "#include \"(platform|stats|paramgen|parametermodules)/"
        "#include \"parameterparser/\\1/" rewritten "${text}")
    if(NOT rewritten STREQUAL text)
        file(WRITE "${header}" "${rewritten}")
    endif()
endforeach()
