# Settings every target of the project's own code shares: warnings as errors, the
# generated headers, and the src/ root as include path ("transport/PZSocket.h").
function(vxh_target_defaults target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
    target_include_directories(${target} PUBLIC ${CMAKE_SOURCE_DIR}/src ${CMAKE_BINARY_DIR}/generated)
endfunction()

# vxh_add_layer(NAME SOURCES ... [DEPENDS ...]) makes the static library vxh_<NAME>.
function(vxh_add_layer name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
    add_library(vxh_${name} STATIC ${ARG_SOURCES})
    vxh_target_defaults(vxh_${name})
    target_link_libraries(vxh_${name} PUBLIC ${ARG_DEPENDS} PRIVATE ${ARG_PRIVATE_DEPENDS})
endfunction()

# vxh_add_test(NAME SOURCES ... [DEPENDS ...] [LABELS ...] [LOCKS ...] [TIMEOUT s] [PROPERTIES ...])
# makes a GoogleTest executable registered with CTest test by test. LABELS "concurrency" puts it in
# the ThreadSanitizer run, "no-asan" keeps it out of the AddressSanitizer one. LOCKS names the shared
# resources (RESOURCE_LOCK) its tests hold: "x11_test_display", "pulseaudio", "avahi".
function(vxh_add_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;DEPENDS;LABELS;LOCKS;PROPERTIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    vxh_target_defaults(${name})
    target_link_libraries(${name} PRIVATE ${ARG_DEPENDS} GTest::gtest GTest::gtest_main Threads::Threads)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    if(TARGET vxh_test_pch)
        # A precompiled header is used only with the code model it was made with; Qt's targets ask
        # for -fPIC, so every test is compiled that way.
        target_compile_options(${name} PRIVATE -fPIC)
        target_precompile_headers(${name} REUSE_FROM vxh_test_pch)
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    if("concurrency" IN_LIST ARG_LABELS)
        set_property(GLOBAL APPEND PROPERTY VXH_CONCURRENCY_TESTS ${name})
    endif()
    gtest_discover_tests(${name}
        DISCOVERY_TIMEOUT 60
        PROPERTIES TIMEOUT ${ARG_TIMEOUT} ${ARG_PROPERTIES})
    # A list does not pass through the discovery's properties: labels and locks are set on the
    # discovered tests afterwards, by a file CTest reads after the discovery's own.
    if(ARG_LABELS OR ARG_LOCKS)
        set(list_properties "")
        if(ARG_LABELS)
            string(APPEND list_properties " LABELS \"${ARG_LABELS}\"")
        endif()
        if(ARG_LOCKS)
            string(APPEND list_properties " RESOURCE_LOCK \"${ARG_LOCKS}\"")
        endif()
        set(properties_file ${CMAKE_CURRENT_BINARY_DIR}/${name}_list_properties.cmake)
        file(WRITE ${properties_file}
            "if(${name}_TESTS)\n"
            "    set_tests_properties(\${${name}_TESTS} PROPERTIES${list_properties})\n"
            "endif()\n")
        set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${properties_file})
    endif()
endfunction()
