# Clips: writing, reading, damage, and clips other programs make.
foreach(topic write growing faults hostile foreign)
    rv_test(tst_clip_${topic} fast
        ${CMAKE_CURRENT_LIST_DIR}/tst_clip_${topic}.cpp
        ${CMAKE_CURRENT_LIST_DIR}/tst_clip_tools.h)
    target_include_directories(tst_clip_${topic} PRIVATE ${CMAKE_CURRENT_LIST_DIR})
    target_link_libraries(tst_clip_${topic} PRIVATE clip PkgConfig::FFMPEG)
endforeach()
