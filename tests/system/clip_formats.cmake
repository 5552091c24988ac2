# Clips of every format of the recorder, decoded by other programs.
rv_program(clip_maker ${CMAKE_CURRENT_LIST_DIR}/clip_maker.cpp)
target_link_libraries(clip_maker PRIVATE orb)
set_target_properties(clip_maker PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
rv_system_test(sys_clip_formats ${CMAKE_CURRENT_LIST_DIR}/test_clip_formats.py)
if(TARGET rvd)
    rv_system_test(sys_clip_recorder ${CMAKE_CURRENT_LIST_DIR}/test_clip_recorder.py)
endif()
