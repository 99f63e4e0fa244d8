# The list of exports is kept as data in exports/*.list, one file per family
# header. Each line names one export:
#
#   Name            a plain extern "C" function (decorated _Name@N on Windows)
#   Name TYPE       the same, for a name that also has C++ overloads: TYPE is
#                   the plain function's type, e.g. DWORD(HANDLE, LONG)
#   cxx Name        a typed free function, exported under its mangled name
#   class Name      an exported class, exported through its mangled members
#   posix Name      a function of the POSIX platform layer (not on Windows)
#   dll Symbol      after a class or cxx line: one of its names in the 32-bit
#                   DLL's export table, mangled (_ZN4CLog8ShutdownEv, ...);
#                   the member functions, constructors, destructors,
#                   operators, vtable and typeinfo the class exports
#
# The export generator (tools/exportgen) reads the same list compiled against
# the public headers, so the argument byte counts of the decorated names come
# from the declarations. It writes the Linux version script and the Windows
# .def file, and the checks compare the list with the built library.

file(GLOB QZ_EXPORT_LISTS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/exports/*.list)
list(SORT QZ_EXPORT_LISTS)
set(QZ_GENERATED_DIR ${PROJECT_BINARY_DIR}/generated)
set(_qz_table "")
set(_qz_dll_names "")
foreach(_list IN LISTS QZ_EXPORT_LISTS)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${_list})
    file(STRINGS ${_list} _lines)
    set(_owner "")  # the class or C++ function whose DLL names follow
    set(_owner_names 0)
    foreach(_line IN LISTS _lines)
        string(STRIP "${_line}" _line)
        if(_line STREQUAL "" OR _line MATCHES "^#")
            continue()
        endif()
        if(_line MATCHES "^dll[ \t]+(_Z[A-Za-z_0-9@]+)$")
            set(_symbol ${CMAKE_MATCH_1})
            string(LENGTH "${_owner}" _length)
            if(_owner STREQUAL "" OR NOT _symbol MATCHES "^_Z(N|NK|TI|TV|TS)?${_length}${_owner}")
                message(FATAL_ERROR "${_list}: '${_symbol}' is no name of '${_owner}' above it")
            endif()
            string(APPEND _qz_dll_names "${_symbol}\n")
            math(EXPR _owner_names "${_owner_names} + 1")
            continue()
        endif()
        if(NOT _owner STREQUAL "" AND _owner_names EQUAL 0)
            message(FATAL_ERROR "${_list}: '${_owner}' has no dll lines")
        endif()
        set(_owner "")
        set(_owner_names 0)
        if(_line MATCHES "^class[ \t]+([A-Za-z_0-9]+)$")
            string(APPEND _qz_table "QZ_EXPORT_CLASS(${CMAKE_MATCH_1})\n")
            set(_owner ${CMAKE_MATCH_1})
        elseif(_line MATCHES "^cxx[ \t]+([A-Za-z_0-9]+)$")
            string(APPEND _qz_table "QZ_EXPORT_CXX(${CMAKE_MATCH_1})\n")
            set(_owner ${CMAKE_MATCH_1})
        elseif(_line MATCHES "^posix[ \t]+([A-Za-z_0-9]+)$")
            string(APPEND _qz_table "QZ_EXPORT_POSIX(${CMAKE_MATCH_1})\n")
        elseif(_line MATCHES "^([A-Za-z_][A-Za-z_0-9]*)[ \t]+([^ \t].*\(.*\))$")
            string(APPEND _qz_table "QZ_EXPORT_TYPED(${CMAKE_MATCH_1}, ${CMAKE_MATCH_2})\n")
        elseif(_line MATCHES "^([A-Za-z_][A-Za-z_0-9]*)$")
            string(APPEND _qz_table "QZ_EXPORT_PLAIN(${CMAKE_MATCH_1})\n")
        else()
            message(FATAL_ERROR "${_list}: cannot read export line '${_line}'")
        endif()
    endforeach()
    if(NOT _owner STREQUAL "" AND _owner_names EQUAL 0)
        message(FATAL_ERROR "${_list}: '${_owner}' has no dll lines")
    endif()
endforeach()
file(CONFIGURE OUTPUT ${QZ_GENERATED_DIR}/exports_table.inc CONTENT "${_qz_table}")
# The C++ names of the 32-bit DLL, for its export check.
file(CONFIGURE OUTPUT ${QZ_GENERATED_DIR}/dll_cxx_exports.txt CONTENT "${_qz_dll_names}")

if(NOT CMAKE_CROSSCOMPILING)
    add_executable(qz_exportgen ${PROJECT_SOURCE_DIR}/tools/exportgen/exportgen.cpp)
    target_include_directories(qz_exportgen PRIVATE ${PROJECT_SOURCE_DIR}/include ${QZ_GENERATED_DIR})
    set(QZ_EXPORTGEN_COMMAND $<TARGET_FILE:qz_exportgen>)
    set(QZ_EXPORTGEN_DEPENDS qz_exportgen)
elseif(QZ_EXPORTGEN)
    set(QZ_EXPORTGEN_COMMAND ${QZ_EXPORTGEN})
    set(QZ_EXPORTGEN_DEPENDS ${QZ_EXPORTGEN})
else()
    message(FATAL_ERROR "Cross builds need QZ_EXPORTGEN, the export generator built for the host")
endif()

# The 32-bit DLL is checked name for name, both ways; the mangled names of
# the list are those of its ABI, so other Windows builds (the 64-bit one the
# suite runs under Wine) check the plain exports only.
if(WIN32 AND CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(QZ_DLL_EXPORTS_EXACT ON)
else()
    set(QZ_DLL_EXPORTS_EXACT OFF)
endif()

function(qz_attach_export_list target)
    if(WIN32)
        set(_def ${QZ_GENERATED_DIR}/qzkernel.def)
        add_custom_command(OUTPUT ${_def}
            COMMAND ${QZ_EXPORTGEN_COMMAND} --def ${_def}
            DEPENDS ${QZ_EXPORTGEN_DEPENDS} ${QZ_EXPORT_LISTS}
            COMMENT "Generating the Windows export list")
        target_sources(${target} PRIVATE ${_def})
        set(_names ${QZ_GENERATED_DIR}/decorated_exports.txt)
        add_custom_command(TARGET ${target} POST_BUILD
            COMMAND ${QZ_EXPORTGEN_COMMAND} --decorated ${_names}
            COMMAND ${CMAKE_COMMAND} -DDLL=$<TARGET_FILE:${target}> -DNAMES=${_names}
                    -DCXX_NAMES=${QZ_GENERATED_DIR}/dll_cxx_exports.txt
                    -DEXACT=$<BOOL:${QZ_DLL_EXPORTS_EXACT}>
                    -DOBJDUMP=${CMAKE_OBJDUMP} -P ${PROJECT_SOURCE_DIR}/cmake/CheckDllExports.cmake
            COMMENT "Checking the DLL's export table")
    elseif(NOT QZ_STATIC)
        set(_map ${QZ_GENERATED_DIR}/qzkernel.map)
        add_custom_command(OUTPUT ${_map}
            COMMAND ${QZ_EXPORTGEN_COMMAND} --version-script ${_map}
            DEPENDS ${QZ_EXPORTGEN_DEPENDS} ${QZ_EXPORT_LISTS}
            COMMENT "Generating the Linux version script")
        add_custom_target(qzkernel_version_script DEPENDS ${_map})
        add_dependencies(${target} qzkernel_version_script)
        target_link_options(${target} PRIVATE -Wl,--version-script=${_map})
        set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${_map})
    endif()
endfunction()
