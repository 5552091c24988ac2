# How long a set takes to reach another client of the parameter store.
rv_program(store_latency store_latency.cpp)
target_link_libraries(store_latency PRIVATE config store)
