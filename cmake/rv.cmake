# The project's own build words: rv_library, rv_program, rv_test. Each takes a name and sources.

add_library(rv_options INTERFACE)
target_compile_options(rv_options INTERFACE
    -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Wformat=2 -Wsuggest-override
    -fstack-protector-strong
    # GCC 12 sees overlapping copies in std::string where there are none (its bug 105651), at -O3 only.
    $<$<AND:$<CONFIG:Release>,$<CXX_COMPILER_ID:GNU>>:-Wno-restrict>)
target_include_directories(rv_options INTERFACE
    ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/src/toolkit)
target_compile_definitions(rv_options INTERFACE QT_NO_FOREACH _FILE_OFFSET_BITS=64)
target_link_libraries(rv_options INTERFACE Threads::Threads)
if(RV_WERROR)
    target_compile_options(rv_options INTERFACE -Werror)
endif()
if(RV_SANITIZE)
    target_compile_options(rv_options INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(rv_options INTERFACE -fsanitize=address,undefined)
endif()
if(RV_TSAN)
    target_compile_options(rv_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
    target_link_options(rv_options INTERFACE -fsanitize=thread)
endif()

# Every program, without the tests.
add_custom_target(programs)

# rv_library(NAME sources...): a static library, found by its path from src/ or src/toolkit/.
function(rv_library name)
    add_library(${name} STATIC ${ARGN})
    target_link_libraries(${name} PUBLIC rv_options)
endfunction()

# rv_has_objects(NAME): the library declares QObjects. The sanitizers' build reads Qt's headers once for all of them; the
# others see to it that each source includes what it needs.
function(rv_has_objects name)
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    if(RV_SANITIZE)
        if(NOT TARGET headers_of_libraries)
            file(WRITE ${CMAKE_BINARY_DIR}/headers_of_libraries.cpp "")
            add_library(headers_of_libraries OBJECT EXCLUDE_FROM_ALL ${CMAKE_BINARY_DIR}/headers_of_libraries.cpp)
            target_link_libraries(headers_of_libraries PRIVATE rv_options Qt6::Core)
            target_precompile_headers(headers_of_libraries PRIVATE
                <QCoreApplication> <QDateTime> <QDir> <QFile> <QHash> <QObject> <QString> <QTimer> <QVariant> <QVector>
                <algorithm> <chrono> <condition_variable> <functional> <map> <memory> <mutex> <string> <thread> <vector>)
        endif()
        target_precompile_headers(${name} REUSE_FROM headers_of_libraries)
        set_target_properties(${name} PROPERTIES PCH_WARN_INVALID OFF)
    endif()
endfunction()

# rv_program(NAME sources...): a program in build/bin.
function(rv_program name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE rv_options)
    add_dependencies(programs ${name})
endfunction()

# What the tests of a folder include is read once for all of them: it takes most of the time that they need to compile.
function(rv_test_headers name)
    if(TARGET ${name})
        return()
    endif()
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp "")
    add_library(${name} OBJECT EXCLUDE_FROM_ALL ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
    target_compile_options(${name} PRIVATE -O0)
    target_link_libraries(${name} PRIVATE rv_options Qt6::Core Qt6::Test)
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
    target_precompile_headers(${name} PRIVATE
        <QtTest> <QCoreApplication> <QDir> <QFile> <QTemporaryDir> <QTimer> <algorithm> <chrono> <cstring> <functional>
        <memory> <string> <thread> <vector>)
endfunction()

# The moc file of each source that includes its own. AUTOMOC would compile an empty file besides for every test.
function(rv_moc_included name)
    set(folder ${CMAKE_CURRENT_BINARY_DIR}/${name}_moc)
    target_include_directories(${name} PRIVATE ${folder})
    foreach(source IN LISTS ARGN)
        get_filename_component(base ${source} NAME_WE)
        get_filename_component(path ${source} ABSOLUTE)
        file(STRINGS ${path} included REGEX "^#include \"${base}\\.moc\"$")
        if(included)
            file(MAKE_DIRECTORY ${folder})
            qt_generate_moc(${path} ${folder}/${base}.moc TARGET ${name})
            target_sources(${name} PRIVATE ${folder}/${base}.moc)
        endif()
    endforeach()
endfunction()

# rv_test(NAME LABEL sources...): a test program under CTest. Label "fast" runs under the sanitizers too. Its own sources
# are not optimized: they are half of what there is to compile.
function(rv_test name label)
    add_executable(${name} ${ARGN})
    target_compile_options(${name} PRIVATE -O0)
    target_link_libraries(${name} PRIVATE rv_options Qt6::Core Qt6::Test)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    rv_moc_included(${name} ${ARGN})
    get_filename_component(folder ${CMAKE_CURRENT_SOURCE_DIR} NAME)
    if(NOT folder STREQUAL "system") # few programs: more to read once than it saves
        rv_test_headers(headers_of_${folder}_tests)
        target_precompile_headers(${name} REUSE_FROM headers_of_${folder}_tests)
        set_target_properties(${name} PROPERTIES PCH_WARN_INVALID OFF) # a test with options of its own reads them itself
    endif()
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES LABELS ${label} TIMEOUT 300)
    if(label STREQUAL "fast")
        add_dependencies(fast_tests ${name})
    endif()
endfunction()

# rv_system_test(NAME script): a script that runs real processes in namespaces of its own.
function(rv_system_test name script)
    add_test(NAME ${name}
        COMMAND ${PROJECT_SOURCE_DIR}/scripts/isolated.sh
            python3 ${script} ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
    set_tests_properties(${name} PROPERTIES LABELS system TIMEOUT 600 SKIP_RETURN_CODE 77)
endfunction()

# Everything that the sanitizers run.
add_custom_target(fast_tests)
