# Colour tables on pictures: the arithmetic, and the device that applies them.
rv_test(tst_colourtable fast ${CMAKE_CURRENT_LIST_DIR}/tst_colourtable.cpp)
target_link_libraries(tst_colourtable PRIVATE picture)
rv_test(tst_device_lut system ${CMAKE_CURRENT_LIST_DIR}/tst_device_lut.cpp)
target_link_libraries(tst_device_lut PRIVATE orbdevice)
