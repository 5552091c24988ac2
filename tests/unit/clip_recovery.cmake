# Clips whose writer died, and what completes them.
rv_test(tst_clip_recovery fast
    ${CMAKE_CURRENT_LIST_DIR}/tst_clip_recovery.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tst_clip_tools.h)
target_include_directories(tst_clip_recovery PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(tst_clip_recovery PRIVATE clip)
