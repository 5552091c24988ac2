# The parameter store: how long a set takes to reach another client, and the same beside an MQTT broker.
rv_program(store_latency ${PROJECT_SOURCE_DIR}/bench/store_latency.cpp)
target_link_libraries(store_latency PRIVATE config store)

pkg_check_modules(MOSQUITTO IMPORTED_TARGET libmosquitto)
if(MOSQUITTO_FOUND)
    rv_program(store_mqtt ${PROJECT_SOURCE_DIR}/bench/store_mqtt.cpp)
    target_link_libraries(store_mqtt PRIVATE config PkgConfig::MOSQUITTO)
endif()
