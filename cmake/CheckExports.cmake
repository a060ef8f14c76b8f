# Compares the dynamic symbols a shared library defines with a checked-in list, so that an export
# added or lost by accident fails. Sanitizer bookkeeping symbols are not part of the API and are
# left out, so the list holds for every build type.
#   cmake -DLIBRARY=lib.so -DLIST=exports.txt [-DUPDATE=ON] -P CheckExports.cmake
# The listing is filtered and sorted (bytewise) by the tools, not by CMake lists, which are slow
# for the tens of thousands of symbols of the module catalogue.
execute_process(
    COMMAND nm -D --defined-only --format=just-symbols ${LIBRARY}
    COMMAND grep -v -E "^__(odr_asan|asan|ubsan|tsan|sanitizer|lsan)"
    COMMAND env LC_ALL=C sort -u
    OUTPUT_VARIABLE listing RESULTS_VARIABLE codes)
list(GET codes 0 code)
if(NOT code EQUAL 0)
    message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REGEX MATCHALL "\n" lines "${listing}")
list(LENGTH lines count)

if(UPDATE)
    file(WRITE ${LIST} "${listing}")
    message(STATUS "${LIST}: ${count} exported symbols")
    return()
endif()

file(READ ${LIST} expected)
if(expected STREQUAL listing)
    message(STATUS "${count} exported symbols, as listed")
    return()
endif()
# Only a difference is worth the slow symbol-by-symbol lists.
string(REPLACE "\n" ";" actual "${listing}")
string(REPLACE "\n" ";" wanted "${expected}")
set(added ${actual})
list(REMOVE_ITEM added ${wanted})
set(removed ${wanted})
list(REMOVE_ITEM removed ${actual})
set(changes "")
foreach(symbol IN LISTS added)
    string(APPEND changes "  + ${symbol}\n")
endforeach()
foreach(symbol IN LISTS removed)
    string(APPEND changes "  - ${symbol}\n")
endforeach()
message(FATAL_ERROR "The exported symbols of ${LIBRARY} differ from ${LIST}:\n${changes}"
    "If the change to the API is intended, update the list with "
    "'cmake --build <build> --target update-exported-symbols'.")
