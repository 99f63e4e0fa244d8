# Checks the DLL's export table against the list of exports: every plain
# export under its decorated name (_Name@N), and, for the 32-bit DLL (EXACT),
# every C++ name of the list (the dll lines: class members, vtables,
# typeinfo, typed functions) and nothing the list does not name.
#
# MinGW exports a stdcall function under the name the .def file gives it
# (_Name@N) and under its own symbol (Name@N) as well: the second is the
# same export and counts as listed.
cmake_minimum_required(VERSION 3.25)
execute_process(COMMAND ${OBJDUMP} -p ${DLL} OUTPUT_VARIABLE _dump RESULT_VARIABLE _rc)
if(NOT _rc EQUAL 0)
    message(FATAL_ERROR "objdump failed on ${DLL}")
endif()
# The names are those of the name pointer table.
string(REGEX REPLACE ".*\\[Ordinal/Name Pointer\\] Table\n" "" _table "${_dump}")
string(REGEX REPLACE "\n\n.*" "" _table "${_table}")
string(REGEX MATCHALL "\\[ *[0-9]+\\] [^\n]+" _rows "${_table}")
set(_exported "")
foreach(_row IN LISTS _rows)
    string(REGEX REPLACE "^\\[ *[0-9]+\\] +" "" _name "${_row}")
    string(STRIP "${_name}" _name)
    list(APPEND _exported "${_name}")
endforeach()
file(STRINGS ${NAMES} _plain)
set(_expected ${_plain})
if(EXACT)
    file(STRINGS ${CXX_NAMES} _cxx)
    list(APPEND _expected ${_cxx})
endif()
set(_problems "")
foreach(_name IN LISTS _expected)
    if(NOT _name IN_LIST _exported)
        list(APPEND _problems "listed but not exported: ${_name}")
    endif()
endforeach()
if(EXACT)
    foreach(_name IN LISTS _exported)
        if(_name IN_LIST _expected)
            continue()
        endif()
        if(_name MATCHES "@[0-9]+$" AND "_${_name}" IN_LIST _plain)
            continue()  # the symbol behind a decorated name
        endif()
        list(APPEND _problems "exported but not listed: ${_name}")
    endforeach()
endif()
if(_problems)
    string(REPLACE ";" "\n  " _text "${_problems}")
    message(FATAL_ERROR "qzkernel.dll and the list of exports differ:\n  ${_text}")
endif()
list(LENGTH _plain _plain_count)
list(LENGTH _exported _count)
if(EXACT)
    list(LENGTH _cxx _cxx_count)
    message(STATUS "qzkernel.dll exports exactly the listed names: ${_plain_count} plain, "
                   "${_cxx_count} C++ (${_count} table entries)")
else()
    message(STATUS "qzkernel.dll exports all ${_plain_count} listed plain names")
endif()
