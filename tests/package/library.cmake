# The installed library is what a host may rely on.
cmake_minimum_required(VERSION 3.25)
include(${SETTINGS})

check_library(${FENLUX_PREFIX})
