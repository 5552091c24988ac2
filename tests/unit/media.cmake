# The lists that the recorder's processes share.
rv_test(tst_sharedlist fast ${CMAKE_CURRENT_LIST_DIR}/tst_sharedlist.cpp)
target_link_libraries(tst_sharedlist PRIVATE vanta)
# The lists have one name in the whole machine.
set_tests_properties(tst_clipfinder PROPERTIES RESOURCE_LOCK clip_lists)

# The media service without the store.
foreach(topic choice known listing requests)
    rv_test(tst_media_${topic} fast ${CMAKE_CURRENT_LIST_DIR}/tst_media_${topic}.cpp)
    target_include_directories(tst_media_${topic} PRIVATE ${PROJECT_SOURCE_DIR}/src/services/rvmedia)
    target_link_libraries(tst_media_${topic} PRIVATE mediaservice)
    target_compile_definitions(tst_media_${topic} PRIVATE RVGROK="$<TARGET_FILE:rvgrok>")
    add_dependencies(tst_media_${topic} rvgrok)
endforeach()

if(TARGET stockclips)
    rv_test(tst_stockclips fast ${CMAKE_CURRENT_LIST_DIR}/tst_stockclips.cpp)
    target_include_directories(tst_stockclips PRIVATE ${PROJECT_SOURCE_DIR}/src/services/rvstock)
    target_link_libraries(tst_stockclips PRIVATE stockclips transport)
endif()

rv_test(tst_mediatools fast ${CMAKE_CURRENT_LIST_DIR}/tst_mediatools.cpp)
target_link_libraries(tst_mediatools PRIVATE control)
