# The ProRes decoder; FFmpeg's decoder judges.
foreach(topic decode decode_hostile decode_paths decode_sizes)
    rv_test(tst_prores_${topic} fast
        ${CMAKE_CURRENT_LIST_DIR}/tst_prores_${topic}.cpp ${CMAKE_CURRENT_LIST_DIR}/prorestools.h
        ${CMAKE_CURRENT_LIST_DIR}/proresdecoding.h)
    target_include_directories(tst_prores_${topic} PRIVATE ${CMAKE_CURRENT_LIST_DIR})
    target_link_libraries(tst_prores_${topic} PRIVATE prores PkgConfig::FFMPEG)
endforeach()

# What the device shows of it.
rv_test(tst_prores_playback fast ${CMAKE_CURRENT_LIST_DIR}/tst_prores_playback.cpp)
target_link_libraries(tst_prores_playback PRIVATE orbcodecs Qt6::Test)
