# The clip writer behind its driver, on media whose calls fail one by one, without and with another medium.
foreach(topic sink spare)
    rv_test(tst_clip_${topic} fast
        ${CMAKE_CURRENT_LIST_DIR}/tst_clip_${topic}.cpp
        ${CMAKE_CURRENT_LIST_DIR}/tst_clip_calls.h
        ${CMAKE_CURRENT_LIST_DIR}/tst_streamfiles.h)
    target_include_directories(tst_clip_${topic} PRIVATE ${CMAKE_CURRENT_LIST_DIR})
    target_link_libraries(tst_clip_${topic} PRIVATE orb)
endforeach()
