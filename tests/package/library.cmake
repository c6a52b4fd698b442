# The installed library meets what hosts rely on (check_library in module.cmake).
cmake_minimum_required(VERSION 3.25)
include(${SETTINGS})

check_library(${FENLUX_PREFIX})
