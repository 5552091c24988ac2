# Clips whose writers are killed, and media whose power is cut: a few here, as many as it takes in "make soak".
rv_program(clip_torture
    ${CMAKE_CURRENT_SOURCE_DIR}/clip_torture.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/clip_torture_writer.cpp)
target_include_directories(clip_torture PRIVATE ${PROJECT_SOURCE_DIR}/tests/unit)
target_link_libraries(clip_torture PRIVATE orb Qt6::Core Qt6::Test)
set_target_properties(clip_torture PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
add_test(NAME clip_kills COMMAND ${PROJECT_SOURCE_DIR}/scripts/isolated.sh $<TARGET_FILE:clip_torture> kills 50 1)
add_test(NAME clip_cuts_ext4
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/isolated.sh $<TARGET_FILE:clip_torture> cuts-ext4 10 1)
add_test(NAME clip_cuts_xfs
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/isolated.sh $<TARGET_FILE:clip_torture> cuts-xfs 10 1)
add_test(NAME clip_cuts_large
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/isolated.sh $<TARGET_FILE:clip_torture> cuts-ext4-large 10 1)
set_tests_properties(clip_kills clip_cuts_ext4 clip_cuts_xfs clip_cuts_large PROPERTIES
    LABELS system TIMEOUT 180 SKIP_RETURN_CODE 77)
