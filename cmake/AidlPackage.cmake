# Declares AIDL packages.
#
# VELMORA_AIDL_TOOL: path of an `aidl` that runs on the machine that builds, in place of the one of
# this build. A cross build that does not set it gets one built with the machine's own compiler.

include_guard(GLOBAL)

set(VELMORA_AIDL_TOOL "" CACHE FILEPATH "An aidl to use in place of the one of this build")
set(VELMORA_AIDL_SOURCE_DIR "${CMAKE_CURRENT_LIST_DIR}/../platform/aidl")

# Sets ${tool} to the command and ${depends} to what it needs to be built first.
function(velmora_find_aidl_tool tool depends)
    if(VELMORA_AIDL_TOOL)
        set(${tool} "${VELMORA_AIDL_TOOL}" PARENT_SCOPE)
        set(${depends} "${VELMORA_AIDL_TOOL}" PARENT_SCOPE)
        return()
    endif()
    if(NOT CMAKE_CROSSCOMPILING)
        set(${tool} "$<TARGET_FILE:aidl>" PARENT_SCOPE)
        set(${depends} aidl PARENT_SCOPE)
        return()
    endif()
    set(folder "${CMAKE_BINARY_DIR}/native-aidl")
    if(NOT TARGET native_aidl)
        include(ExternalProject)
        ExternalProject_Add(native_aidl
            SOURCE_DIR "${VELMORA_AIDL_SOURCE_DIR}"
            BINARY_DIR "${folder}"
            CMAKE_ARGS -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER}"
            BUILD_ALWAYS ON
            INSTALL_COMMAND ""
            BUILD_BYPRODUCTS "${folder}/aidl")
    endif()
    set(${tool} "${folder}/aidl" PARENT_SCOPE)
    set(${depends} native_aidl "${folder}/aidl" PARENT_SCOPE)
endfunction()

# aidl_package(NAME package VERSION n STABILITY vintf|none SOURCES_ROOT dir
#              [IMPORTS package-V<n>-ndk...] [FROZEN])
#
# Makes the static library `<package>-V<n>-ndk` of all files SOURCES_ROOT/<package path>/*.aidl, with
# the generated headers on its public include path. IMPORTS: libraries, declared before, of the
# packages that the types of this one name.
# FROZEN: the sources must be those of SOURCES_ROOT/aidl_api/<package>/<n>, whose .hash is the
# interface's; else the build fails. A package that is not frozen has the hash "notfrozen".
# The target `<package>-V<n>-freeze` makes the sources the frozen version; nothing runs it by itself.
function(aidl_package)
    cmake_parse_arguments(ARG "FROZEN" "NAME;VERSION;STABILITY;SOURCES_ROOT" "IMPORTS" ${ARGN})
    if(ARG_UNPARSED_ARGUMENTS OR NOT ARG_NAME OR NOT ARG_VERSION OR NOT ARG_STABILITY
       OR NOT ARG_SOURCES_ROOT)
        message(FATAL_ERROR "aidl_package: needs NAME, VERSION, STABILITY and SOURCES_ROOT; "
                            "not understood: '${ARG_UNPARSED_ARGUMENTS}'")
    endif()
    set(library "${ARG_NAME}-V${ARG_VERSION}-ndk")
    set(out "${CMAKE_CURRENT_BINARY_DIR}/${library}")
    get_filename_component(root "${ARG_SOURCES_ROOT}" ABSOLUTE)
    set(api "${root}/aidl_api")
    string(REPLACE "." "/" path "${ARG_NAME}")
    file(GLOB sources CONFIGURE_DEPENDS "${root}/${path}/*.aidl")
    if(NOT sources)
        message(FATAL_ERROR "aidl_package: no .aidl files in ${root}/${path}")
    endif()

    set(common --root "${root}" --version ${ARG_VERSION} --stability ${ARG_STABILITY})
    set(inputs ${sources})
    foreach(import IN LISTS ARG_IMPORTS)
        if(NOT TARGET ${import})
            message(FATAL_ERROR "aidl_package: ${ARG_NAME} imports ${import}, which is not declared")
        endif()
        get_target_property(import_roots ${import} AIDL_ROOTS)
        foreach(import_root IN LISTS import_roots)
            list(APPEND common --import "${import_root}")
        endforeach()
        get_target_property(import_sources ${import} AIDL_SOURCES)
        list(APPEND inputs ${import_sources})
        list(APPEND roots ${import_roots})
    endforeach()
    set(check)
    if(ARG_FROZEN)
        set(check --api "${api}")
        set(frozen "${api}/${ARG_NAME}/${ARG_VERSION}")
        file(GLOB_RECURSE frozen_files CONFIGURE_DEPENDS "${frozen}/*.aidl")
        # The tool says what is missing and how to make it.
        if(EXISTS "${frozen}/.hash")
            list(APPEND frozen_files "${frozen}/.hash")
        endif()
    endif()

    set(generated)
    foreach(source IN LISTS sources)
        get_filename_component(type "${source}" NAME_WE)
        list(APPEND generated "${out}/${path}/${type}.cpp" "${out}/aidl/${path}/${type}.h")
    endforeach()
    velmora_find_aidl_tool(tool tool_depends)
    add_custom_command(
        OUTPUT ${generated}
        COMMAND "${tool}" compile ${common} ${check} --out "${out}" ${sources}
        DEPENDS ${inputs} ${frozen_files} ${tool_depends}
        COMMENT "Generating ${library}" VERBATIM)
    add_custom_target(${ARG_NAME}-V${ARG_VERSION}-freeze
        COMMAND "${tool}" freeze ${common} --api "${api}" ${sources}
        DEPENDS ${tool_depends}
        VERBATIM)

    add_library(${library} STATIC ${generated})
    target_include_directories(${library} PUBLIC "${out}")
    target_link_libraries(${library} PUBLIC ${ARG_IMPORTS} host_binder)
    list(PREPEND roots "${root}")
    list(REMOVE_DUPLICATES roots)
    set_target_properties(${library} PROPERTIES
        AIDL_ROOTS "${roots}"
        AIDL_SOURCES "${inputs}")
endfunction()
