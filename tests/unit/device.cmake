# The software video device: its pure pieces, its front, and the whole of it on a real clock.
foreach(topic clock timecode playback capture config)
    rv_test(tst_device_${topic} fast ${CMAKE_CURRENT_LIST_DIR}/tst_device_${topic}.cpp)
    target_link_libraries(tst_device_${topic} PRIVATE orbdevice)
endforeach()

rv_test(tst_device_front fast ${CMAKE_CURRENT_LIST_DIR}/tst_device_front.cpp)
target_link_libraries(tst_device_front PRIVATE orb)

rv_test(tst_device_run system ${CMAKE_CURRENT_LIST_DIR}/tst_device_run.cpp)
target_link_libraries(tst_device_run PRIVATE orbdevice PkgConfig::FFMPEG)
