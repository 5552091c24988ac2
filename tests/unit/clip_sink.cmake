# The clip writer behind its driver, on a medium whose calls fail one by one.
rv_test(tst_clip_sink fast
    ${CMAKE_CURRENT_LIST_DIR}/tst_clip_sink.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tst_streamfiles.h)
target_include_directories(tst_clip_sink PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(tst_clip_sink PRIVATE orb)
