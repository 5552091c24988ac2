rv_test(tst_picture fast ${CMAKE_CURRENT_LIST_DIR}/tst_picture.cpp)
target_link_libraries(tst_picture PRIVATE picture)
rv_test(tst_picture_codec fast ${CMAKE_CURRENT_LIST_DIR}/tst_picture_codec.cpp)
target_link_libraries(tst_picture_codec PRIVATE picture PkgConfig::FFMPEG)
