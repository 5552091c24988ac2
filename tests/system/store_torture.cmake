# The parameter store under a bad network, kills, a stopped subscriber and a flood: a little of each here, as much as
# it takes in "make soak".
add_executable(store_torture
    ${PROJECT_SOURCE_DIR}/tests/system/store_torture.cpp
    ${PROJECT_SOURCE_DIR}/tests/system/store_torture_tools.cpp)
target_link_libraries(store_torture PRIVATE rv_options config)
set_target_properties(store_torture PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
add_dependencies(store_torture rvstore)
add_dependencies(programs store_torture)
foreach(scenario lossy:40000 kills:100 restarts:15 frozen:3000 flood:3)
    string(REPLACE ":" ";" parts ${scenario})
    list(GET parts 0 name)
    list(GET parts 1 count)
    add_test(NAME store_${name} COMMAND store_torture ${name} $<TARGET_FILE:rvstore> ${count} 1)
    set_tests_properties(store_${name} PROPERTIES LABELS system TIMEOUT 120)
endforeach()
