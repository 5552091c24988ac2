# The tables of the engine, row by row.
foreach(topic droppedframes heldframe interval jamtcg lossofvideo opens reports resets setters setups
              triggers)
    rv_test(tst_engine_${topic} fast ${CMAKE_CURRENT_LIST_DIR}/tst_engine_${topic}.cpp)
    target_link_libraries(tst_engine_${topic} PRIVATE enginerig)
endforeach()
