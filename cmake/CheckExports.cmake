# Compares the dynamic symbols a shared library defines with a checked-in list, so that an export
# added or lost by accident fails. Sanitizer bookkeeping symbols are not part of the API and are
# left out, so the list holds for every build type.
#   cmake -DLIBRARY=lib.so -DLIST=exports.txt [-DUPDATE=ON] -P CheckExports.cmake
execute_process(COMMAND nm -D --defined-only ${LIBRARY}
    OUTPUT_VARIABLE listing RESULT_VARIABLE code)
if(NOT code EQUAL 0)
    message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REPLACE "\n" ";" lines "${listing}")
set(actual)
foreach(line IN LISTS lines)
    if(line MATCHES "^[0-9a-fA-F]* *[A-Za-z] (.+)$")
        set(symbol "${CMAKE_MATCH_1}")
        if(NOT symbol MATCHES "^__(odr_asan|asan|ubsan|tsan|sanitizer|lsan)")
            list(APPEND actual "${symbol}")
        endif()
    endif()
endforeach()
list(SORT actual)
list(REMOVE_DUPLICATES actual)
list(LENGTH actual count)

if(UPDATE)
    list(JOIN actual "\n" text)
    file(WRITE ${LIST} "${text}\n")
    message(STATUS "${LIST}: ${count} exported symbols")
    return()
endif()

file(STRINGS ${LIST} expected)
set(added ${actual})
list(REMOVE_ITEM added ${expected})
set(removed ${expected})
list(REMOVE_ITEM removed ${actual})
if(added OR removed)
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
endif()
message(STATUS "${count} exported symbols, as listed")
