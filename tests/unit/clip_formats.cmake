# What other programs say of a clip, for every format of the recorder.
rv_test(tst_clip_formats fast
    ${CMAKE_CURRENT_LIST_DIR}/tst_clip_formats.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tst_clip_tools.h)
target_include_directories(tst_clip_formats PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(tst_clip_formats PRIVATE orb)
# Clips that are read while they are recorded.
rv_test(tst_clip_following fast
    ${CMAKE_CURRENT_LIST_DIR}/tst_clip_following.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tst_clip_tools.h
    ${CMAKE_CURRENT_LIST_DIR}/tst_streamfiles.h)
target_include_directories(tst_clip_following PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(tst_clip_following PRIVATE orb)
# What other programs write, played as the recorder plays.
rv_test(tst_clip_imports fast
    ${CMAKE_CURRENT_LIST_DIR}/tst_clip_imports.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tst_clip_tools.h
    ${CMAKE_CURRENT_LIST_DIR}/tst_streamfiles.h)
target_include_directories(tst_clip_imports PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(tst_clip_imports PRIVATE orb)
