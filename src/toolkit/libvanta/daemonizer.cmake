# Detaching from the terminal: no library but the C library's.
rv_library(daemonizer ${CMAKE_CURRENT_LIST_DIR}/daemonizer.cpp)
