# One interface target carries the language standard, warnings and defines
# for every target of the project.
add_library(velmora_common INTERFACE)
target_compile_features(velmora_common INTERFACE cxx_std_17)
target_compile_options(velmora_common INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra>
    $<$<COMPILE_LANGUAGE:C>:-Wall -Wextra>)
target_compile_definitions(velmora_common INTERFACE
    QT_DISABLE_DEPRECATED_BEFORE=0x060000)
target_include_directories(velmora_common INTERFACE ${PROJECT_SOURCE_DIR})

if(VELMORA_SANITIZE)
    target_compile_options(velmora_common INTERFACE
        -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    target_link_options(velmora_common INTERFACE -fsanitize=address,undefined)
endif()

set(VELMORA_TEST_HOME ${CMAKE_BINARY_DIR}/test-home)

# velmora_add_test(NAME <name> SOURCES <files...> LIBS <targets...> [TIMEOUT s])
# Every test runs headless, with HOME pointed at a scratch folder of the build
# tree, and with a timeout so that a forgotten modal box can't hang CI.
function(velmora_add_test)
    cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS" ${ARGN})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 120)
    endif()
    add_executable(${T_NAME} ${T_SOURCES})
    set_target_properties(${T_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    target_link_libraries(${T_NAME} PRIVATE velmora_common Qt6::Test ${T_LIBS})
    target_compile_definitions(${T_NAME} PRIVATE
        VELMORA_TEST_DATA="${PROJECT_SOURCE_DIR}/tests/data"
        VELMORA_BIN_DIR="${CMAKE_BINARY_DIR}/bin")
    add_test(NAME ${T_NAME} COMMAND ${T_NAME})
    set(home ${VELMORA_TEST_HOME}/${T_NAME})
    file(MAKE_DIRECTORY ${home})
    set_tests_properties(${T_NAME} PROPERTIES
        TIMEOUT ${T_TIMEOUT}
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;HOME=${home};ASAN_OPTIONS=detect_leaks=1;LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp;UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1")
endfunction()
