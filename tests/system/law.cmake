# The speed law on the real device: a program of its own, and its rulings checked on made-up frames.
add_executable(frame_law
    ${CMAKE_CURRENT_LIST_DIR}/frame_law_main.cpp
    ${CMAKE_CURRENT_LIST_DIR}/frame_law.cpp
    ${CMAKE_CURRENT_LIST_DIR}/frame_law_clips.cpp
    ${CMAKE_CURRENT_LIST_DIR}/frame_law_commands.cpp
    ${CMAKE_CURRENT_LIST_DIR}/frame_law_drop.cpp
    ${CMAKE_CURRENT_LIST_DIR}/frame_law_playback.cpp
    ${CMAKE_CURRENT_LIST_DIR}/frame_law_player.cpp
    ${CMAKE_CURRENT_LIST_DIR}/frame_law_watch.cpp)
target_link_libraries(frame_law PRIVATE rv_options transport orb clip bus picture)
set_target_properties(frame_law PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
add_test(NAME sys_frame_law
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/isolated.sh $<TARGET_FILE:frame_law>)
set_tests_properties(sys_frame_law PROPERTIES LABELS system TIMEOUT 600 RUN_SERIAL ON)

rv_test(tst_frame_law fast
    ${CMAKE_CURRENT_LIST_DIR}/frame_law_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/frame_law.cpp)
target_link_libraries(tst_frame_law PRIVATE orbvalues bus)
