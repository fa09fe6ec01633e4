# One static library per folder, one test binary per folder.

# orv_library(<name> SOURCES ... [LINKS ...] [QT])
# Headers are included by their folder: #include "orvimage/OrvImage.h", "core/Session.h".
function(orv_library name)
    cmake_parse_arguments(ARG "QT" "" "SOURCES;LINKS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/platform)
    string(FIND "${CMAKE_CURRENT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/src" inApplication)
    if(inApplication EQUAL 0)
        target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    endif()
    target_link_libraries(${name} PUBLIC ${ARG_LINKS} PRIVATE orv_warnings)
    if(ARG_QT)
        set_target_properties(${name} PROPERTIES AUTOMOC ON AUTOUIC ON AUTORCC ON)
    endif()
endfunction()

# orv_test(<name> SOURCES ... [LINKS ...] [QT] [TIMEOUT seconds])
# A Qt test runs on the offscreen platform unless the case itself needs a real window.
function(orv_test name)
    cmake_parse_arguments(ARG "QT" "TIMEOUT" "SOURCES;LINKS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/platform ${PROJECT_SOURCE_DIR}/src
                                               ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${name} PRIVATE ${ARG_LINKS} GTest::gtest GTest::gmock orv_warnings)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    if(ARG_QT)
        set_target_properties(${name} PROPERTIES AUTOMOC ON)
        target_link_libraries(${name} PRIVATE Qt5::Test)
    else()
        target_link_libraries(${name} PRIVATE GTest::gtest_main)
    endif()
    add_test(NAME ${name} COMMAND ${name})
    # G_SLICE: GLib's own allocator hands blocks from thread to thread in ways that the sanitizers cannot follow.
    # intercept_tls_get_addr: the sanitizer takes a loaded library's thread-local block that begins 16 bytes into a
    # page for one of an old C library's, reads its place out of a header that is not there, and then crashes in its
    # search for leaks at exit. The loader's own blocks count as reachable without it.
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;GENICAM_GENTL64_PATH=${CMAKE_BINARY_DIR}/bin;G_SLICE=always-malloc;ASAN_OPTIONS=intercept_tls_get_addr=0;LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/cmake/lsan.supp;TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/cmake/tsan.supp:ignore_noninstrumented_modules=1:second_deadlock_stack=1")
endfunction()
