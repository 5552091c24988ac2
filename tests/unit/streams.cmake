# Streams and the cache on a scripted medium; clips and play lists on files.
foreach(topic order)
    rv_test(tst_stream${topic} fast ${CMAKE_CURRENT_LIST_DIR}/tst_stream${topic}.cpp)
    target_link_libraries(tst_stream${topic} PRIVATE orbmedia)
endforeach()
foreach(topic "" reading writing)
    rv_test(tst_stream${topic} fast
        ${CMAKE_CURRENT_LIST_DIR}/tst_stream${topic}.cpp
        ${CMAKE_CURRENT_LIST_DIR}/tst_streamscript.h)
    target_link_libraries(tst_stream${topic} PRIVATE orb)
endforeach()
foreach(topic clips playlists io)
    rv_test(tst_stream${topic} fast
        ${CMAKE_CURRENT_LIST_DIR}/tst_stream${topic}.cpp
        ${CMAKE_CURRENT_LIST_DIR}/tst_streamfiles.h)
    target_link_libraries(tst_stream${topic} PRIVATE orb)
endforeach()
