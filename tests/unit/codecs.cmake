# Coders, decoders and live inputs.
rv_test(tst_codec fast ${CMAKE_CURRENT_LIST_DIR}/tst_codec.cpp)
target_link_libraries(tst_codec PRIVATE orbcodecs)
