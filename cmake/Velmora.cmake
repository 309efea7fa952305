# Compiler settings and the helper functions that every folder uses.

include_guard(GLOBAL)

option(VELMORA_LTO "Link-time optimisation" OFF)
option(VELMORA_STATIC "Link the programs that events pass through statically" OFF)
option(VELMORA_FUZZ "Build the libFuzzer targets with coverage instrumentation" OFF)
option(VELMORA_THREAD_SAFETY "Check lock annotations with Clang and libc++; nothing is linked" OFF)
set(VELMORA_SANITIZE "" CACHE STRING "address (with undefined), thread, or empty")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
    set(CMAKE_C_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()

find_package(Threads REQUIRED)

# No RTTI and no exceptions anywhere: a class built with RTTI cannot derive from one built without.
add_compile_options(-Wall -Wextra -Werror -fno-rtti -fno-exceptions)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 takes the standard library's own string concatenation for an overlapping copy when it optimises.
    add_compile_options(-Wno-restrict)
endif()
if(CMAKE_BUILD_TYPE STREQUAL "Debug")
    add_compile_options(-O1 -g1)
endif()
if(VELMORA_LTO)
    set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
endif()
if(VELMORA_SANITIZE STREQUAL "address")
    # The vptr check needs RTTI, which nothing here has.
    add_compile_options(-fsanitize=address,undefined -fno-sanitize=vptr
                        -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(VELMORA_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
endif()
if(VELMORA_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_link_options(-fsanitize=fuzzer-no-link)
endif()
if(VELMORA_THREAD_SAFETY)
    add_compile_options(-stdlib=libc++ -D_LIBCPP_ENABLE_THREAD_SAFETY_ANNOTATIONS
                        -Wthread-safety -Werror=thread-safety)
    # For the compiler of AIDL packages, which has to run: the only program linked under this option.
    add_link_options(-stdlib=libc++)
endif()

# velmora_add_executable(NAME source...): a program in bin/; only its objects where nothing is linked.
function(velmora_add_executable name)
    if(VELMORA_THREAD_SAFETY)
        add_library(${name} OBJECT ${ARGN})
    else()
        add_executable(${name} ${ARGN})
    endif()
endfunction()

# velmora_link_static(NAME): of a program that events pass through. An event that wakes a process finds nothing of it in
# the nearer caches: calls within one file and one data segment touch fewer pages than calls among five libraries.
function(velmora_link_static name)
    if(VELMORA_STATIC)
        target_link_options(${name} PRIVATE -static)
    endif()
endfunction()

# The test programs with a label that optimised or instrumented steps run, and what they start.
add_custom_target(sensitive_tests)

# velmora_add_tests(LIBRARIES lib... [MAIN lib])
# MAIN brings main(): host_testing_main for tests with helper processes beside them, else gtest's own.
# Every *_test.cpp of the calling folder's tests/ becomes a test program and a test of its own, named after
# the file. A line `// Labels: memory threads processes` in the file gives the test its labels, a line
# `// Timeout: SECONDS` its limit (120 s if absent), a line `// Serial: WHY` keeps other tests from running beside it, a line
# `// Native SUITE.NAME: WHY` leaves that one of its tests out of a cross build, whose programs run in an emulator, and
# `// Native: WHY` gives all of them the label native.
# Files of tests/ that do not end in _test.cpp are linked into each.
function(velmora_add_tests)
    cmake_parse_arguments(ARG "" "FOLDER;MAIN" "LIBRARIES;INCLUDES;SOURCES" ${ARGN})
    if(VELMORA_THREAD_SAFETY)
        return()
    endif()
    find_package(GTest REQUIRED)
    if(NOT ARG_FOLDER)
        set(ARG_FOLDER tests)
    endif()
    if(NOT ARG_MAIN)
        set(ARG_MAIN GTest::gtest_main)
    endif()
    file(GLOB tests CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${ARG_FOLDER}/*_test.cpp")
    foreach(source IN LISTS tests)
        get_filename_component(name "${source}" NAME_WE)
        add_executable(${name} "${source}" ${ARG_SOURCES})
        target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gmock ${ARG_MAIN})
        target_include_directories(${name} PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}" ${ARG_INCLUDES})
        set(timeout 120)
        set(left_out)
        file(STRINGS "${source}" marks LIMIT_COUNT 10
            REGEX "^// (Labels|Timeout|Serial|Native|Native [A-Za-z]+[.][A-Za-z]+): ")
        if(CMAKE_CROSSCOMPILING)
            set(left_out ${marks})
            list(FILTER left_out INCLUDE REGEX "^// Native [A-Z]")
            list(TRANSFORM left_out REPLACE "^// Native ([^:]+):.*$" "\\1")
            list(JOIN left_out ":" left_out)
        endif()
        if(left_out)
            add_test(NAME ${name} COMMAND ${name} "--gtest_filter=-${left_out}")
        else()
            add_test(NAME ${name} COMMAND ${name})
        endif()
        foreach(mark IN LISTS marks)
            if(mark MATCHES "^// Labels: (.*)$")
                string(REPLACE " " ";" labels "${CMAKE_MATCH_1}")
                set_property(TEST ${name} APPEND PROPERTY LABELS ${labels})
                add_dependencies(sensitive_tests ${name})
            elseif(mark MATCHES "^// Timeout: ([0-9]+)")
                set(timeout ${CMAKE_MATCH_1})
            elseif(mark MATCHES "^// Serial: ")
                set_tests_properties(${name} PROPERTIES RUN_SERIAL ON)
            elseif(mark MATCHES "^// Native: ")
                set_property(TEST ${name} APPEND PROPERTY LABELS native)
            endif()
        endforeach()
        set_tests_properties(${name} PROPERTIES TIMEOUT ${timeout})
        set_property(TARGET ${name} PROPERTY RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests")
    endforeach()
endfunction()

# velmora_add_fuzz_target(NAME SOURCES source... LIBRARIES lib... CORPUS folder)
# The sources define LLVMFuzzerTestOneInput. NAME_replay feeds it every file of the corpus and is an ordinary test of
# every preset; it fails without a file. With VELMORA_FUZZ, NAME is the fuzzer itself, built by the target fuzz_targets
# and listed with its corpus in fuzz_targets.txt in the build folder.
file(WRITE "${CMAKE_BINARY_DIR}/fuzz_targets.txt" "")
set(VELMORA_FUZZ_REPLAY_MAIN "${CMAKE_CURRENT_LIST_DIR}/fuzz_replay_main.cpp")
function(velmora_add_fuzz_target name)
    cmake_parse_arguments(ARG "" "CORPUS" "SOURCES;LIBRARIES" ${ARGN})
    if(VELMORA_THREAD_SAFETY)
        return()
    endif()
    get_filename_component(corpus "${ARG_CORPUS}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_SOURCE_DIR}")

    add_executable(${name}_replay ${ARG_SOURCES} "${VELMORA_FUZZ_REPLAY_MAIN}")
    target_link_libraries(${name}_replay PRIVATE ${ARG_LIBRARIES})
    set_target_properties(${name}_replay PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests")
    add_test(NAME ${name}_replay COMMAND ${name}_replay "${corpus}")
    set_tests_properties(${name}_replay PROPERTIES LABELS "memory;corpus" TIMEOUT 120)
    add_dependencies(sensitive_tests ${name}_replay)

    if(VELMORA_FUZZ)
        add_executable(${name} ${ARG_SOURCES})
        target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES})
        target_link_options(${name} PRIVATE -fsanitize=fuzzer)
        set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/fuzz")
        if(NOT TARGET fuzz_targets)
            add_custom_target(fuzz_targets)
        endif()
        add_dependencies(fuzz_targets ${name} ${name}_replay)
        file(APPEND "${CMAKE_BINARY_DIR}/fuzz_targets.txt" "${name} ${corpus}\n")
    endif()
endfunction()
